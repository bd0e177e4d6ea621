#pragma once
// Progress of a pass over a file, estimated from line lengths plus 2 for the line end (the
// file size is read once): reported only when the whole percentage grows, never past 100,
// so a run of any length repaints at most a hundred times.

#include <cmath>
#include <cstdint>

#include "settings/user_interface.h"

namespace qb {

class ByteProgress {
 public:
  ByteProgress(UserInterface& ui, int64_t total) : ui_(ui), total_(total) { ui_.progress(0); }
  void AddLine(size_t length) {
    read_ += static_cast<int64_t>(length) + 2;
    if (total_ <= 0) return;
    const int pct = static_cast<int>(std::nearbyint(static_cast<double>(read_) * 100.0 / static_cast<double>(total_)));
    if (bar_ < pct && bar_ < 100) {
      bar_ = pct < 100 ? pct : 100;
      ui_.progress(bar_);
    }
  }

 private:
  UserInterface& ui_;
  int64_t total_;
  int64_t read_ = 0;
  int bar_ = 0;
};

}  // namespace qb
