#pragma once

#include <string>
#include <vector>

#include "DashboardModel.h"

namespace vexa::tools {

// Lays the dashboard's panels out as lines of text for a terminal of a given size: the system
// header, CPU, memory, disks, network, battery (only on a machine that has one), clipboard
// and the launched applications, which take whatever height is left, then a footer of keys or
// the current prompt. Pure: the same model and size always give the same lines.
class DashboardLayout {
 public:
  enum class Style { Normal, Header, Title, Footer, Alert };
  struct Line {
    std::string text;
    Style style = Style::Normal;
  };

  static constexpr int kMinWidth = 40;
  static constexpr int kMinHeight = 10;

  // Exactly `height` lines of exactly `width` cells each; a terminal smaller than kMinWidth x
  // kMinHeight gets one line saying so, cut to its width. With `ascii`, no byte is 0x80 or
  // more.
  static std::vector<Line> render(const DashboardModel& model, int width, int height, bool ascii);
};

}  // namespace vexa::tools
