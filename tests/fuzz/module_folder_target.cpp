// The names in the folder of the check modules. Input: the entries' names, one on each line.
#include <dirent.h>

#include <algorithm>
#include <cstring>

#include "app_cg/check_modules.h"

#include "daemon_log.h"

namespace
{

using fuzz::require;

constexpr const char *folder_path = "/etc/app_cg/deny_check/";

// A folder's listing; its address stands for the open folder.
struct Listing {
    std::vector<std::string> names;
    size_t next = 0;
    bool open = false;
    dirent entry{};
};

Listing listing;

DIR *handle_of(Listing &opened)
{
    return reinterpret_cast<DIR *>(&opened);
}

// The names that a folder could have.
std::vector<std::string> names_in(std::string_view text)
{
    std::vector<std::string> names = fuzz::parts_of(text, '\n');
    for (std::string &name : names) {
        std::replace(name.begin(), name.end(), '/', '_');
        name = fuzz::c_text(name).substr(0, sizeof(dirent::d_name) - 1);
    }
    std::erase(names, "");
    return names;
}

std::vector<std::string> expected_modules()
{
    std::vector<std::string> modules;
    for (const std::string &name : listing.names) {
        if (name != "." && name != ".." && modules.size() < 16) {
            modules.push_back(name.substr(0, 15));
        }
    }
    return modules;
}

void check_registry(const std::vector<std::string> &modules)
{
    const app_cg_wait_obj_t &registry = g_app_cg_global.wait_obj;
    require(registry.app_cg_wait_obj_num == static_cast<int32_t>(modules.size()),
            "as many modules are registered as the folder has, up to 16");
    require(registry.app_cg_wait_obj_bmp == (1U << modules.size()) - 1, "each has its bit");
    for (size_t i = 0; i < modules.size(); ++i) {
        require(registry.app_cg_wait_obj_name[i] == modules[i], "each is named as its entry", modules[i]);
        const auto first = std::find(modules.begin(), modules.end(), modules[i]) - modules.begin();
        require(app_cg_wait_obj_lookup(modules[i].c_str()) == static_cast<int32_t>(first),
                "each is found by its name", modules[i]);
    }
    require(app_cg_wait_obj_lookup("sixteen--letters") == -1, "a name too long is not found");
}

} // namespace

extern "C" {

// The names are the linker's: --wrap=f leads calls of f to __wrap_f and leaves the system's as __real_f.
DIR *__real_opendir(const char *path);
dirent *__real_readdir(DIR *folder);
int __real_closedir(DIR *folder);

DIR *__wrap_opendir(const char *path)
{
    if (std::strcmp(path, folder_path) != 0) {
        return __real_opendir(path);
    }
    listing.next = 0;
    listing.open = true;
    return handle_of(listing);
}

dirent *__wrap_readdir(DIR *folder)
{
    if (folder != handle_of(listing)) {
        return __real_readdir(folder);
    }
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
    if (folder != handle_of(listing)) {
        return __real_closedir(folder);
    }
    listing.open = false;
    return 0;
}
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    listing.names = names_in(fuzz::view_of(data, size));
    g_app_cg_global.zlog_handle = &log_category;
    std::memset(&g_app_cg_global.wait_obj, 'x', sizeof g_app_cg_global.wait_obj);
    require(app_cg_deny_check_init_wait_obj(&g_app_cg_global.wait_obj, folder_path) == 0,
            "the folder is read");
    require(!listing.open, "the folder is closed");
    check_registry(expected_modules());
    return 0;
}
