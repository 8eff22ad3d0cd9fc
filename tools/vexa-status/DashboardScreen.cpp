#include "DashboardScreen.h"

#include <langinfo.h>
#include <ncurses.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

namespace vexa::tools {

namespace {

enum ColourPair : short { kHeader = 1, kTitle, kFooter, kAlert };

attr_t attributesOf(DashboardLayout::Style style, bool colour) {
  using Style = DashboardLayout::Style;
  switch (style) {
    case Style::Header:
      return colour ? COLOR_PAIR(kHeader) | A_BOLD : A_REVERSE | A_BOLD;
    case Style::Title:
      return colour ? COLOR_PAIR(kTitle) | A_BOLD : A_BOLD;
    case Style::Footer:
      return colour ? COLOR_PAIR(kFooter) : A_REVERSE;
    case Style::Alert:
      return colour ? COLOR_PAIR(kAlert) | A_BOLD : A_BOLD;
    case Style::Normal:
      break;
  }
  return A_NORMAL;
}

}  // namespace

DashboardScreen::DashboardScreen() {
  // ncursesw writes multibyte text only in a locale that has it.
  std::setlocale(LC_ALL, "");
  ascii_ = std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0;
  initscr();
  cbreak();  // Ctrl-C still stops the program through its signal handling
  noecho();
  nonl();
  keypad(stdscr, TRUE);
  nodelay(stdscr, TRUE);
  curs_set(0);
  const char* noColour = std::getenv("NO_COLOR");
  colour_ = (noColour == nullptr || *noColour == '\0') && has_colors();
  if (colour_) {
    start_color();
    use_default_colors();
    init_pair(kHeader, COLOR_BLACK, COLOR_CYAN);
    init_pair(kTitle, COLOR_CYAN, -1);
    init_pair(kFooter, COLOR_BLACK, COLOR_WHITE);
    init_pair(kAlert, COLOR_RED, -1);
  }
}

DashboardScreen::~DashboardScreen() { endwin(); }

int DashboardScreen::width() const { return getmaxx(stdscr); }

int DashboardScreen::height() const { return getmaxy(stdscr); }

void DashboardScreen::draw(const std::vector<DashboardLayout::Line>& lines) {
  erase();
  int row = 0;
  for (const auto& line : lines) {
    attrset(attributesOf(line.style, colour_));
    // The bottom right cell cannot be written without scrolling: curses answers ERR for it
    // after drawing the rest, which is what is wanted.
    mvaddstr(row++, 0, line.text.c_str());
  }
  attrset(A_NORMAL);
  refresh();
}

std::optional<int> DashboardScreen::nextKey() {
  const int key = getch();
  if (key == ERR) return std::nullopt;
  if (key == KEY_RESIZE) return kResize;
  return key;
}

}  // namespace vexa::tools
