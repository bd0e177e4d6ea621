#include "run/report_tracer.h"

#include <algorithm>

#include "base/line_reader.h"
#include "output/output_sink.h"
#include "preprocess/text_step.h"
#include "run/trace_writer.h"

namespace qb {
namespace {

constexpr std::chrono::milliseconds kTellEvery{40};

bool Blank(std::string_view text) {
  return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

}  // namespace

// The forward trace's observer: per marker row the pieces it matched, and the lines that no
// row matched. Cheap: the forward trace runs through the whole report.
class ReportTracer::TallyObserver final : public RunObserver {
 public:
  explicit TallyObserver(size_t markers) : counts(markers, 0) {}

  void Piece(int64_t line, int, std::string_view text) override {
    if (line != line_) {
      Close();
      line_ = line;
    }
    blank_ = blank_ && Blank(text);
  }
  void Marker(const MarkerRow* row) override {
    if (!row) return;
    ++counts[row->index];
    matched_ = true;
  }

  // The current line is read to its end: noted when nothing matched it.
  void Close() {
    if (line_ > 0 && !matched_ && !blank_) unmatched.push_back(line_);
    line_ = 0;
    matched_ = false;
    blank_ = true;
  }

  std::vector<int64_t> counts;
  std::vector<int64_t> unmatched;  // since the tracer last took them

 private:
  int64_t line_ = 0;
  bool matched_ = false, blank_ = true;
};

// A shown block's observer: everything, into the block's line traces. The trace writer
// gathers each piece's words and hands them over when the next piece begins.
class ReportTracer::DetailObserver final : public RunObserver {
 public:
  DetailObserver(TracedBlock& block, TraceOptions options)
      : block_(block),
        writer_([this](std::string_view text) { Words(text); }, std::move(options)) {}

  void Begin(const Alphabet& alphabet) override { writer_.Begin(alphabet); }
  void Piece(int64_t line, int piece, std::string_view text) override {
    writer_.Piece(line, piece, text);  // the previous piece's words go to it first
    const int64_t i = line - block_.first;
    if (i < 0 || i >= static_cast<int64_t>(block_.lines.size())) {
      current_ = nullptr;
      return;
    }
    auto& pieces = block_.lines[static_cast<size_t>(i)].pieces;
    pieces.emplace_back().piece = piece;
    current_ = &pieces.back();
  }
  void Marker(const MarkerRow* row) override {
    writer_.Marker(row);
    if (!current_ || !row) return;
    current_->marker = static_cast<int32_t>(row->index);
    const std::string_view action = TrimRight(row->action);
    current_->did = action == "skip"   ? PieceTrace::Did::Skip
                    : action == "stop" ? PieceTrace::Did::Stop
                                       : PieceTrace::Did::Pickup;
  }
  void WaitSlot(int32_t slot) override { writer_.WaitSlot(slot); }
  void Header(std::span<const std::string_view> labels) override { writer_.Header(labels); }
  void Row(int32_t number, std::span<const ValueBuffer* const> values) override {
    writer_.Row(number, values);
  }
  void Rejected(std::string_view reason) override { writer_.Rejected(reason); }
  void Pickup(const PickupRow& row, std::string_view raw, std::string_view value,
              std::string_view held) override {
    writer_.Pickup(row, raw, value, held);
    if (current_ && row.start >= 1 && row.length > 0) {
      current_->pickups.push_back(
          {static_cast<int32_t>(row.start),
           static_cast<int32_t>(std::min<int64_t>(row.length, Converter::kLineWidth))});
    }
  }
  void PickupError(const PickupRow& row, const QbError& error) override {
    writer_.PickupError(row, error);
  }
  void State(int group, int subGroup, int sequence) override {
    writer_.State(group, subGroup, sequence);
  }
  void LineError(const QbError& error, int64_t rdfLine) override {
    writer_.LineError(error, rdfLine);
    if (current_) current_->did = PieceTrace::Did::Dropped;
  }

  // The last piece's words, now.
  void Finish() { writer_.Flush(); }

 private:
  void Words(std::string_view text) {
    if (current_) current_->detail.append(text);
  }

  TracedBlock& block_;
  TraceWriter writer_;
  PieceTrace* current_ = nullptr;
};

ReportTracer::ReportTracer(const Application& front, const Engine& loaded,
                           std::filesystem::path report, std::filesystem::path rdf,
                           std::function<void()> changed)
    : app_(front, silent_, /*logging=*/false),
      engine_(app_, loaded),
      forward_(engine_),
      detail_(engine_),
      report_(std::move(report)),
      rdf_(std::move(rdf)),
      changed_(std::move(changed)) {
  engine_.flags.PdfReport = report_.extension() == ".pdf";  // as a run decides it
  Recordset& m = engine_.tables.rsMarkers;
  if (m.IsOpen()) {
    m.Sort("");
    m.Filter("");
    for (m.MoveFirst(); !m.IsEOF(); m.MoveNext()) {
      markers_.push_back({std::string(TrimRight(m.GetText(col::Markers::fldACT))),
                          m.GetInt(col::Markers::fldLIN), 0});
    }
  }
  tally_ = std::make_unique<TallyObserver>(markers_.size());
  thread_ = std::thread([this] { Work(); });
}

ReportTracer::~ReportTracer() {
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

TracerStatus ReportTracer::Status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::vector<MarkerTally> ReportTracer::Markers() const {
  const std::lock_guard lock(mutex_);
  return markers_;
}

size_t ReportTracer::UnmatchedCount() const {
  const std::lock_guard lock(mutex_);
  return unmatched_.size();
}

std::vector<int64_t> ReportTracer::Unmatched(size_t from, size_t count) const {
  const std::lock_guard lock(mutex_);
  if (from >= unmatched_.size()) return {};
  const auto begin = unmatched_.begin() + static_cast<ptrdiff_t>(from);
  return {begin, begin + static_cast<ptrdiff_t>(std::min(count, unmatched_.size() - from))};
}

std::shared_ptr<const TracedBlock> ReportTracer::Block(int64_t line) const {
  const std::lock_guard lock(mutex_);
  for (const auto& block : kept_) {
    if (block->first <= line && line < block->first + kBlock) return block;
  }
  return nullptr;
}

void ReportTracer::Want(int64_t first, int64_t last) {
  {
    const std::lock_guard lock(mutex_);
    if (first == wantFirst_ && last == wantLast_) return;
    wantFirst_ = std::max<int64_t>(first, 1);
    wantLast_ = last;
  }
  wake_.notify_all();
}

void ReportTracer::TraceAll() {
  {
    const std::lock_guard lock(mutex_);
    if (all_) return;
    all_ = true;
  }
  wake_.notify_all();
}

std::vector<std::string> ReportTracer::Text(int64_t first, int64_t count) const {
  int64_t offset = 0, at = 1;
  {
    const std::lock_guard lock(mutex_);
    if (!status_.textReady || first < 1 || first > status_.lines || count <= 0) return {};
    count = std::min(count, status_.lines - first + 1);
    const auto k = static_cast<size_t>((first - 1) / kIndexStep);
    offset = index_[k];
    at = static_cast<int64_t>(k) * kIndexStep + 1;
  }
  std::vector<std::string> lines;
  lines.reserve(static_cast<size_t>(count));
  LineReader reader(textPath_, "ReportView", kShownWidth);
  reader.Seek(offset);
  std::string_view line;
  for (; at < first && reader.Next(line); ++at) {
  }
  for (int64_t i = 0; i < count && reader.Next(line); ++i) lines.emplace_back(line);
  return lines;
}

void ReportTracer::Work() {
  try {
    Prepare();
    Index();
    try {
      PrepareRun();
    } catch (const QbError& e) {
      {
        const std::lock_guard lock(mutex_);
        status_.untraced = e.describe();  // the text is shown all the same, plain
      }
      Changed();
    }
    for (;;) {
      int64_t block = -1;
      {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [&] {
          if (stop_) return true;
          if (!status_.untraced.empty()) return false;
          block = NextWantedBlock();
          if (block >= 0) return true;
          const int64_t target = all_ ? status_.lines : (wantLast_ / kBlock + 2) * kBlock;
          return !status_.complete && status_.traced < target;
        });
        if (stop_) return;
      }
      if (block >= 0)
        Detail(block);
      else
        Forward();
    }
  } catch (const QbError& e) {
    const std::lock_guard lock(mutex_);
    status_.error = e.describe();
  } catch (const std::exception& e) {
    const std::lock_guard lock(mutex_);
    status_.error = e.what();
  }
  Changed();
}

// The converters, ready to read the text.
void ReportTracer::PrepareRun() {
  const OutputOptions options = ParseOutputOptions(app_.Settings);
  for (Converter* c : {&forward_, &detail_}) {
    c->SetAlphabet(&units_->alphabet());
    c->PrepareOutput(options);
    c->SetSink(sink_.get());
  }
  forward_.SetObserver(tally_.get());
}

// The text the run reads.
void ReportTracer::Prepare() {
  const ReportEncoding how = ParseReportEncoding(app_.Settings, report_, engine_.flags.PdfReport);
  units_.emplace(how.encoding);
  if (!TextStep(engine_, how).empty()) {
    work_.emplace(app_.ProgramFolder() / "out");
    TextStepCounts counts;
    text_.emplace(MakeReportText(engine_, stop_, report_, *work_, how, counts));
    textPath_ = text_->path();
  } else {
    textPath_ = report_;
  }
  const std::lock_guard lock(mutex_);
  status_.textReady = true;
}

// Every kIndexStep-th line's offset, told to the view as it grows.
void ReportTracer::Index() {
  LineReader reader(textPath_, "ReportView", Converter::kLineWidth);
  std::vector<int64_t> found;
  int64_t lines = 0;
  std::string_view line;
  auto tell = [&](bool indexed) {
    {
      const std::lock_guard lock(mutex_);
      index_.insert(index_.end(), found.begin(), found.end());
      status_.lines = lines;
      status_.indexed = indexed;
    }
    found.clear();
    Changed();
  };
  for (;;) {
    if (lines % kIndexStep == 0) {
      found.push_back(reader.Offset());
      if (lines % (64 * kIndexStep) == 0 && lines > 0) {
        if (stop_) return;
        tell(false);
      }
    }
    if (!reader.Next(line)) break;
    ++lines;
  }
  tell(true);
  forwardReader_ = std::make_unique<LineReader>(textPath_, "ReportView", Converter::kLineWidth);
}

bool ReportTracer::TraceLines(LineReader& reader, Converter& converter, int64_t& line,
                              int64_t last) {
  RunState& state = converter.State();
  std::string_view text;
  bool formFeed = false;
  while (line < last && !state.StopFlag) {
    if (!reader.Next(text, formFeed)) return false;
    ++line;
    text = units_->Units(text, line);
    Converter::SplitPieces(text, formFeed, [&](std::string_view piece, int32_t part) {
      if (!state.StopFlag) converter.HandPiece(piece, line, part);
    });
  }
  return !state.StopFlag && line == last;
}

// One more block of the forward trace, its checkpoint kept first.
void ReportTracer::Forward() {
  int64_t line;
  {
    const std::lock_guard lock(mutex_);
    line = status_.traced;
    checkpoints_.push_back({forwardReader_->Offset(), forward_.Save()});
  }
  const bool more = TraceLines(*forwardReader_, forward_, line, line + kBlock);
  tally_->Close();
  const bool stopped = forward_.State().StopFlag;
  {
    const std::lock_guard lock(mutex_);
    status_.traced = line;
    status_.complete = !more;
    if (stopped) status_.stopLine = forward_.State().ReportLine;
    for (size_t i = 0; i < markers_.size(); ++i) markers_[i].pieces = tally_->counts[i];
    unmatched_.insert(unmatched_.end(), tally_->unmatched.begin(), tally_->unmatched.end());
  }
  tally_->unmatched.clear();
  const auto now = std::chrono::steady_clock::now();
  if (!more || now - told_ >= kTellEvery) {
    told_ = now;
    Changed();
  }
}

// A block the view shows, traced again from its checkpoint with every detail.
void ReportTracer::Detail(int64_t block) {
  auto traced = std::make_shared<TracedBlock>();
  traced->first = block * kBlock + 1;
  std::optional<Checkpoint> from;
  {
    const std::lock_guard lock(mutex_);
    traced->lines.resize(
        static_cast<size_t>(std::clamp<int64_t>(status_.lines - block * kBlock, 0, kBlock)));
    if (block < static_cast<int64_t>(checkpoints_.size()))
      from = checkpoints_[static_cast<size_t>(block)];
  }
  if (from) {  // else the run stopped before the block: it reads none of its lines
    LineReader reader(textPath_, "ReportView", Converter::kLineWidth);
    reader.Seek(from->offset);
    detail_.Restore(from->state);
    TraceOptions options;
    options.report = report_.filename().string();
    options.rdf = rdf_.filename().string();
    DetailObserver observer(*traced, std::move(options));
    observer.Begin(units_->alphabet());
    detail_.SetObserver(&observer);
    int64_t line = block * kBlock;
    TraceLines(reader, detail_, line, block * kBlock + static_cast<int64_t>(traced->lines.size()));
    observer.Finish();
    detail_.SetObserver(nullptr);
  }
  {
    const std::lock_guard lock(mutex_);
    kept_.push_front(std::move(traced));
    if (kept_.size() > kKeptBlocks) kept_.pop_back();
  }
  Changed();
}

int64_t ReportTracer::NextWantedBlock() const {
  if (!status_.textReady || !status_.indexed || wantLast_ < wantFirst_) return -1;
  // No more blocks than are kept, or they would push each other out for ever.
  const int64_t from = (wantFirst_ - 1) / kBlock;
  const int64_t last = std::min({wantLast_, status_.lines, (from + kKeptBlocks / 2) * kBlock});
  for (int64_t b = from; b * kBlock < last; ++b) {
    const bool kept = std::any_of(kept_.begin(), kept_.end(),
                                  [&](const auto& k) { return k->first == b * kBlock + 1; });
    const bool traced =
        status_.complete || status_.traced >= std::min((b + 1) * kBlock, status_.lines);
    if (!kept && traced) return b;
  }
  return -1;
}

void ReportTracer::Changed() {
  if (changed_) changed_();
}

}  // namespace qb
