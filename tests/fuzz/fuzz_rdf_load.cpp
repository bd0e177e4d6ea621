// libFuzzer target: loading and checking an RDF from arbitrary bytes, as written and
// scrambled, against a report made of the same bytes. Every input must load or fail with an
// error, and the checker must report on it without throwing; nothing may crash, hang or grow
// without bound. An RDF the checker finds no error in must load.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "engine/engine.h"
#include "engine/rdf_checker.h"
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
    const qb::RdfCheckResult check = qb::CheckRdf(rdf);
    if (check.errors == 0) {  // then it loads, for a text report or for a PDF
      qb::Engine text(app), pdf(app);
      pdf.flags.PdfReport = true;
      if (!text.LoadRDF(rdf, "") && !pdf.LoadRDF(rdf, "")) std::abort();
    }
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
