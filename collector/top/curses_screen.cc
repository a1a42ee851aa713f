#include "collector/top/curses_screen.h"

#define NCURSES_NOMACROS 1
#include <ncurses.h>
#include <term.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace top {
namespace {

constexpr short kAlarmColours = 1;

std::string collected;
int Collect(int character) {
  collected += static_cast<char>(character);
  return character;
}

// A capability of the terminal as bytes that are ready to be written; "" where it has none.
std::string Bytes(const char* capability) {
  collected.clear();
  if (capability != nullptr) tputs(capability, 1, Collect);
  return collected;
}

// What endwin would write.
std::string UndoBytes() {
  std::string bytes = Bytes(orig_pair) + Bytes(exit_attribute_mode) + Bytes(exit_ca_mode) + Bytes(keypad_local) +
                      Bytes(cursor_normal);
  // A terminal with one screen only: the text goes on below.
  if (exit_ca_mode == nullptr) bytes = Bytes(tiparm(cursor_address, LINES - 1, 0)) + bytes + "\r\n";
  return bytes;
}

int AttributeOf(Look look, bool colours) {
  switch (look) {
    case Look::kPlain:
      return static_cast<int>(A_NORMAL);
    case Look::kBar:
      return static_cast<int>(A_REVERSE);
    case Look::kTitle:
      return static_cast<int>(A_BOLD);
    case Look::kAlarm:
      return static_cast<int>(A_BOLD) | (colours ? COLOR_PAIR(kAlarmColours) : 0);
  }
  return 0;
}

}  // namespace

CursesScreen::CursesScreen(bool want_colours) {
  if (newterm(nullptr, stdout, stdin) == nullptr) {
    const char* type = std::getenv("TERM");  // NOLINT(concurrency-mt-unsafe): nobody changes the environment
    throw std::runtime_error(std::string("--top: there is no terminal of type '") + (type == nullptr ? "" : type) +
                             "' (TERM); 'infocmp' shows what is known of it");
  }
  colours = want_colours && has_colors();
  if (colours) {
    start_color();
    use_default_colors();
    init_pair(kAlarmColours, COLOR_RED, -1);
  }
  cbreak();
  noecho();
  curs_set(0);
  nodelay(stdscr, true);
  keypad(stdscr, true);
  set_escdelay(25);
  rescue.SetBytes(UndoBytes());
}

CursesScreen::~CursesScreen() {
  endwin();
  delscreen(set_term(nullptr));
}

Size CursesScreen::size() const {
  return {static_cast<size_t>(getmaxx(stdscr)), static_cast<size_t>(getmaxy(stdscr))};
}

void CursesScreen::Draw(const std::vector<Line>& page) const {
  HeldMessages::Trim();
  werase(stdscr);
  for (size_t i = 0; i < page.size(); ++i) {
    wattrset(stdscr, AttributeOf(page[i].look, colours));
    mvwaddnstr(stdscr, static_cast<int>(i), 0, page[i].text.data(), static_cast<int>(page[i].text.size()));
  }
  wrefresh(stdscr);
}

int CursesScreen::NextKey() {
  const int key = wgetch(stdscr);
  if (key == ERR) return kNone;
  return key >= KEY_MIN ? kOther : key;
}

bool CursesScreen::Gone() const {
  termios modes{};
  return tcgetattr(STDIN_FILENO, &modes) != 0 && errno == EIO;
}

}  // namespace top
