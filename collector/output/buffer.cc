#include "collector/output/buffer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace output {
namespace {

std::string Reason(int error) { return std::generic_category().message(error); }

int Create(const std::string& path) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666);
  if (fd < 0) throw std::runtime_error(path + ": " + Reason(errno));
  return fd;
}

}  // namespace

Buffer::Buffer(int descriptor, std::string descriptor_name, size_t capacity)
    : fd(descriptor),
      name(std::move(descriptor_name)),
      size(capacity),
      memory(new char[capacity]),
      free(memory.get()),
      limit(free + capacity) {}

Buffer::Buffer(const std::string& path) : Buffer(Create(path), path) {
  owned = true;
  holds_old = true;
}

Buffer::~Buffer() { Close(); }

void Buffer::Write(const std::string& record) {
  Commit(std::copy(record.begin(), record.end(), Room(record.size())));
}

void Buffer::Grow(size_t bytes) {
  const std::string_view held = Held();
  const size_t larger = std::max(held.size() + bytes, 2 * size);
  std::unique_ptr<char[]> room(new char[larger]);  // may throw: nothing has changed by then
  free = std::copy(held.begin(), held.end(), room.get());
  memory = std::move(room);
  size = larger;
  limit = memory.get() + size;
}

void Buffer::MakeRoom(size_t bytes) {
  if (in_memory) return Grow(bytes);
  Flush();
  if (bytes <= size) return;
  const size_t larger = std::max(bytes, 2 * size);
  memory.reset(new char[larger]);
  size = larger;
  free = memory.get();
  limit = free + size;
}

bool Buffer::WaitWritable() const {
  pollfd waiting{fd, POLLOUT, 0};
  return poll(&waiting, 1, -1) >= 0 || errno == EINTR;
}

// Files that cannot be emptied, as devices, hold nothing old.
void Buffer::EmptyOldFile() {
  if (!std::exchange(holds_old, false)) return;
  [[maybe_unused]] const int result = ftruncate(fd, 0);
}

void Buffer::Flush() {
  if (in_memory) return;
  const char* at = memory.get();
  if (at != free) EmptyOldFile();
  while (good && at != free) {
    const ssize_t written = write(fd, at, static_cast<size_t>(free - at));
    if (written >= 0) {
      at += written;
      continue;
    }
    if (errno == EINTR || (errno == EAGAIN && WaitWritable())) continue;
    const int error = errno;
    CutToWholeLines(at);
    Fail(error);
  }
  flushed += static_cast<uint64_t>(at - memory.get());
  free = memory.get();
}

// Without much ado: it is for a file system that has failed already.
void Buffer::CutToWholeLines(const char* written_end) const {
  struct stat status {};
  if (!owned || fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return;
  const std::string_view written(memory.get(), static_cast<size_t>(written_end - memory.get()));
  const size_t newline = written.rfind('\n');
  const size_t half_line = written.size() - (newline == std::string_view::npos ? 0 : newline + 1);
  [[maybe_unused]] const int result = ftruncate(fd, lseek(fd, 0, SEEK_CUR) - static_cast<off_t>(half_line));
}

void Buffer::Continue(int descriptor, std::string descriptor_name) {
  Close();
  fd = descriptor;
  owned = true;
  name = std::move(descriptor_name);
  flushed = 0;
}

bool Buffer::IsMoved() const {
  struct stat ours {};
  struct stat there {};
  if (!owned || fstat(fd, &ours) != 0) return false;
  return stat(name.c_str(), &there) != 0 || there.st_dev != ours.st_dev || there.st_ino != ours.st_ino;
}

bool Buffer::Reopen() {
  if (!owned) return false;
  Close();
  if (!good) return false;
  fd = open(name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  if (fd < 0) {
    Fail(errno);
    return false;
  }
  owned = true;
  const off_t end = lseek(fd, 0, SEEK_END);
  flushed = end > 0 ? static_cast<uint64_t>(end) : 0;
  return end == 0;
}

void Buffer::Abandon() {
  if (!owned) return;
  Drop();
  holds_old = false;
  Close();
}

void Buffer::Close() {
  Flush();
  EmptyOldFile();
  if (owned && close(fd) != 0 && good) Fail(errno);
  owned = false;
}

void Buffer::Fail(const std::string& reason) {
  good = false;
  problem = reason;
}

void Buffer::Fail(int error) {
  good = false;
  if (error != EPIPE) problem = name + ": " + Reason(error);
}

}  // namespace output
