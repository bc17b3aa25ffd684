// The daemon's fixed paths, led into a private folder: /etc/app_cg/, /data/ and /var/run/app_cg_ham.txt.
//
// The test program is linked with --wrap for the few calls that the daemon makes; a private mount namespace
// was the alternative, but it needs rights that a developer's machine may not give. Every other path, and
// every call while no test has set up a folder, goes to the system as it is.
#ifndef FAKE_FS_H
#define FAKE_FS_H

#include <cstddef>
#include <string>
#include <vector>

namespace fake_fs
{

// Starts with an empty private folder, below $TMPDIR; removes it again. Nothing exists until it is made.
void set_up();
void tear_down();

// The folder of the check modules, empty; add_module() makes it too. The path as the daemon names it.
constexpr char MODULE_FOLDER[] = "/etc/app_cg/deny_check/";
void make_folder(const std::string &path);
void add_module(const std::string &name);
void remove_module(const std::string &name);

// The order in which readdir() lists the names of a folder; "." and ".." may be among them. Names that are
// not given follow in alphabetical order, "." and ".." at the very end.
void list_order(const std::vector<std::string> &names);

// A file at one of the fixed paths. Folders are made as needed.
void write(const std::string &path, const std::string &text);
std::string read(const std::string &path);
bool exists(const std::string &path);

// Where a fixed path really leads.
std::string host_path(const std::string &path);

// The calls made on fixed paths since set_up(), e.g. "open(/data/x, O_RDWR|O_CREAT, 0644)",
// "opendir(/etc/app_cg/deny_check/)", "closedir()", "system(mkdir -p /data/collect)".
const std::vector<std::string> &calls();

// How often readdir() was asked for an entry of a fixed folder since set_up().
std::size_t entries_asked_for();

// Folders opened and not closed.
std::size_t open_folders();

// The next malloc() of at least this many bytes, made by the daemon's code, fails. Once.
void fail_next_malloc(std::size_t at_least = 0);

// True while a failure is still to come.
bool malloc_failure_pending();

// The next operator new of exactly this many bytes, made by anybody in this process, throws. Once. Exactly,
// because test and recording platform allocate too, and a failure must not hit them instead.
void fail_next_new(std::size_t size);

// True while a failure is still to come.
bool new_failure_pending();

} // namespace fake_fs

#endif
