#include "run/row_preview.h"

#include "output/row_formatter.h"

namespace qb {
namespace {

// Keeps the header and the rows, cleaned up; cancels the run once it has `max` of them.
class PreviewObserver final : public RunObserver {
 public:
  PreviewObserver(ConversionJob& job, PreviewRows& out, size_t max)
      : job_(job), out_(out), max_(max) {}

  void Begin(const Alphabet& alphabet) override { alphabet_ = &alphabet; }
  void Header(std::span<const std::string_view> labels) override {
    for (std::string_view label : labels) out_.header.push_back(Utf8(label));
    const std::vector<std::string> types = job_.ColumnTypes();
    formatter_ = RowFormatter(job_.Options(), types, alphabet_);
    for (const std::string& type : types)
      out_.numeric.push_back(RowFormatter::KindOf(type).numeric);
  }
  void Row(int32_t, std::span<const ValueBuffer* const> values) override {
    if (out_.rows.size() >= max_) return;  // the record a cancelled run still writes
    values_.clear();
    for (const ValueBuffer* v : values) values_.push_back(v->view());
    formatter_.Clean(values_);
    std::vector<std::string>& row = out_.rows.emplace_back();
    for (std::string_view value : values_) row.push_back(Utf8(value));
    if (out_.rows.size() == max_) job_.Cancel();
  }

 private:
  std::string Utf8(std::string_view units) const {
    if (!alphabet_ || IsAscii(units)) return std::string(units);
    std::string text;
    alphabet_->AppendUtf8(text, units);
    return text;
  }

  ConversionJob& job_;
  PreviewRows& out_;
  const size_t max_;
  const Alphabet* alphabet_ = nullptr;
  RowFormatter formatter_;
  std::vector<std::string_view> values_;
};

}  // namespace

PreviewRows PreviewRun(ConversionJob& job, size_t max) {
  PreviewRows out;
  PreviewObserver observer(job, out, max);
  job.Observe(&observer);
  const bool ok = job.Run();
  job.Observe(nullptr);
  if (!ok && job.LastError()) out.error = job.LastError()->describe();
  out.whole = ok && out.rows.size() < max && !job.Stats().cancelled;
  return out;
}

}  // namespace qb
