/* A module in C that knows nothing of us but the installed kit. */
#include <app_cg_kit.h>
#include <stdio.h>
#include <string.h>

static int examine(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check)
{
    (void)arg;
    return card->type < 300 ? APP_CG_KIT_PASS : app_cg_kit_deny(check, "too new");
}

int main(int argc, char **argv)
{
    app_cg_kit_options_t options;
    app_cg_kit_t *kit = NULL;
    app_cg_kit_options_init(&options);
    options.name = argc > 1 ? argv[1] : "";
    options.check = examine;
    options.lock_folder = "";
    int result = app_cg_kit_open(&options, &kit);
    if (result == 0 && argc > 2 && strcmp(argv[2], "run") == 0) {
        result = app_cg_kit_run(kit);
    }
    app_cg_kit_close(kit);
    printf("%s: %s\n", app_cg_kit_version(), app_cg_kit_error_text(result));
    return result == 0 ? 0 : 1;
}
