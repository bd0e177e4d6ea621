#include "output/piped_text_sink.h"

#include <cstdint>
#include <cstring>

#include "base/bytes.h"

namespace qb {
namespace {

// Three batches: one being filled, one being written, one waiting, so neither thread waits
// for the other while their speeds stay close.
constexpr size_t kBatches = 3;
constexpr size_t kBatchSize = 256 * 1024;

// A batch is a run of rows. Each row: a kind byte, then (for values and labels) a 32-bit
// column count, the 32-bit total of the values' lengths and, per column, a 32-bit length
// and the bytes.
enum RowKind : char { kEmptyLine, kValues, kLabels };

char* PutU32(char* p, uint32_t v) {
  std::memcpy(p, &v, 4);
  return p + 4;
}
uint32_t GetU32(const char*& p) {
  uint32_t v;
  std::memcpy(&v, p, 4);
  p += 4;
  return v;
}

}  // namespace

PipedTextSink::PipedTextSink(const std::filesystem::path& path, std::string_view source,
                             RowFormatter formatter, bool threaded, const Alphabet* utf8, bool bom,
                             const std::filesystem::path& shown)
    : file_(path, source, shown),
      formatter_(std::move(formatter)),
      utf8_(utf8 && !utf8->Native() ? utf8 : nullptr),
      batches_(threaded ? kBatches : 1),
      threaded_(threaded) {
  for (Batch& b : batches_) {
    b.data = std::make_unique_for_overwrite<char[]>(kBatchSize);
    b.capacity = kBatchSize;
    free_.push_back(&b);
  }
  current_ = free_.back();
  free_.pop_back();
  if (utf8_ && bom) {
    char* p = file_.Reserve(file_.Cursor(), kUtf8Bom.size());
    std::memcpy(p, kUtf8Bom.data(), kUtf8Bom.size());
    file_.Commit(p + kUtf8Bom.size());
  }
  if (threaded_) writer_ = std::thread([this] { WriterLoop(); });
}

PipedTextSink::~PipedTextSink() {
  Stop(/*drop=*/true);
}

char* PipedTextSink::Room(size_t need) {
  need += kCopyBlock;  // so that every value in a batch can be block-copied out of it
  if (current_->used + need > current_->capacity) [[unlikely]] {
    if (current_->used > 0) Submit();
    if (need > current_->capacity) {  // a row longer than a batch
      current_->data = std::make_unique_for_overwrite<char[]>(need);
      current_->capacity = need;
    }
  }
  return current_->data.get() + current_->used;
}

void PipedTextSink::Labels(std::span<const std::string_view> labels) {
  size_t bytes = 0;
  for (std::string_view v : labels) bytes += v.size();
  char* p = Room(1 + 8 + 4 * labels.size() + bytes);
  *p++ = kLabels;
  p = PutU32(p, static_cast<uint32_t>(labels.size()));
  p = PutU32(p, static_cast<uint32_t>(bytes));
  for (std::string_view v : labels) {
    p = PutU32(p, static_cast<uint32_t>(v.size()));
    p = CopyBytes(p, v.data(), v.size());
  }
  current_->used = static_cast<size_t>(p - current_->data.get());
}

void PipedTextSink::EmptyLine() {
  char* p = Room(1);
  *p++ = kEmptyLine;
  current_->used = static_cast<size_t>(p - current_->data.get());
}

void PipedTextSink::Values(std::span<const ValueBuffer* const> values) {
  size_t bytes = 0;
  for (const ValueBuffer* v : values) bytes += v->size();
  if (!threaded_) {
    // Without a writer thread the row is formatted straight from the run's buffers (which
    // are readable in whole blocks, as PutColumn reads them), after the rows already batched.
    if (current_->used > 0) Submit();
    char* p = PutRow(file_.Cursor(), values.size(), bytes, false, [&values](size_t c) {
      return std::string_view(values[c]->data(), values[c]->size());
    });
    file_.Commit(p);
    return;
  }
  // Block copies write up to a block past each value: into the next one's place, and after
  // the last one into the slack Room keeps.
  char* p = Room(1 + 8 + 4 * values.size() + bytes);
  *p++ = kValues;
  p = PutU32(p, static_cast<uint32_t>(values.size()));
  p = PutU32(p, static_cast<uint32_t>(bytes));
  for (const ValueBuffer* v : values) {
    p = PutU32(p, static_cast<uint32_t>(v->size()));
    p = CopyBlocks(p, v->data(), v->size());
  }
  current_->used = static_cast<size_t>(p - current_->data.get());
}

// Queues the current batch for the writer and takes a free one, waiting for it if need be.
void PipedTextSink::Submit() {
  if (!threaded_) {
    WriteBatch(*current_);
    current_->used = 0;
    return;
  }
  std::unique_lock lock(mutex_);
  if (error_) throw *error_;
  full_.push_back(current_);
  current_ = nullptr;
  changed_.notify_all();
  // The writer hands every batch back, written or (after a failure) skipped.
  changed_.wait(lock, [this] { return !free_.empty(); });
  current_ = free_.back();
  free_.pop_back();
  current_->used = 0;
  if (error_) throw *error_;
}

void PipedTextSink::Close() {
  if (closed_) return;
  if (current_->used > 0) Submit();
  Stop(/*drop=*/false);
  if (error_) throw *error_;
  file_.Close();
}

void PipedTextSink::Stop(bool drop) {
  closed_ = true;  // a Close after Abandon has nothing to write
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
    drop_ = drop;
  }
  changed_.notify_all();
  if (writer_.joinable()) writer_.join();
}

void PipedTextSink::WriterLoop() {
  for (;;) {
    Batch* batch;
    bool skip;
    {
      std::unique_lock lock(mutex_);
      changed_.wait(lock, [this] { return !full_.empty() || stopping_; });
      if (full_.empty() || drop_) return;
      batch = full_.front();
      full_.erase(full_.begin());
      skip = error_.has_value();
    }
    std::optional<QbError> failed;
    if (!skip) {
      try {
        WriteBatch(*batch);
      } catch (const QbError& e) {
        failed = e;
      }
    }
    {
      std::lock_guard lock(mutex_);
      if (failed) error_ = std::move(failed);
      free_.push_back(batch);
    }
    changed_.notify_all();
  }
}

template <class Value>
char* PipedTextSink::PutRow(char* p, size_t columns, size_t bytes, bool labels, Value&& value) {
  p = file_.Reserve(p, formatter_.RowBound(columns, bytes) + 2);  // the whole line at once
  char* const line = p;
  for (size_t c = 0; c < columns; ++c) p = formatter_.PutColumn(p, c, value(c), labels);
  if (utf8_ && !IsAscii({line, static_cast<size_t>(p - line)})) [[unlikely]] {
    units_.assign(line, p);
    encoded_.clear();
    utf8_->AppendUtf8(encoded_, units_);
    p = file_.Reserve(line, encoded_.size() + 2);
    p = CopyBytes(p, encoded_.data(), encoded_.size());
  }
  *p++ = '\r';
  *p++ = '\n';
  return p;
}

void PipedTextSink::WriteBatch(const Batch& batch) {
  const char* in = batch.data.get();
  const char* const end = in + batch.used;
  char* p = file_.Cursor();
  while (in < end) {
    const char kind = *in++;
    if (kind != kEmptyLine) {
      const uint32_t columns = GetU32(in);
      const uint32_t bytes = GetU32(in);
      p = PutRow(p, columns, bytes, kind == kLabels, [&in](size_t) {
        const uint32_t length = GetU32(in);
        const std::string_view value(in, length);
        in += length;
        return value;
      });
    } else {
      p = file_.Reserve(p, 2);
      *p++ = '\r';
      *p++ = '\n';
    }
  }
  file_.Commit(p);
}

}  // namespace qb
