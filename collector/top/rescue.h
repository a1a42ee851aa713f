#pragma once

#include <string>

namespace top {

// While it lives, a signal that kills the process (a crash, an abort of the plug-in, Ctrl-\) first puts the
// terminal back: its modes as they were when the rescue was made, then these bytes. What was held of standard error
// follows. One at a time. SIGKILL alone cannot be helped.
class Rescue {
 public:
  // Takes the modes of the terminal behind standard output as they are now.
  Rescue();
  ~Rescue();
  Rescue(const Rescue&) = delete;
  Rescue& operator=(const Rescue&) = delete;

  // What undoes the terminal's own state: at most 256 bytes.
  void SetBytes(const std::string& bytes);
};

// Puts the terminal back now, if there is a rescue. Safe in a signal handler.
void RescueTerminal();

}  // namespace top
