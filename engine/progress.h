#pragma once
// Progress of a pass over a file, estimated from line lengths plus 2 for the line end (the
// file size is read once): reported only when the whole percentage grows, never past 100,
// so a run of any length repaints at most a hundred times.

#include <cmath>
#include <cstdint>
#include <limits>

#include "settings/user_interface.h"

namespace qb {

class ByteProgress {
 public:
  ByteProgress(UserInterface& ui, int64_t total) : ui_(ui), total_(total) {
    ui_.progress(0);
    if (total_ <= 0) next_ = std::numeric_limits<int64_t>::max();
  }
  // Per line: an addition and a comparison; the percentage is worked out only near the
  // point where it can grow.
  void AddLine(size_t length) {
    read_ += static_cast<int64_t>(length) + 2;
    if (read_ >= next_) [[unlikely]]
      Update();
  }

 private:
  void Update() {
    const int pct = static_cast<int>(
        std::nearbyint(static_cast<double>(read_) * 100.0 / static_cast<double>(total_)));
    if (bar_ < pct && bar_ < 100) {
      bar_ = pct < 100 ? pct : 100;
      ui_.progress(bar_);
    }
    // The rounded percentage grows past bar_ at (bar_ + 0.5) percent of the total; start
    // looking a byte early so that rounding in the division never skips the point.
    next_ = bar_ >= 100
                ? std::numeric_limits<int64_t>::max()
                : static_cast<int64_t>((bar_ + 0.5) * static_cast<double>(total_) / 100.0) - 1;
  }

  UserInterface& ui_;
  int64_t total_;
  int64_t read_ = 0;
  int64_t next_ = 0;
  int bar_ = 0;
};

}  // namespace qb
