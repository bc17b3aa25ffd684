/* Which card type may be in which slots. */
#include "table.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { LONGEST_LINE = 1024 };

struct reader {
    const char *file_name;
    unsigned line;
    char *problem;
    size_t size;
};

static bool fail(const struct reader *reader, const char *what, const char *text)
{
    (void)snprintf(reader->problem, reader->size, "%s:%u: '%s': %s", reader->file_name, reader->line, text,
                   what);
    return false;
}

/* Cuts blanks at both ends. */
static char *trimmed(char *text)
{
    char *end = text + strlen(text);
    while (isspace((unsigned char)*text)) {
        text++;
    }
    while (end > text && isspace((unsigned char)end[-1])) {
        *--end = '\0';
    }
    return text;
}

/* A whole number from `least` to `most` that is all of the text. */
static bool to_number(const char *text, long least, long most, long *number)
{
    char *end = NULL;
    errno = 0;
    *number = strtol(text, &end, 10);
    return *text != '\0' && *end == '\0' && errno == 0 && *number >= least && *number <= most;
}

/* "1-8" or "12" */
static bool parse_range(const struct reader *reader, char *text, struct row *row)
{
    const char *const right = "neither a slot from 0 to 255 nor a range of them, as in 1-8";
    long first = 0;
    long last = 0;
    char *dash = strchr(text, '-');
    if (dash != NULL) {
        *dash = '\0';
    }
    const bool is_range = to_number(trimmed(text), 0, MOST_SLOTS - 1, &first) &&
                          (dash == NULL || to_number(trimmed(dash + 1), first, MOST_SLOTS - 1, &last));
    if (dash != NULL) {
        *dash = '-';
    } else {
        last = first;
    }
    if (!is_range) {
        return fail(reader, right, text);
    }
    for (long slot = first; slot <= last; slot++) {
        row->slots[slot / 8] = (unsigned char)(row->slots[slot / 8] | (1U << (unsigned)(slot % 8)));
    }
    return true;
}

static bool parse_slots(const struct reader *reader, char *text, struct row *row)
{
    if (strcmp(text, "none") == 0) {
        return true;
    }
    while (text != NULL) {
        char *comma = strchr(text, ',');
        if (comma != NULL) {
            *comma = '\0';
        }
        if (!parse_range(reader, trimmed(text), row)) {
            return false;
        }
        text = comma == NULL ? NULL : comma + 1;
    }
    return true;
}

static bool parse_type(const struct reader *reader, const char *text, struct row *row)
{
    long type = 0;
    row->is_for_others = strcmp(text, "*") == 0;
    if (!row->is_for_others && !to_number(text, INT32_MIN, INT32_MAX, &type)) {
        return fail(reader, "not a card type, a whole number, or * for all others", text);
    }
    row->type = (int32_t)type;
    return true;
}

static bool add_row(const struct reader *reader, struct table *table, const struct row *row, const char *type)
{
    for (size_t i = 0; i < table->count; i++) {
        if (table->rows[i].is_for_others == row->is_for_others && table->rows[i].type == row->type) {
            return fail(reader, "there is a line for this type already; keep one of them", type);
        }
    }
    struct row *rows = realloc(table->rows, (table->count + 1) * sizeof *rows);
    if (rows == NULL) {
        return fail(reader, "memory ran out", type);
    }
    rows[table->count] = *row;
    table->rows = rows;
    table->count++;
    return true;
}

static bool parse_line(const struct reader *reader, char *line, struct table *table)
{
    struct row row = {.line = reader->line};
    char *text = trimmed(line);
    if (*text == '\0' || *text == '#') {
        return true;
    }
    char *colon = strchr(text, ':');
    if (colon == NULL) {
        return fail(reader, "no ':'; a line is TYPE: SLOTS, as in 230: 1-8,12", text);
    }
    *colon = '\0';
    const char *type = trimmed(text);
    return parse_type(reader, type, &row) && parse_slots(reader, trimmed(colon + 1), &row) &&
           add_row(reader, table, &row, type);
}

static bool parse_lines(struct reader *reader, FILE *file, struct table *table)
{
    char line[LONGEST_LINE];
    while (fgets(line, sizeof line, file) != NULL) {
        reader->line++;
        if (strchr(line, '\n') == NULL && !feof(file)) {
            line[20] = '\0';
            return fail(reader, "the line is too long; 1022 characters are allowed", line);
        }
        if (!parse_line(reader, line, table)) {
            return false;
        }
    }
    if (ferror(file)) {
        (void)snprintf(reader->problem, reader->size, "%s: cannot be read: %s", reader->file_name,
                       strerror(errno));
        return false;
    }
    if (table->count == 0) {
        (void)snprintf(reader->problem, reader->size, "%s: no lines; add '*: 0-255' to allow everything",
                       reader->file_name);
        return false;
    }
    return true;
}

bool table_load(const char *file_name, struct table *table, char *problem, size_t size)
{
    struct reader reader = {.file_name = file_name, .problem = problem, .size = size};
    struct table loaded = {0};
    FILE *file = fopen(file_name, "r");
    if (file == NULL) {
        (void)snprintf(problem, size, "%s: cannot be read: %s", file_name, strerror(errno));
        return false;
    }
    const bool is_good = parse_lines(&reader, file, &loaded);
    (void)fclose(file);
    if (!is_good) {
        table_free(&loaded);
        return false;
    }
    *table = loaded;
    return true;
}

const struct row *table_row(const struct table *table, int32_t type)
{
    const struct row *for_others = NULL;
    for (size_t i = 0; i < table->count; i++) {
        if (table->rows[i].is_for_others) {
            for_others = &table->rows[i];
        } else if (table->rows[i].type == type) {
            return &table->rows[i];
        }
    }
    return for_others;
}

bool row_allows(const struct row *row, int32_t slot)
{
    return slot >= 0 && slot < MOST_SLOTS && (row->slots[slot / 8] & (1U << (unsigned)(slot % 8))) != 0;
}

void row_text(const struct row *row, char *text, size_t size)
{
    size_t length = 0;
    (void)snprintf(text, size, "none");
    for (int32_t slot = 0; slot < MOST_SLOTS && length < size; slot++) {
        int32_t last = slot;
        if (!row_allows(row, slot)) {
            continue;
        }
        while (row_allows(row, last + 1)) {
            last++;
        }
        const char *comma = length == 0 ? "" : ",";
        const int added =
            last == slot ? snprintf(text + length, size - length, "%s%d", comma, (int)slot)
                         : snprintf(text + length, size - length, "%s%d-%d", comma, (int)slot, (int)last);
        length += added > 0 ? (size_t)added : 0;
        slot = last;
    }
}

void table_free(struct table *table)
{
    free(table->rows);
    table->rows = NULL;
    table->count = 0;
}
