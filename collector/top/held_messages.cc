#include "collector/top/held_messages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace top {
namespace {

constexpr off_t kMostHeld = off_t{64} << 10;

// -1 where nothing is held.
int memory = -1;    // a file without a name that stands in for standard error
int terminal = -1;  // what standard error was

// Whatever is written goes behind what is there.
int MakeMemory() {
  const int made = memfd_create("messages", MFD_CLOEXEC);
  fcntl(made, F_SETFL, O_APPEND);
  return made;
}

off_t Held() {
  struct stat state {};
  return fstat(memory, &state) == 0 ? state.st_size : 0;
}

// The newest of what is held.
void CopyTo(int descriptor) {
  off_t at = std::max<off_t>(Held() - kMostHeld, 0);
  std::array<char, 4096> piece;
  ssize_t got = 0;
  while ((got = pread(memory, piece.data(), piece.size(), at)) > 0) {
    [[maybe_unused]] const ssize_t written = write(descriptor, piece.data(), static_cast<size_t>(got));
    at += got;
  }
}

}  // namespace

HeldMessages::HeldMessages() {
  if (isatty(STDERR_FILENO) == 0) return;
  memory = MakeMemory();
  if (memory < 0) return;
  terminal = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0);
  dup2(memory, STDERR_FILENO);
}

HeldMessages::~HeldMessages() { ReleaseMessages(); }

void HeldMessages::Trim() {
  if (memory < 0 || Held() <= kMostHeld) return;
  const int fresh = MakeMemory();
  if (fresh < 0) return;
  CopyTo(fresh);
  dup2(fresh, STDERR_FILENO);
  close(memory);
  memory = fresh;
}

void ReleaseMessages() {
  if (memory < 0) return;
  dup2(terminal, STDERR_FILENO);
  CopyTo(STDERR_FILENO);
  close(memory);
  close(terminal);
  memory = -1;
  terminal = -1;
}

}  // namespace top
