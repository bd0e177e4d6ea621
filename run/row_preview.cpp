#include "run/row_preview.h"

#include "output/row_formatter.h"

namespace qb {
namespace {

// Keeps the header and the rows, cleaned up; cancels the run once it has `max` of them.
class PreviewObserver final : public RunObserver {
 public:
  PreviewObserver(ConversionJob& job, PreviewRows& out, size_t max)
      : job_(job), out_(out), max_(max) {}

  void Header(std::span<const std::string_view> labels) override {
    out_.header.assign(labels.begin(), labels.end());
    const std::vector<std::string> types = job_.ColumnTypes();
    formatter_ = RowFormatter(job_.Options(), types);
    for (const std::string& type : types)
      out_.numeric.push_back(RowFormatter::KindOf(type).numeric);
  }
  void Row(int32_t, std::span<const ValueBuffer* const> values) override {
    if (out_.rows.size() >= max_) return;  // the record a cancelled run still writes
    values_.clear();
    for (const ValueBuffer* v : values) values_.push_back(v->view());
    formatter_.Clean(values_);
    out_.rows.emplace_back(values_.begin(), values_.end());
    if (out_.rows.size() == max_) job_.Cancel();
  }

 private:
  ConversionJob& job_;
  PreviewRows& out_;
  const size_t max_;
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
