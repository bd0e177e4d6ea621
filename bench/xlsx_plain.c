/* The yardstick of the .xlsx benchmark: the cells bench_xls writes as .xlsx, written with
 * libxlsxwriter directly, as a program that knows its data's types would write them. The
 * same 65,000 rows of 12 columns (row r of the output is row r % 65,000 of those), numbers
 * and dates already numbers, a bold header row, a number format a column, columns as wide as
 * their longest text, in constant-memory mode; past 1,048,576 rows a sheet "Bench (2)".
 * The rows are made before the clock starts; it stops when the workbook is closed.
 *
 *   xlsx_plain ROWS FILE
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <xlsxwriter.h>

enum { kRows = 65000, kColumns = 12 };

/* The type codes of bench_xls's columns: c c d c n n n0 c n c n c. */
static const char* const kFormats[kColumns] = {"@", "@", "mm/dd/yy", "@", "0.00", "0.00",
                                               "0", "@", "0.00",     "@", "0.00", "@"};

struct Cell {
  char text[32]; /* empty for a number */
  double number;
};

static struct Cell cells[kRows][kColumns];
static size_t widths[kColumns];

/* Row r's cells, the values bench_xls gives as text, with their display widths. */
static void MakeRow(int r) {
  for (int c = 0; c < kColumns; ++c) {
    struct Cell* cell = &cells[r][c];
    char shown[32];
    cell->text[0] = '\0';
    switch (c) {
      case 0:
        snprintf(cell->text, sizeof cell->text, "C%d", 100000 + r % 5000);
        break;
      case 2: /* 10/dd/26, as a day serial: 10/01/26 is 46296 */
        cell->number = 46295 + 10 + r % 18;
        strcpy(shown, "mm/dd/yy");
        break;
      case 4:
      case 5:
      case 8:
      case 10:
        snprintf(shown, sizeof shown, "%d.%d", (r * 37 + c) % 100000, 10 + r % 90);
        cell->number = strtod(shown, NULL);
        break;
      case 6:
        cell->number = r % 5000;
        snprintf(shown, sizeof shown, "%d", r % 5000);
        break;
      default:
        snprintf(cell->text, sizeof cell->text, "TEXT %d ROW %d", c, r);
        break;
    }
    const size_t width = strlen(cell->text[0] ? cell->text : shown);
    if (width > widths[c]) widths[c] = width;
  }
}

int main(int argc, char** argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: xlsx_plain ROWS FILE\n");
    return 2;
  }
  const long rows = atol(argv[1]);
  char folder[4096];
  snprintf(folder, sizeof folder, "%s", argv[2]);
  char* slash = strrchr(folder, '/');
  if (slash)
    *slash = '\0';
  else
    strcpy(folder, ".");

  char labels[kColumns][16];
  for (int c = 0; c < kColumns; ++c) {
    snprintf(labels[c], sizeof labels[c], "Column %d", c + 1);
    widths[c] = strlen(labels[c]);
  }
  for (int r = 0; r < kRows; ++r) MakeRow(r);

  struct timespec start, end;
  clock_gettime(CLOCK_MONOTONIC, &start);
  lxw_workbook_options options = {.constant_memory = LXW_TRUE, .tmpdir = folder};
  lxw_workbook* book = workbook_new_opt(argv[2], &options);
  lxw_format *cell[kColumns], *header[kColumns];
  for (int c = 0; c < kColumns; ++c) {
    cell[c] = workbook_add_format(book);
    header[c] = workbook_add_format(book);
    format_set_num_format(cell[c], kFormats[c]);
    format_set_num_format(header[c], kFormats[c]);
    format_set_bold(header[c]);
  }
  lxw_worksheet* sheet = NULL;
  int sheets = 0;
  lxw_row_t row = LXW_ROW_MAX;
  for (long r = 0; r < rows; ++r) {
    if (row == LXW_ROW_MAX) {
      char name[32] = "Bench";
      if (++sheets > 1) snprintf(name, sizeof name, "Bench (%d)", sheets);
      sheet = workbook_add_worksheet(book, name);
      for (int c = 0; c < kColumns; ++c) {
        worksheet_write_string(sheet, 0, (lxw_col_t)c, labels[c], header[c]);
        worksheet_set_column(sheet, (lxw_col_t)c, (lxw_col_t)c, (double)widths[c] + 1, cell[c]);
      }
      row = 1;
    }
    const struct Cell* values = cells[r % kRows];
    for (int c = 0; c < kColumns; ++c) {
      if (values[c].text[0]) {
        worksheet_write_string(sheet, row, (lxw_col_t)c, values[c].text, cell[c]);
      } else {
        worksheet_write_number(sheet, row, (lxw_col_t)c, values[c].number, cell[c]);
      }
    }
    ++row;
  }
  const lxw_error error = workbook_close(book);
  clock_gettime(CLOCK_MONOTONIC, &end);
  if (error != LXW_NO_ERROR) {
    fprintf(stderr, "xlsx_plain: %s\n", lxw_strerror(error));
    return 1;
  }
  const double secs = (double)(end.tv_sec - start.tv_sec) + (end.tv_nsec - start.tv_nsec) / 1e9;
  printf("%-12s %9ld rows  %6.2f s  %9.0f rows/s  %s\n", "plain C", rows, secs, rows / secs,
         argv[2]);
  return 0;
}
