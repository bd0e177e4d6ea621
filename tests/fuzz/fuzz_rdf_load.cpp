// libFuzzer target: loading an RDF from arbitrary bytes, as written and scrambled, against
// a report made of the same bytes. Every input must load or fail with an error; nothing may
// crash, hang or grow without bound.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "engine/engine.h"
#include "tests/rdf_scrambler.h"

namespace {

struct Folder {
  Folder() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "qbfuzz.XXXXXX").string();
    path = ::mkdtemp(tmpl.data());
    // No log folder: log lines fail quietly into the silent interface instead of filling disk.
    std::ofstream(path / "qbsys.txt") << "H\r\nDefault - By Filename,0,1,1,.\r\n";
  }
  ~Folder() { std::filesystem::remove_all(path); }
  std::filesystem::path path;
};

void Write(const std::filesystem::path& p, std::string_view bytes) {
  std::ofstream(p, std::ios::binary | std::ios::trunc)
      .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Folder folder;
  static qb::SilentUserInterface ui;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  static qb::Application app(folder.path, ui);
  static const bool started = app.ResetForm();
  if (!started) std::abort();
  const auto rdf = folder.path / "in.rdf";
  const auto report = folder.path / "in.txt";
  Write(report, bytes);

  for (bool scramble : {false, true}) {
    Write(rdf, scramble ? qb::test::ScrambleRDF(bytes) : std::string(bytes));
    for (bool pdf : {false, true}) {
      qb::Engine engine(app);
      engine.flags.PdfReport = pdf;
      bool ok = engine.LoadRDF(rdf, report);
      if (!ok && !engine.LastError()) std::abort();  // every rejection carries an error
      if (ok) engine.BuildRDF(folder.path / "out.rdf");
    }
  }
  return 0;
}
