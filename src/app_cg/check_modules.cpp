// The check-module registry. Only the names in the folder count; the files are never opened, so a module is
// registered by touching a file and needs no configuration of the daemon.

#include "app_cg/check_modules.h"

#include <dirent.h>

#include <cstdio>
#include <cstring>

#include "app_cg_dbg/logging.h"

namespace
{

bool is_self_or_parent(const char *name)
{
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// Copies the entries' names into the slots, in the folder's own order. Returns their number.
int32_t read_names(DIR *folder, app_cg_wait_obj_t *registry)
{
    int32_t count = 0;
    // readdir is safe here: the process has one thread.
    for (const dirent *entry = readdir(folder); entry != nullptr; entry = readdir(folder)) {
        if (is_self_or_parent(entry->d_name)) {
            continue;
        }
        if (count == APP_CG_WAIT_OBJ_MAX) {
            break;
        }
        std::snprintf(registry->app_cg_wait_obj_name[count], APP_CG_WAIT_OBJ_NAME_LEN, "%.15s",
                      entry->d_name);
        ++count;
    }
    return count;
}

} // namespace

int32_t app_cg_deny_check_init_wait_obj(app_cg_wait_obj_t *registry, const char *path)
{
    if (registry == nullptr || path == nullptr) {
        APP_CG_ERROR("input arguments error.\r\n");
        return APP_CG_ERR_NULL;
    }

    *registry = app_cg_wait_obj_t{};
    DIR *folder = opendir(path);
    if (folder == nullptr) {
        APP_CG_ERROR("Folder path(%s) error.\n", path);
        return APP_CG_ERR_RESOURCE;
    }

    registry->app_cg_wait_obj_num = read_names(folder, registry);
    // Each name takes the place of the one before: the summary shows the last module only.
    char names[256] = {};
    for (int32_t i = 0; i < registry->app_cg_wait_obj_num; ++i) {
        registry->app_cg_wait_obj_bmp |= 1U << static_cast<uint32_t>(i);
        std::snprintf(names, sizeof names, "%s|", registry->app_cg_wait_obj_name[i]);
    }
    APP_CG_FATAL("module: num[%d], bmp[%d], name: [%s]", registry->app_cg_wait_obj_num,
                 static_cast<int32_t>(registry->app_cg_wait_obj_bmp), names);
    closedir(folder);
    return 0;
}

int32_t app_cg_wait_obj_lookup(const char *mod_name)
{
    if (mod_name == nullptr) {
        return -1;
    }
    const app_cg_wait_obj_t &registry = g_app_cg_global.wait_obj;
    for (int32_t i = 0; i < registry.app_cg_wait_obj_num; ++i) {
        if (std::strncmp(registry.app_cg_wait_obj_name[i], mod_name, APP_CG_WAIT_OBJ_NAME_LEN) == 0) {
            return i;
        }
    }
    return -1;
}

int32_t app_cg_dump_wait_obj()
{
    const app_cg_wait_obj_t &registry = g_app_cg_global.wait_obj;
    std::printf("app_cg_wait_obj_num %d\n", registry.app_cg_wait_obj_num);
    std::printf("app_cg_wait_obj_bmp 0x%x\n", registry.app_cg_wait_obj_bmp);
    for (int32_t i = 0; i < registry.app_cg_wait_obj_num; ++i) {
        std::printf("wait mod[%d], name[%s]\n", i, registry.app_cg_wait_obj_name[i]);
    }
    return 0;
}
