/*
 * Which card type may be in which slots: a file of lines.
 *
 *     # comment
 *     230: 1-8,12       cards of type 230 go into slots 1 to 8 and 12
 *     300: none         and those of type 300 nowhere
 *     *: 1-16           all others; without this line they go nowhere
 */
#ifndef COMPATIBILITY_TABLE_H
#define COMPATIBILITY_TABLE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

enum { MOST_SLOTS = 256 }; /* slots 0 to 255 */

struct row {
    int32_t type;
    bool is_for_others;                  /* the line "*" */
    unsigned line;                       /* where it stands in the file */
    unsigned char slots[MOST_SLOTS / 8]; /* a bit for each */
};

struct table {
    struct row *rows;
    size_t count;
};

/*
 * Reads a table. Returns true, and the caller frees it with table_free(); or false and leaves one line in
 * `problem` that names the file and the line: for what cannot be read, a line that is none, a type said
 * twice, and a table without any line, which would be a mistake and no wish.
 */
bool table_load(const char *file_name, struct table *table, char *problem, size_t size);

/* The row for a type: its own, or the one for all others; null when there is none. */
const struct row *table_row(const struct table *table, int32_t type);

bool row_allows(const struct row *row, int32_t slot);

/* Writes the row's slots as "1-8,12", or "none". Cut to `size` with its terminator. */
void row_text(const struct row *row, char *text, size_t size);

void table_free(struct table *table);

#endif
