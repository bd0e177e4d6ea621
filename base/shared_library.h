#pragma once
// A shared library loaded when a run first needs it. The libraries that read PDFs and write
// workbooks bring dozens of others with them; a run that converts a text report to a .csv
// never loads them, so it starts in a few milliseconds and stays small.

#include <cstdint>
#include <string>
#include <string_view>

namespace qb {

class SharedLibrary {
 public:
  // Loads `file` (a file name, searched as the dynamic loader searches: LD_LIBRARY_PATH, the
  // system's folders). Throws QbError `number` from `source` that names `what` ("the PDF
  // reader"), the file and the loader's reason.
  SharedLibrary(const std::string& file, std::string_view what, int32_t number, std::string source);

  // Where a module of Quillbrook's own is: `file` in the lib/ folder beside the program's
  // bin/ (build/lib for build/bin/qbconvert and build/tests/...), or `file` alone, for the
  // loader to search, when there is none. Found from the program's own path, not the
  // loader's run path, which a sanitizer's dlopen does not apply.
  static std::string OwnModule(const char* file);
  ~SharedLibrary();
  SharedLibrary(const SharedLibrary&) = delete;
  SharedLibrary& operator=(const SharedLibrary&) = delete;

  // The address of the function `name`, as a pointer of type F (declared as the library's
  // header declares it: `Function<decltype(gsf_init)>("gsf_init")`). Throws as the
  // constructor does when the library lacks it.
  template <typename F>
  F* Function(const char* name) const {
    return reinterpret_cast<F*>(Address(name));
  }

 private:
  void* Address(const char* name) const;
  [[noreturn]] void Fail(const std::string& why) const;

  void* handle_ = nullptr;
  std::string file_, what_, source_;
  int32_t number_;
};

}  // namespace qb
