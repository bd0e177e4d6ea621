#pragma once
// The libraries that write workbooks, loaded when a run first writes one: libgsf (with GLib)
// for the .xls container, libxlsxwriter for .xlsx. Each table holds the functions the writers
// call, typed as the library's header declares them.

#include <gsf/gsf-outfile-msole.h>
#include <gsf/gsf-outfile.h>
#include <gsf/gsf-output-stdio.h>
#include <gsf/gsf-utils.h>
#include <xlsxwriter.h>

namespace qb {

struct GsfLibrary {
  decltype(&::gsf_init) init;
  decltype(&::gsf_output_stdio_new_FILE) output_stdio_new_FILE;
  decltype(&::gsf_outfile_msole_new) outfile_msole_new;
  decltype(&::gsf_outfile_new_child) outfile_new_child;
  decltype(&::gsf_output_write) output_write;
  decltype(&::gsf_output_close) output_close;
  decltype(&::g_object_unref) object_unref;
};

struct XlsxLibrary {
  decltype(&::workbook_new_opt) workbook_new_opt;
  decltype(&::workbook_add_format) workbook_add_format;
  decltype(&::workbook_add_worksheet) workbook_add_worksheet;
  decltype(&::workbook_close) workbook_close;
  decltype(&::lxw_workbook_free) workbook_free;
  decltype(&::format_set_num_format) format_set_num_format;
  decltype(&::format_set_text_wrap) format_set_text_wrap;
  decltype(&::format_set_align) format_set_align;
  decltype(&::format_set_bold) format_set_bold;
  decltype(&::worksheet_write_number) worksheet_write_number;
  decltype(&::worksheet_write_string) worksheet_write_string;
  decltype(&::worksheet_set_column) worksheet_set_column;
  decltype(&::lxw_strerror) strerror;
};

// Loaded (and libgsf initialised) on the first call from any thread; throws QbError 429 from
// `source`, naming the library and why, when it cannot be loaded. A later call tries again.
const GsfLibrary& Gsf(const char* source);
const XlsxLibrary& Xlsx(const char* source);

}  // namespace qb
