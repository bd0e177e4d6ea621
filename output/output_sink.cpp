#include "output/output_sink.h"

#include "base/errors.h"
#include "base/file_io.h"
#include "base/temp_file.h"
#include "output/piped_text_sink.h"
#include "output/spreadsheet_sink.h"
#include "output/workbook_libraries.h"
#include "output/xlsx_sink.h"

namespace qb {
namespace {

// .txt and .csv: rows formatted and written by the text writer's thread into a temporary file
// beside the output, renamed over it by Finish.
class TextSink final : public OutputSink {
 public:
  TextSink(const OutputOptions& options, const OutputTarget& target)
      : output_(target.path),
        temp_(TempFile::Beside(target.path, "Process")),
        rows_(temp_.path(), "Process", RowFormatter(options, target.columnTypes, target.alphabet),
              options.writerThread, target.alphabet, options.bom, temp_.shown()) {}

  void Header(std::span<const std::string_view> labels) override { rows_.Labels(labels); }
  void Row(std::span<const ValueBuffer* const> values) override { rows_.Values(values); }
  void RejectedLastRow() override { rows_.EmptyLine(); }
  void Finish() override {
    rows_.Close();
    temp_.RenameTo(output_, "Process");
  }
  void Abandon() noexcept override {
    rows_.Abandon();
    temp_.Remove();
  }

 private:
  std::filesystem::path output_;
  TempFile temp_;
  PipedTextSink rows_;
};

// Takes every row and keeps none: a run that is only traced or checked writes no output.
class DiscardSink final : public OutputSink {
 public:
  void Header(std::span<const std::string_view>) override {}
  void Row(std::span<const ValueBuffer* const>) override {}
  void RejectedLastRow() override {}
  void Finish() override {}
  void Abandon() noexcept override {}
};

}  // namespace

std::unique_ptr<OutputSink> DiscardingSink() {
  return std::make_unique<DiscardSink>();
}

namespace {

// Where a symbolic link points, followed to the end (a few dozen links at most): the file
// an output named by a link is written as, so that the link stays a link.
std::filesystem::path LinkTarget(std::filesystem::path path) {
  std::error_code ec;
  for (int hops = 0; hops < 40 && std::filesystem::is_symlink(path, ec); ++hops) {
    const std::filesystem::path to = std::filesystem::read_symlink(path, ec);
    if (ec) break;
    path = to.is_absolute() ? to : path.parent_path() / to;
  }
  return path;
}

}  // namespace

std::unique_ptr<OutputSink> OpenOutputSink(const OutputOptions& options,
                                           const OutputTarget& named) {
  OutputTarget target = named;
  target.path = LinkTarget(named.path);
  // The output takes the place of what has its name only when that is a file: a folder or a
  // device is never replaced.
  std::error_code ec;
  const auto status = std::filesystem::status(target.path, ec);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    throw QbError(kPathFileAccess, "Process", "The output is not a file: choose another name")
        .at(target.path);
  }
  // The previous output stays on disk until the new one replaces it, but its pages need not
  // stay in memory meanwhile: the new output's pages then take their place, as they did when
  // the previous output was deleted first (replacing a 100 MB output took up to a sixth
  // longer without this).
  if (std::filesystem::is_regular_file(status)) DropCachedPages(target.path);
  if (!IsWorkbook(options.format)) return std::make_unique<TextSink>(options, target);
  const bool xlsx = options.format == OutputFormat::Xlsx;
  const int columns = xlsx ? xlsx::kMaxColumns : xls::kMaxColumns;
  if (target.columnTypes.size() > static_cast<size_t>(columns)) {
    throw QbError(kInvalidCall, "CreateSheet",
                  "The RDF writes " + std::to_string(target.columnTypes.size()) +
                      " columns and an " + std::string(ExtensionOf(options.format)) +
                      " sheet holds " + std::to_string(columns) +
                      ": output fewer fields, or write .csv or .txt");
  }
  if (xlsx) return xlsx::OpenSink(options, target);
  // The .xls writer's library is loaded now: a run that cannot write its workbook says so
  // before it reads the report, not after.
  Gsf("CreateSheet");
  if (options.bufferMode == 6) return std::make_unique<TurboSink>(options, target);
  return std::make_unique<SpreadsheetRun>(options, target);
}

}  // namespace qb
