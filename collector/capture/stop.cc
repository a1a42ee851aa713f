#include "collector/capture/stop.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace capture {
namespace {

// Never the place of a standard stream that the caller closed: what is meant for that one would land here.
int MakeEvent() {
  const int made = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  const int moved = fcntl(made, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(made);
  return moved;
}

// Readable once reading is stopped. Made before main, since a signal handler cannot.
const int stop_event = MakeEvent();

}  // namespace

void StopReading() {
  const int saved = errno;
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = write(stop_event, &one, sizeof one);
  errno = saved;
}

void ResumeReading() {
  uint64_t count = 0;
  [[maybe_unused]] const ssize_t got = read(stop_event, &count, sizeof count);
}

bool WaitForInput(int descriptor) {
  pollfd waiting[] = {{stop_event, POLLIN, 0}, {descriptor, POLLIN, 0}};
  while (poll(waiting, 2, -1) < 0) {
    if (errno != EINTR) return true;  // the read will say what is wrong
  }
  return waiting[0].revents == 0;
}

}  // namespace capture
