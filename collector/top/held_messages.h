#pragma once

namespace top {

// While it lives, what is written to a standard error that is a terminal is held back, so that it does not destroy
// the screen, and written out at the end: the last 64 KiB of it. One at a time.
class HeldMessages {
 public:
  HeldMessages();
  ~HeldMessages();
  HeldMessages(const HeldMessages&) = delete;
  HeldMessages& operator=(const HeldMessages&) = delete;

  // Forgets what is too old. To be called every now and then.
  static void Trim();
};

// Writes out what is held and holds nothing from then on. Safe in a signal handler.
void ReleaseMessages();

}  // namespace top
