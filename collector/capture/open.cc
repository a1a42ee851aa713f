#include "collector/capture/open.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "collector/capture/byte_stream.h"
#include "collector/capture/content.h"
#include "collector/capture/file_reader.h"
#include "collector/capture/gzip_stream.h"
#include "collector/capture/read_ahead_stream.h"
#include "collector/capture/waiting_file.h"
#include "collector/capture/zstd_stream.h"

namespace capture {
namespace {

// A file that could not even be opened.
class FailedFile final : public Source {
 public:
  explicit FailedFile(const std::string& problem) : problems{problem} {}
  ReadState Read(std::span<const Frame>* frames) override {
    *frames = {};
    return ReadState::kEnd;
  }
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override { return 0; }
  uint64_t BytesTotal() const override { return 0; }

 private:
  std::vector<std::string> problems;
};

std::unique_ptr<Source> Failed(const std::string& name, int error) {
  return std::make_unique<FailedFile>(name + ": " + std::generic_category().message(error));
}

// A merge of a day's captures needs more descriptors than most shells allow at first.
bool AllowMoreFiles() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return false;
  limit.rlim_cur = limit.rlim_max;
  return setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

int Duplicate(int descriptor) {
  const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (copy >= 0 || errno != EMFILE || !AllowMoreFiles()) return copy;
  return fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
}

int OpenDescriptor(const std::string& path) {
  if (path == "-") return Duplicate(STDIN_FILENO);
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor >= 0 || errno != EMFILE || !AllowMoreFiles()) return descriptor;
  return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

// What a regular file holds that is to be read from its begin; unknown for anything else.
Content ContentOfFile(int descriptor, const struct stat& status) {
  if (!S_ISREG(status.st_mode) || lseek(descriptor, 0, SEEK_CUR) != 0) return Content::kUnknown;
  std::array<uint8_t, kContentBytes> first{};
  const ssize_t count = pread(descriptor, first.data(), first.size(), 0);
  return count == static_cast<ssize_t>(first.size()) ? ContentOf(first) : Content::kUnknown;
}

std::vector<uint8_t> FirstBytes(ByteStream* stream) {
  std::vector<uint8_t> first(kContentBytes);
  size_t count = 0;
  while (count < first.size()) {
    const size_t more = stream->Read(first.data() + count, first.size() - count);
    if (more == 0) break;
    count += more;
  }
  first.resize(count);
  return first;
}

bool IsCompressed(Content content) { return content == Content::kGzip || content == Content::kZstd; }

// Takes the descriptor.
std::unique_ptr<ByteStream> OpenStream(int descriptor, const struct stat& status) {
  const bool is_file = S_ISREG(status.st_mode);
  const off_t position = is_file ? lseek(descriptor, 0, SEEK_CUR) : 0;
  const uint64_t size = is_file ? static_cast<uint64_t>(std::max<off_t>(status.st_size - position, 0)) : 0;
  std::unique_ptr<ByteStream> stream = std::make_unique<DescriptorStream>(descriptor, size);
  std::vector<uint8_t> first = FirstBytes(stream.get());
  const Content content = ContentOf(first);
  stream = std::make_unique<PrefixedStream>(std::move(first), std::move(stream));
  if (content == Content::kGzip) stream = std::make_unique<GzipStream>(std::move(stream));
  if (content == Content::kZstd) stream = std::make_unique<ZstdStream>(std::move(stream));
  if (is_file && IsCompressed(content)) stream = std::make_unique<ReadAheadStream>(std::move(stream));
  return stream;
}

struct Descriptor {
  explicit Descriptor(int owned) : number(owned) {}
  ~Descriptor() { close(number); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int number;
};

// Takes the descriptor, and keeps it: the file may lose its name while it waits.
std::unique_ptr<Source> OpenWaiting(const std::string& name, uint32_t source, int descriptor,
                                    const struct stat& status) {
  const auto kept = std::make_shared<const Descriptor>(descriptor);
  const auto size = static_cast<uint64_t>(status.st_size);
  return std::make_unique<WaitingFile>(name, size, [name, source, kept, status]() -> std::unique_ptr<Source> {
    const int again = Duplicate(kept->number);
    if (again < 0 || lseek(again, 0, SEEK_SET) != 0) return Failed(name, errno);
    return std::make_unique<FileReader>(name, source, OpenStream(again, status));
  });
}

}  // namespace

std::unique_ptr<Source> OpenFile(const std::string& path, uint32_t number) {
  const std::string name = path == "-" ? "standard input" : path;
  const int descriptor = OpenDescriptor(path);
  if (descriptor < 0) return Failed(name, errno);
  struct stat status {};
  const int error = fstat(descriptor, &status) != 0 ? errno : S_ISDIR(status.st_mode) ? EISDIR : 0;
  if (error != 0) {
    close(descriptor);
    return Failed(name, error);
  }
  if (ContentOfFile(descriptor, status) != Content::kUnknown) return OpenWaiting(name, number, descriptor, status);
  return std::make_unique<FileReader>(name, number, OpenStream(descriptor, status));
}

}  // namespace capture
