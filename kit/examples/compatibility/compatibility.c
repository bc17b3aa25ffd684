/* A check module that allows each card type in the slots that a table names: compatibility NAME TABLE */
#include <app_cg_kit.h>
#include <stdio.h>

#include "table.h"

static int examine(void *arg, const app_cg_kit_card_t *card, app_cg_kit_check_t *check)
{
    const struct table *table = arg;
    const struct row *row = table_row(table, card->type);
    char reason[APP_CG_KIT_LONGEST_REASON + 1];
    char slots[160];
    if (row != NULL && row_allows(row, card->slotid)) {
        return APP_CG_KIT_PASS;
    }
    if (row == NULL) {
        (void)snprintf(reason, sizeof reason, "card type %d is not in the compatibility table",
                       (int)card->type);
        return app_cg_kit_deny(check, reason);
    }
    row_text(row, slots, sizeof slots);
    (void)snprintf(reason, sizeof reason, "card type %d does not go into slot %d; its slots: %s",
                   (int)card->type, (int)card->slotid, slots);
    return app_cg_kit_deny(check, reason);
}

static int serve(const char *name, struct table *table)
{
    app_cg_kit_options_t options;
    app_cg_kit_t *kit = NULL;
    app_cg_kit_options_init(&options);
    options.name = name;
    options.check = examine;
    options.arg = table;
    int result = app_cg_kit_open(&options, &kit);
    if (result == 0) {
        result = app_cg_kit_run(kit);
        app_cg_kit_close(kit);
    }
    if (result != 0) {
        (void)fprintf(stderr, "compatibility: %s\n", app_cg_kit_error_text(result));
    }
    return result == 0 ? 0 : result == APP_CG_KIT_E_NAME ? 2 : 1;
}

int main(int argc, char **argv)
{
    struct table table = {0};
    char problem[512];
    if (argc != 3) {
        (void)fprintf(stderr, "usage: compatibility NAME TABLE\n");
        return 2;
    }
    if (!table_load(argv[2], &table, problem, sizeof problem)) {
        (void)fprintf(stderr, "compatibility: %s\n", problem);
        return 2;
    }
    const int status = serve(argv[1], &table);
    table_free(&table);
    return status;
}
