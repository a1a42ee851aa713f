#pragma once

#include <vector>

#include "collector/top/held_messages.h"
#include "collector/top/page.h"
#include "collector/top/rescue.h"

namespace top {

// The terminal behind standard input and output, all of it, until the end of the object's life; then it is as it
// was found. It is put back as well when a signal kills the process, and while the user has stopped it (Ctrl-Z).
// What is written to standard error meanwhile appears afterwards.
class CursesScreen {
 public:
  // Throws std::runtime_error when the terminal is of an unknown type.
  explicit CursesScreen(bool want_colours);
  ~CursesScreen();
  CursesScreen(const CursesScreen&) = delete;
  CursesScreen& operator=(const CursesScreen&) = delete;

  Size size() const;
  void Draw(const std::vector<Line>& page) const;

  // The next key that was pressed, without waiting for one. Whatever else happened (another size) is kOther.
  static constexpr int kNone = -1;
  static constexpr int kOther = 0;
  int NextKey();

  // True once the terminal has gone: its window was closed, its connection was lost.
  bool Gone() const;

 private:
  // What is made first is put back last.
  Rescue rescue;
  HeldMessages messages;
  bool colours = false;
};

}  // namespace top
