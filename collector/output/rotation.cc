#include "collector/output/rotation.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <iomanip>
#include <sstream>
#include <stdexcept>
#include <system_error>

namespace output {
namespace {

constexpr const char* kPart = ".part";

std::string Reason(int error) { return std::generic_category().message(error); }

std::string NameAt(const std::string& pattern, int64_t second) {
  const auto time = static_cast<time_t>(second);
  tm utc{};
  gmtime_r(&time, &utc);
  std::ostringstream name;
  name << std::put_time(&utc, pattern.c_str());
  return name.str();
}

// "dir/dns.json" and 2: "dir/dns-2.json"
std::string Numbered(const std::string& base, int number) {
  if (number == 0) return base;
  const size_t slash = base.rfind('/');
  const size_t begin = slash == std::string::npos ? 0 : slash + 1;
  size_t dot = base.rfind('.');
  if (dot == std::string::npos || dot <= begin) dot = base.size();  // no extension, or a hidden file
  return base.substr(0, dot) + "-" + std::to_string(number) + base.substr(dot);
}

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

// 0, or the reason: EEXIST where the new name is taken.
int RenameToNew(const std::string& from, const std::string& to) {
  if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system that cannot tell in the same step.
  if (Exists(to)) return EEXIST;
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

int Rotation::Create(int64_t now_ns) {
  const int64_t now = now_ns / kSecond;
  // A file that follows another at the end of its time is called after that, however late the timer was.
  const int64_t period = wanted.seconds > 0 ? now - now % wanted.seconds : now;
  base = NameAt(wanted.name, end != 0 && now >= end ? period : now);
  if (wanted.seconds > 0) end = period + wanted.seconds;
  for (int number = 0;; ++number) {
    name = Numbered(base, number);
    if (Exists(name)) continue;
    const std::string part = name + kPart;
    const int fd = open(part.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) return fd;
    if (errno != EEXIST) throw std::runtime_error(part + ": " + Reason(errno));
  }
}

std::unique_ptr<Buffer> Rotation::Begin(int64_t now_ns) {
  const int fd = Create(now_ns);
  auto buffer = std::make_unique<Buffer>(-1, "");
  buffer->Continue(fd, name + kPart);
  return buffer;
}

void Rotation::Finish(Buffer* buffer) {
  buffer->Close();
  if (!buffer->Good()) return;
  const std::string part = name + kPart;
  int error = RenameToNew(part, name);
  for (int number = 1; error == EEXIST; ++number) {
    name = Numbered(base, number);
    error = RenameToNew(part, name);
  }
  if (error != 0) buffer->Fail(part + ": cannot be renamed: " + Reason(error));
}

bool Rotation::Next(Buffer* buffer, int64_t now_ns) {
  Finish(buffer);
  if (!buffer->Good()) return false;
  try {
    const int fd = Create(now_ns);
    buffer->Continue(fd, name + kPart);
  } catch (const std::runtime_error& error) {
    buffer->Fail(error.what());
  }
  return buffer->Good();
}

}  // namespace output
