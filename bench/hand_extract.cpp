// The yardstick of the conversion figures: the benchmark's extraction (bench/bench.rdf, the
// same as bench/extract.awk) written by hand for this one report layout, in plain C++ with no
// engine code: what a programmer would write to get these rows and nothing else.
//   hand_extract REPORT OUTPUT.csv
// Prints the same CSV as qbconvert with bench.rdf, byte for byte (bench/run checks it).

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

// Columns as the report prints them, from 1; short lines give short or empty texts.
std::string_view Column(std::string_view line, size_t from, size_t length) {
  if (from - 1 >= line.size()) return {};
  return line.substr(from - 1, length);
}

std::string_view Trim(std::string_view s) {
  while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
  while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
  return s;
}

bool Digits(std::string_view s, size_t n) {
  if (s.size() != n) return false;
  for (char c : s) {
    if (c < '0' || c > '9') return false;
  }
  return true;
}

bool IsDate(std::string_view s) {
  return s.size() == 8 && Digits(s.substr(0, 2), 2) && s[2] == '/' && Digits(s.substr(3, 2), 2) &&
         s[5] == '/' && Digits(s.substr(6, 2), 2);
}

class Output {
 public:
  explicit Output(int fd) : fd_(fd), buffer_(new char[kSize + kRowRoom]) {}
  ~Output() { Flush(); }
  void Put(std::string_view s) {
    std::memcpy(buffer_.get() + used_, s.data(), s.size());
    used_ += s.size();
  }
  void Put(char c) { buffer_[used_++] = c; }
  // A text column: quoted when it holds a comma or a quote.
  void Text(std::string_view s) {
    bool quoted = false;
    for (char c : s) quoted |= c == ',' || c == '"';
    if (!quoted) return Put(s);
    Put('"');
    for (char c : s) {
      if (c == '"') Put('"');
      Put(c);
    }
    Put('"');
  }
  // An amount: "(12.00)", "12.00-" and "12.00CR" as -12.00; $ , % # * + left out.
  void Number(std::string_view s) {
    static constexpr auto kDropped = [] {
      std::array<bool, 256> dropped{};
      for (char c : std::string_view("()%#*$,+cdrCDR-"))
        dropped[static_cast<unsigned char>(c)] = true;
      return dropped;
    }();
    bool negative = false;
    for (size_t i = 0; i < s.size(); ++i) {
      const char c = s[i];
      if (c == '(' || c == '-') negative = true;
      if ((c == 'c' || c == 'C') && i + 1 < s.size() && (s[i + 1] == 'r' || s[i + 1] == 'R'))
        negative = true;
    }
    if (negative) Put('-');
    // Kept characters, without the blanks at either end.
    char* const start = buffer_.get() + used_;
    char* p = start;
    for (char c : s) {
      if (!kDropped[static_cast<unsigned char>(c)] && (c != ' ' || p != start)) *p++ = c;
    }
    while (p != start && p[-1] == ' ') --p;
    used_ += static_cast<size_t>(p - start);
  }
  void EndRow() {
    Put("\r\n");
    if (used_ >= kSize) Flush();
  }
  bool Flush() {
    const char* p = buffer_.get();
    size_t left = used_;
    while (left > 0) {
      const ssize_t n = ::write(fd_, p, left);
      if (n <= 0) return false;
      p += n;
      left -= static_cast<size_t>(n);
    }
    used_ = 0;
    return true;
  }

 private:
  static constexpr size_t kSize = 1 << 20;
  // More than a row can take: 18 fields of a report line of at most a few hundred characters,
  // each doubled by quoting at worst.
  static constexpr size_t kRowRoom = 64 << 10;
  int fd_;
  std::unique_ptr<char[]> buffer_;
  size_t used_ = 0;
};

class Extractor {
 public:
  explicit Extractor(Output& out) : out_(out) {}

  // false at "END OF REPORT".
  bool Line(std::string_view line) {
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (!line.empty() && line.front() == '\f') line.remove_prefix(1);
    if (Column(line, 1, 9) == "NORTHGATE" || Column(line, 3, 7) == "INVOICE" ||
        Column(line, 51, 11) == "(CONTINUED)")
      return true;
    if (Column(line, 1, 8) == "CUSTOMER") {
      held_ = {Trim(Column(line, 11, 7)), Trim(Column(line, 20, 30)), Trim(Column(line, 58, 12)),
               Trim(Column(line, 82, 2))};
      return true;
    }
    if (IsDate(Column(line, 13, 8)) && Digits(Column(line, 5, 6), 6)) {
      Record();
      for (size_t i = 0; i < 4; ++i) f_[2 + i] = held_[i];
      static constexpr std::array<std::array<size_t, 3>, 11> kDetail = {{{6, 3, 8},
                                                                         {7, 13, 8},
                                                                         {8, 23, 9},
                                                                         {9, 36, 10},
                                                                         {10, 47, 4},
                                                                         {11, 53, 3},
                                                                         {12, 59, 6},
                                                                         {13, 67, 12},
                                                                         {14, 81, 10},
                                                                         {15, 93, 10},
                                                                         {16, 105, 13}}};
      for (const auto& [field, from, length] : kDetail)
        f_[field] = Trim(Column(line, from, length));
      return true;
    }
    if (Column(line, 13, 8) == "SHIP TO:") {
      f_[17] = Trim(Column(line, 22, 40));
      f_[18] = Trim(Column(line, 68, 15));
      return true;
    }
    const bool customer = Column(line, 21, 14) == "CUSTOMER TOTAL";
    if (customer || Column(line, 21, 12) == "REGION TOTAL") {
      Record();
      if (customer) {
        f_[1] = "CUSTOMER TOTAL";
        f_[2] = held_[0];
        f_[3] = held_[1];
      } else {
        f_[1] = "REGION TOTAL";
      }
      f_[13] = Trim(Column(line, 67, 12));
      f_[14] = Trim(Column(line, 81, 10));
      f_[15] = Trim(Column(line, 93, 10));
      f_[16] = Trim(Column(line, 105, 13));
      return true;
    }
    return line.find("END OF REPORT") == std::string_view::npos;
  }

  void Emit() {
    if (!started_) {
      out_.Put(
          "Record Type,Customer,Customer Name,Phone,Territory,Invoice,Date,PO,Terms,Rep,"
          "Warehouse,Qty,Amount,Tax,Freight,Total,Ship To,Via");
      out_.EndRow();
      started_ = true;
    }
    for (size_t i = 1; i <= 18; ++i) {
      if (i > 1) out_.Put(',');
      if (i == 7) {
        out_.Put(f_[i]);
      } else if (i >= 12 && i <= 16) {
        out_.Number(f_[i]);
      } else {
        out_.Text(f_[i]);
      }
    }
    out_.EndRow();
    f_.fill({});
  }

  // The values kept so far point into the block about to be refilled: they are copied.
  void Keep() {
    size_t i = 0;
    for (std::string_view* v : Views()) {
      std::string copy(*v);
      owned_[i] = std::move(copy);
      *v = owned_[i++];
    }
  }

 private:
  std::array<std::string_view*, 23> Views() {
    std::array<std::string_view*, 23> views{};
    for (size_t i = 0; i < f_.size(); ++i) views[i] = &f_[i];
    for (size_t i = 0; i < held_.size(); ++i) views[f_.size() + i] = &held_[i];
    return views;
  }

  void Record() {
    if (seen_) Emit();
    seen_ = true;
  }

  Output& out_;
  // The record's values point into the block being read, or into owned_.
  std::array<std::string_view, 19> f_{};
  std::array<std::string_view, 4> held_{};
  std::array<std::string, 23> owned_;
  bool seen_ = false, started_ = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: hand_extract REPORT OUTPUT.csv\n");
    return 2;
  }
  const int in = ::open(argv[1], O_RDONLY);
  if (in < 0) {
    std::perror(argv[1]);
    return 1;
  }
  const int fd = ::open(argv[2], O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (fd < 0) {
    std::perror(argv[2]);
    return 1;
  }
  Output out(fd);
  Extractor extract(out);
  // The report in 4 MiB blocks; a line cut by a block's end is moved to the next block's start
  // (no line of this report is longer than a block). The held values point into the block, so
  // a customer line's values are copied before the block is refilled.
  constexpr size_t kBlock = 4 << 20;
  std::string block(kBlock, '\0');
  size_t kept = 0;
  bool more = true;
  while (more) {
    const ssize_t n = ::read(in, block.data() + kept, kBlock - kept);
    if (n < 0) {
      std::perror(argv[1]);
      return 1;
    }
    const size_t filled = kept + static_cast<size_t>(n);
    const bool last = n == 0;
    const char* p = block.data();
    const char* const end = p + filled;
    while (p < end) {
      const auto* nl = static_cast<const char*>(std::memchr(p, '\n', static_cast<size_t>(end - p)));
      if (!nl && !last) break;
      const char* stop = nl ? nl : end;
      if (!extract.Line(std::string_view(p, static_cast<size_t>(stop - p)))) {
        more = false;
        break;
      }
      p = nl ? nl + 1 : end;
    }
    if (last) break;
    extract.Keep();
    kept = static_cast<size_t>(end - p);
    std::memmove(block.data(), p, kept);
  }
  extract.Emit();
  if (!out.Flush() || ::close(fd) != 0) {
    std::perror(argv[2]);
    return 1;
  }
  return 0;
}
