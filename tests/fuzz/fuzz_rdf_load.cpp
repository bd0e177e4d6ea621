// libFuzzer target: loading an RDF from arbitrary bytes, as written and scrambled, against
// a report made of the same bytes. Every input must load or fail with an error; nothing may
// crash, hang or grow without bound.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "engine/engine.h"
#include "tests/fuzz/fuzz_support.h"
#include "tests/rdf_scrambler.h"

namespace {}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static qb::fuzz::Folder folder;
  static qb::SilentUserInterface ui;
  std::string_view bytes(reinterpret_cast<const char*>(data), size);

  static qb::Application app(folder.path, ui);
  static const bool started = app.ResetForm();
  if (!started) std::abort();
  const auto rdf = folder.path / "in.rdf";
  const auto report = folder.path / "in.txt";
  qb::fuzz::Write(report, bytes);

  for (bool scramble : {false, true}) {
    qb::fuzz::Write(rdf, scramble ? qb::test::ScrambleRDF(bytes) : std::string(bytes));
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
