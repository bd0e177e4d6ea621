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
  // program's run path, the system's folders). Throws QbError `number` from `source` that
  // names `what` ("the PDF reader"), the file and the loader's reason.
  SharedLibrary(const char* file, std::string_view what, int32_t number, std::string source);
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
