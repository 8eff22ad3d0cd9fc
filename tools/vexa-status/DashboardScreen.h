#pragma once

#include <optional>
#include <vector>

#include "DashboardLayout.h"

namespace vexa::tools {

// The terminal under the dashboard, through ncursesw: full screen, keys without echo or line
// buffering, no cursor. Colours unless NO_COLOR is set (to anything but an empty string);
// plain ASCII unless the locale's character set is UTF-8. Made and used on the main thread;
// the terminal is given back when it is destroyed.
class DashboardScreen {
 public:
  // A key that stands for "the terminal changed size".
  static constexpr int kResize = -2;

  DashboardScreen();
  ~DashboardScreen();
  DashboardScreen(const DashboardScreen&) = delete;
  DashboardScreen& operator=(const DashboardScreen&) = delete;

  bool ascii() const { return ascii_; }
  int width() const;
  int height() const;
  // Replaces the screen's contents with the lines, top down.
  void draw(const std::vector<DashboardLayout::Line>& lines);
  // The next key typed, or kResize, without waiting; nothing when there is none.
  std::optional<int> nextKey();

 private:
  bool ascii_ = true;
  bool colour_ = false;
};

}  // namespace vexa::tools
