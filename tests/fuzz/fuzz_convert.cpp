// libFuzzer target: a whole conversion from arbitrary bytes. The input is an RDF and a report
// together (two bytes give the RDF's length, little-endian; the rest after it is the
// report), run through the conversion job into every output type. Every input must convert
// or fail with an error; nothing may crash, hang, grow without bound or leave a file behind.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "run/conversion_job.h"
#include "tests/fuzz/fuzz_support.h"

namespace {

struct Output {
  const char* name;
  const char* rmode;
};
constexpr Output kOutputs[] = {
    {"out.txt", "6"}, {"out.csv", "6"}, {"m0.xls", "0"}, {"m3.xls", "3"}, {"m6.xls", "6"}};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static qb::fuzz::Folder folder;
  static qb::SilentUserInterface ui;
  static qb::Application app(folder.path, ui);
  static const bool started = app.ResetForm();
  if (!started) std::abort();
  if (size < 2) return 0;
  const size_t rdfLength = std::min<size_t>(size - 2, data[0] | (size_t{data[1]} << 8));
  const std::string_view rdfBytes(reinterpret_cast<const char*>(data) + 2, rdfLength);
  const std::string_view reportBytes(rdfBytes.data() + rdfLength, size - 2 - rdfLength);
  const auto rdf = folder.path / "in.rdf";
  const auto report = folder.path / "in.txt";
  qb::fuzz::Write(rdf, rdfBytes);
  qb::fuzz::Write(report, reportBytes);

  for (const Output& o : kOutputs) {
    qb::JobRequest request;
    request.report = report;
    request.rdf = rdf;
    request.output = folder.path / o.name;
    request.overrides = {{qb::Key::rmode, o.rmode}};
    try {
      qb::ConversionJob job(app, ui, request);
      if (job.Check() != qb::RunDriver::Check::Ready) continue;
      const bool ok = job.Run();
      if (!ok && !job.LastError()) std::abort();  // every failure carries an error
      if (ok && !std::filesystem::exists(request.output)) std::abort();  // and a success a file
    } catch (const qb::JobError&) {
      // The RDF does not load or does not fit: said in words, nothing to run.
    }
    std::filesystem::remove(request.output);
  }
  // Nothing but the inputs may stay: no temporary output, no work folder with files in it.
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path)) {
    const std::string name = entry.path().filename().string();
    if (entry.is_regular_file() && name != "in.rdf" && name != "in.txt" && name != "qbsys.txt") {
      std::abort();
    }
  }
  return 0;
}
