// The wrappers behind fake_fs.h, and the private folder that they lead to.
#include "fake_fs.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/types.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <new>
#include <sstream>

namespace
{

namespace fs = std::filesystem;

// A folder that is being listed.
struct Listing {
    std::vector<std::string> names;
    std::size_t next = 0;
    dirent entry{};
};

struct State {
    std::string root; // empty while nothing is redirected
    std::vector<std::string> order;
    std::vector<std::string> calls;
    std::map<DIR *, Listing> listings;
    std::size_t entries_asked_for = 0;
};

State &state()
{
    static State the_state;
    return the_state;
}

// Plain variables: malloc() is called before any object is constructed.
bool malloc_armed = false;
std::size_t malloc_at_least = 0;
bool new_armed = false;
std::size_t new_size = 0;

bool is_fixed(const std::string &path)
{
    constexpr std::array prefixes{"/etc/app_cg/", "/data/", "/var/run/app_cg_ham.txt"};
    return !state().root.empty() &&
           std::any_of(prefixes.begin(), prefixes.end(),
                       [&path](const char *prefix) { return path.rfind(prefix, 0) == 0; });
}

std::string real_path(const std::string &path)
{
    return is_fixed(path) ? state().root + path : path;
}

std::string flags_text(int flags)
{
    std::string text = (flags & O_ACCMODE) == O_RDWR     ? "O_RDWR"
                       : (flags & O_ACCMODE) == O_WRONLY ? "O_WRONLY"
                                                         : "O_RDONLY";
    text += (flags & O_CREAT) != 0 ? "|O_CREAT" : "";
    text += (flags & O_TRUNC) != 0 ? "|O_TRUNC" : "";
    text += (flags & O_APPEND) != 0 ? "|O_APPEND" : "";
    return text;
}

std::string octal(unsigned mode)
{
    std::ostringstream text;
    text << '0' << std::oct << mode;
    return text.str();
}

std::size_t rank_of(const std::string &name)
{
    const std::vector<std::string> &order = state().order;
    const auto found = std::find(order.begin(), order.end(), name);
    if (found == order.end() && (name == "." || name == "..")) {
        return order.size() + 1;
    }
    return static_cast<std::size_t>(std::distance(order.begin(), found));
}

std::vector<std::string> names_in(const std::string &folder)
{
    std::vector<std::string> names{".", ".."};
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end(), [](const std::string &a, const std::string &b) {
        return std::make_pair(rank_of(a), a) < std::make_pair(rank_of(b), b);
    });
    return names;
}

} // namespace

namespace fake_fs
{

void set_up()
{
    tear_down();
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp == nullptr ? "/tmp" : tmp) + "/app_cg_test.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    state().root = pattern;
}

void tear_down()
{
    malloc_armed = false;
    new_armed = false;
    if (!state().root.empty()) {
        std::error_code ignored;
        fs::remove_all(state().root, ignored);
    }
    state() = State();
}

void make_folder(const std::string &path)
{
    fs::create_directories(real_path(path));
}

void add_module(const std::string &name)
{
    write(MODULE_FOLDER + name, "");
}

void remove_module(const std::string &name)
{
    fs::remove(real_path(MODULE_FOLDER + name));
}

void list_order(const std::vector<std::string> &names)
{
    state().order = names;
}

void write(const std::string &path, const std::string &text)
{
    fs::create_directories(fs::path(real_path(path)).parent_path());
    std::ofstream(real_path(path), std::ios::binary) << text;
}

std::string read(const std::string &path)
{
    std::ifstream file(real_path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool exists(const std::string &path)
{
    return fs::exists(real_path(path));
}

std::string host_path(const std::string &path)
{
    return real_path(path);
}

const std::vector<std::string> &calls()
{
    return state().calls;
}

std::size_t entries_asked_for()
{
    return state().entries_asked_for;
}

std::size_t open_folders()
{
    return state().listings.size();
}

void fail_next_malloc(std::size_t at_least)
{
    malloc_at_least = at_least;
    malloc_armed = true;
}

bool malloc_failure_pending()
{
    return malloc_armed;
}

void fail_next_new(std::size_t size)
{
    new_size = size;
    new_armed = true;
}

bool new_failure_pending()
{
    return new_armed;
}

} // namespace fake_fs

extern "C" {

// The names are the linker's: --wrap=f leads calls of f to __wrap_f and leaves the system's as __real_f.
int __real_open(const char *path, int flags, ...);
DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *folder);
int __real_closedir(DIR *folder);
int __real_system(const char *command);
void *__real_malloc(std::size_t size);

int __wrap_open(const char *path, int flags, ...)
{
    mode_t mode = 0;
    va_list values;
    va_start(values, flags);
    if ((flags & (O_CREAT | O_TMPFILE)) != 0) {
        mode = va_arg(values, mode_t);
    }
    va_end(values);
    if (!is_fixed(path)) {
        return __real_open(path, flags, mode);
    }
    state().calls.push_back("open(" + std::string(path) + ", " + flags_text(flags) +
                            ((flags & O_CREAT) != 0 ? ", " + octal(mode) : "") + ")");
    return __real_open(real_path(path).c_str(), flags, mode);
}

DIR *__wrap_opendir(const char *path)
{
    if (!is_fixed(path)) {
        return __real_opendir(path);
    }
    state().calls.push_back("opendir(" + std::string(path) + ")");
    const std::string folder = real_path(path);
    DIR *handle = __real_opendir(folder.c_str());
    if (handle != nullptr) {
        state().listings[handle].names = names_in(folder);
    }
    return handle;
}

dirent *__wrap_readdir(DIR *folder)
{
    const auto found = state().listings.find(folder);
    if (found == state().listings.end()) {
        return __real_readdir(folder);
    }
    state().entries_asked_for++;
    Listing &listing = found->second;
    if (listing.next == listing.names.size()) {
        return nullptr;
    }
    const std::string &name = listing.names[listing.next++];
    listing.entry = {};
    name.copy(static_cast<char *>(listing.entry.d_name), sizeof listing.entry.d_name - 1);
    return &listing.entry;
}

int __wrap_closedir(DIR *folder)
{
    if (state().listings.erase(folder) != 0) {
        state().calls.emplace_back("closedir()");
    }
    return __real_closedir(folder);
}

// Only one command is known: making a folder below a fixed path. It is made in the private folder.
int __wrap_system(const char *command)
{
    constexpr const char *make_folder = "mkdir -p ";
    const std::string text = command == nullptr ? "" : command;
    if (text.rfind(make_folder, 0) != 0 || !is_fixed(text.substr(std::strlen(make_folder)))) {
        return __real_system(command);
    }
    state().calls.push_back("system(" + text + ")");
    std::error_code error;
    fs::create_directories(real_path(text.substr(std::strlen(make_folder))), error);
    return error ? 256 : 0;
}

void *__wrap_malloc(std::size_t size)
{
    if (malloc_armed && size >= malloc_at_least) {
        malloc_armed = false;
        errno = ENOMEM;
        return nullptr;
    }
    return __real_malloc(size);
}
}

// Past the wrapper of malloc(): a failure that is meant for the daemon's own malloc() must not hit an object.
// The other forms are replaced with it, so that whatever one of them hands out the others may take back.
void *operator new(std::size_t size)
{
    const bool fails = new_armed && size == new_size;
    new_armed = new_armed && !fails;
    void *block = fails ? nullptr : __real_malloc(std::max<std::size_t>(size, 1));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void *operator new(std::size_t size, const std::nothrow_t & /*tag*/) noexcept
{
    return __real_malloc(std::max<std::size_t>(size, 1));
}

void operator delete(void *block) noexcept
{
    std::free(block);
}

void operator delete(void *block, std::size_t /*size*/) noexcept
{
    std::free(block);
}

void operator delete(void *block, const std::nothrow_t & /*tag*/) noexcept
{
    std::free(block);
}
