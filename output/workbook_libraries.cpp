#include "output/workbook_libraries.h"

#include "base/errors.h"
#include "base/shared_library.h"

namespace qb {
namespace {

GsfLibrary LoadGsf(const char* source) {
  static const SharedLibrary lib(QB_GSF_SONAME, "the .xls writer (libgsf)", kNoAutomation, source);
  GsfLibrary f{
      lib.Function<decltype(gsf_init)>("gsf_init"),
      lib.Function<decltype(gsf_output_stdio_new_FILE)>("gsf_output_stdio_new_FILE"),
      lib.Function<decltype(gsf_outfile_msole_new)>("gsf_outfile_msole_new"),
      lib.Function<decltype(gsf_outfile_new_child)>("gsf_outfile_new_child"),
      lib.Function<decltype(gsf_output_write)>("gsf_output_write"),
      lib.Function<decltype(gsf_output_close)>("gsf_output_close"),
      lib.Function<decltype(g_object_unref)>("g_object_unref"),  // GLib's, which libgsf brings
  };
  f.init();
  return f;
}

XlsxLibrary LoadXlsx(const char* source) {
  static const SharedLibrary lib(QB_XLSXWRITER_SONAME, "the .xlsx writer (libxlsxwriter)",
                                 kNoAutomation, source);
  return {
      lib.Function<decltype(workbook_new_opt)>("workbook_new_opt"),
      lib.Function<decltype(workbook_add_format)>("workbook_add_format"),
      lib.Function<decltype(workbook_add_worksheet)>("workbook_add_worksheet"),
      lib.Function<decltype(workbook_close)>("workbook_close"),
      lib.Function<decltype(lxw_workbook_free)>("lxw_workbook_free"),
      lib.Function<decltype(format_set_num_format)>("format_set_num_format"),
      lib.Function<decltype(format_set_text_wrap)>("format_set_text_wrap"),
      lib.Function<decltype(format_set_align)>("format_set_align"),
      lib.Function<decltype(format_set_bold)>("format_set_bold"),
      lib.Function<decltype(worksheet_write_number)>("worksheet_write_number"),
      lib.Function<decltype(worksheet_write_string)>("worksheet_write_string"),
      lib.Function<decltype(worksheet_set_column)>("worksheet_set_column"),
      lib.Function<decltype(lxw_strerror)>("lxw_strerror"),
  };
}

}  // namespace

const GsfLibrary& Gsf(const char* source) {
  static const GsfLibrary library = LoadGsf(source);
  return library;
}

const XlsxLibrary& Xlsx(const char* source) {
  static const XlsxLibrary library = LoadXlsx(source);
  return library;
}

}  // namespace qb
