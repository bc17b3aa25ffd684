/*
 * Which card type may be in which slots: a text file.
 *
 *     # comment
 *     230: 1-8,12       cards of type 230 go into slots 1 to 8 and 12
 *     300: none         those of type 300 into none
 *     *: 1-16           all others; without this line into none
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
    unsigned line;                       /* of the file */
    unsigned char slots[MOST_SLOTS / 8]; /* a bit for each */
};

struct table {
    struct row *rows;
    size_t count;
};

/*
 * Reads a table. Returns true, and the caller frees it with table_free(); or false and leaves one line in
 * `problem` (at most `size` bytes with its terminator) that names the file and the line: for a file that
 * cannot be read, a line that does not parse, a type that is given twice, and a table without lines, which
 * can only be a mistake.
 */
bool table_load(const char *file_name, struct table *table, char *problem, size_t size);

/* The row for a type: its own, or the one for all others; null when there is none. */
const struct row *table_row(const struct table *table, int32_t type);

/* Whether cards of the row's type go into a slot. */
bool row_allows(const struct row *row, int32_t slot);

/* Writes the row's slots as "1-8,12", or "none". Cut to `size` with its terminator. */
void row_text(const struct row *row, char *text, size_t size);

/* Frees the rows of a table and leaves it empty. */
void table_free(struct table *table);

#endif
