#include "base/shared_library.h"

#include <dlfcn.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "base/errors.h"

namespace qb {

SharedLibrary::SharedLibrary(const std::string& file, std::string_view what, int32_t number,
                             std::string source)
    : file_(file), what_(what), source_(std::move(source)), number_(number) {
  handle_ = ::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!handle_) {
    const char* why = ::dlerror();
    Fail(why ? why : "the loader gives no reason");
  }
}

SharedLibrary::~SharedLibrary() {
  // Left loaded: a library such as GLib registers types and threads it cannot take back.
}

std::string SharedLibrary::OwnModule(const char* file) {
  std::error_code ec;
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const std::filesystem::path beside = program.parent_path().parent_path() / "lib" / file;
    if (std::filesystem::is_regular_file(beside, ec)) return beside.string();
  }
  return file;
}

void* SharedLibrary::Address(const char* name) const {
  ::dlerror();
  void* address = ::dlsym(handle_, name);
  if (!address) {
    const char* why = ::dlerror();
    Fail(std::string(file_) + " lacks " + name + (why ? std::string(" (") + why + ")" : ""));
  }
  return address;
}

void SharedLibrary::Fail(const std::string& why) const {
  throw QbError(number_, source_,
                "Cannot load " + what_ + ": " + why +
                    ". Install the library (scripts/bootstrap installs every library Quillbrook "
                    "uses)");
}

}  // namespace qb
