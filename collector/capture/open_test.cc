#include "collector/capture/open.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/captured.h"
#include "tests/support/compress.h"
#include "tests/support/pcap_writer.h"
#include "tests/support/temporary_file.h"

namespace {

using test::Captured;
using test::Gzip;
using test::PcapWriter;
using test::TemporaryFile;
using test::Zstd;

using Lines = std::vector<std::string>;

Captured ReadFile(const std::string& path, uint32_t number = 0) {
  return test::ReadAll(capture::OpenFile(path, number).get());
}

// Puts a descriptor in the place of standard input, for a while. Takes it over.
class StandardInput {
 public:
  explicit StandardInput(int descriptor) : saved(dup(STDIN_FILENO)) {
    dup2(descriptor, STDIN_FILENO);
    close(descriptor);
  }
  ~StandardInput() {
    if (saved < 0) {
      close(STDIN_FILENO);
      return;
    }
    dup2(saved, STDIN_FILENO);
    close(saved);
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  int saved;
};

// Feeds bytes into a pipe from a thread of its own.
class Feeder {
 public:
  Feeder(std::string bytes, size_t piece) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    read_end = ends[0];
    thread = std::thread([all = std::move(bytes), piece, end = ends[1]] {
      for (size_t at = 0; at < all.size(); at += piece) {
        if (write(end, all.data() + at, std::min(piece, all.size() - at)) < 0) break;
      }
      close(end);
    });
  }
  ~Feeder() { thread.join(); }
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;

  int read_end = -1;

 private:
  std::thread thread;
};

Captured ReadThroughPipe(const std::string& bytes, size_t piece) {
  const Feeder feeder(bytes, piece);
  const StandardInput input(feeder.read_end);
  return ReadFile("-");
}

std::string Sample() {
  PcapWriter writer({.magic = test::kPcapNanoseconds});
  for (int i = 0; i < 5000; ++i) writer.Frame(i, "frame " + std::to_string(i));
  return writer.Bytes();
}

constexpr const char* kNotACapture = ": not a capture file (pcap or pcapng, plain or compressed with gzip or zstd)";

}  // namespace

TEST_CASE("a capture is the same plain, compressed, and through a pipe") {
  const std::string bytes = Sample();
  const TemporaryFile plain(bytes);
  const Captured expected = ReadFile(plain.path);
  REQUIRE(expected.frames.size() == 5000);
  REQUIRE(expected.problems.empty());
  const size_t half = bytes.size() / 2;
  const std::string forms[] = {
      bytes,
      Gzip(bytes),
      Gzip(bytes.substr(0, half)) + Gzip(bytes.substr(half)),
      Zstd(bytes),
      Zstd(bytes.substr(0, half)) + Zstd(bytes.substr(half)),
  };
  for (const std::string& form : forms) {
    const TemporaryFile file(form);
    const Captured from_file = ReadFile(file.path);
    CHECK(from_file.frames == expected.frames);
    CHECK(from_file.problems.empty());
    for (const size_t piece : {size_t{61}, size_t{4096}, size_t{1} << 20}) {
      const Captured from_pipe = ReadThroughPipe(form, piece);
      CHECK(from_pipe.frames == expected.frames);
      CHECK(from_pipe.problems.empty());
    }
  }
}

TEST_CASE("a named pipe is read as a pipe") {
  const TemporaryFile place;
  REQUIRE(unlink(place.path.c_str()) == 0);
  REQUIRE(mkfifo(place.path.c_str(), 0600) == 0);
  std::thread writer([&] {
    const int descriptor = open(place.path.c_str(), O_WRONLY | O_CLOEXEC);
    const std::string bytes = Gzip(PcapWriter().Frame(0, "x").Bytes());
    CHECK(write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()));
    close(descriptor);
  });
  const Captured captured = ReadFile(place.path, 3);
  writer.join();
  CHECK(captured.Bytes() == Lines{"x"});
  CHECK(captured.frames.at(0).source == 3);
}

TEST_CASE("standard input may be a file, from its begin or from its middle") {
  const std::string first = PcapWriter().Frame(0, "first").Bytes();
  const std::string second = PcapWriter().Frame(0, "second").Bytes();
  for (const bool packed : {false, true}) {
    const std::string begin = packed ? Gzip(first) : first;
    const TemporaryFile file(begin + (packed ? Gzip(second) : second));
    const int descriptor = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    const auto middle = static_cast<off_t>(begin.size());
    REQUIRE(lseek(descriptor, middle, SEEK_SET) == middle);
    const StandardInput input(descriptor);
    CHECK(ReadFile("-").Bytes() == Lines{"second"});
  }
  for (const std::string& bytes : {first, Gzip(first), Zstd(first)}) {
    const TemporaryFile file(bytes);
    const StandardInput input(open(file.path.c_str(), O_RDONLY | O_CLOEXEC));
    CHECK(ReadFile("-").Bytes() == Lines{"first"});
  }
}

TEST_CASE("what has arrived through a pipe is delivered while the pipe is open") {
  const std::string begin = PcapWriter().Frame(0, "first").RecordHeader(0, 3, 3).Raw("par").Bytes();
  int ends[2];
  REQUIRE(pipe2(ends, O_CLOEXEC) == 0);
  const StandardInput input(ends[0]);
  REQUIRE(write(ends[1], begin.data(), begin.size() - 1) == static_cast<ssize_t>(begin.size() - 1));
  const auto source = capture::OpenFile("-", 0);
  std::span<const capture::Frame> frames;
  REQUIRE(source->Read(&frames) == capture::ReadState::kFrames);
  REQUIRE(frames.size() == 1);
  CHECK(test::Copy(frames[0]).bytes == "first");
  REQUIRE(write(ends[1], "r", 1) == 1);
  REQUIRE(source->Read(&frames) == capture::ReadState::kFrames);
  CHECK(test::Copy(frames[0]).bytes == "par");
  close(ends[1]);
  CHECK(source->Read(&frames) == capture::ReadState::kEnd);
  CHECK(source->Problems().empty());
}

TEST_CASE("a pipe may be slow with its very first bytes") {
  for (const std::string& bytes : {PcapWriter().Frame(0, "x").Bytes(), Gzip(PcapWriter().Frame(0, "x").Bytes())}) {
    int ends[2];
    REQUIRE(pipe2(ends, O_CLOEXEC) == 0);
    const StandardInput input(ends[0]);
    REQUIRE(write(ends[1], bytes.data(), 1) == 1);
    std::thread late([&] {
      std::this_thread::sleep_for(std::chrono::milliseconds(30));
      CHECK(write(ends[1], bytes.data() + 1, bytes.size() - 1) == static_cast<ssize_t>(bytes.size() - 1));
      close(ends[1]);
    });
    const Captured captured = ReadFile("-");
    late.join();
    CHECK(captured.Bytes() == Lines{"x"});
    CHECK(captured.problems.empty());
  }
}

TEST_CASE("a missing file is one problem") {
  const Captured captured = ReadFile("/nonexistent/file.pcap");
  CHECK(captured.frames.empty());
  CHECK(captured.problems == Lines{"/nonexistent/file.pcap: No such file or directory"});
}

TEST_CASE("a folder is one problem") { CHECK(ReadFile("/tmp").problems == Lines{"/tmp: Is a directory"}); }

TEST_CASE("a file that may not be read is one problem") {
  const TemporaryFile file(Sample());
  REQUIRE(chmod(file.path.c_str(), 0) == 0);
  constexpr uid_t kNobody = 65534;  // root may read everything
  const uid_t user = geteuid();
  if (user == 0) REQUIRE(seteuid(kNobody) == 0);
  const Captured captured = ReadFile(file.path);
  REQUIRE(seteuid(user) == 0);
  CHECK(captured.problems == Lines{file.path + ": Permission denied"});
}

TEST_CASE("more files are opened than the shell's soft limit allows") {
  rlimit saved{};
  REQUIRE(getrlimit(RLIMIT_NOFILE, &saved) == 0);
  const rlimit few{16, saved.rlim_max};
  REQUIRE(setrlimit(RLIMIT_NOFILE, &few) == 0);
  const TemporaryFile file(PcapWriter().Frame(0, "x").Bytes());
  std::vector<std::unique_ptr<capture::Source>> sources;
  for (uint32_t i = 0; i < 50; ++i) sources.push_back(capture::OpenFile(file.path, i));
  const Captured captured = test::ReadAll(capture::MergeByTime(std::move(sources)).get());
  REQUIRE(setrlimit(RLIMIT_NOFILE, &saved) == 0);
  CHECK(captured.frames.size() == 50);
  CHECK(captured.problems.empty());
}

TEST_CASE("a reader that is through holds no file") {
  for (const std::string& bytes :
       {PcapWriter().Bytes(), PcapWriter().Frame(0, "x").Bytes(), Gzip(PcapWriter().Frame(0, "x").Bytes())}) {
    const TemporaryFile file(bytes);
    const auto source = capture::OpenFile(file.path, 0);
    const int while_open = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    test::ReadAll(source.get());
    const int afterwards = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    CHECK(afterwards < while_open);
    close(while_open);
    close(afterwards);
  }
}

TEST_CASE("an empty file is one problem") {
  const TemporaryFile file;
  CHECK(ReadFile(file.path).problems == Lines{file.path + ": there are no data in it"});
}

TEST_CASE("a file that is no capture is one problem, compressed or not") {
  for (const std::string& bytes : {std::string("text"), std::string("x"), Gzip("some text"), Zstd("some text")}) {
    const TemporaryFile file(bytes);
    CHECK(ReadFile(file.path).problems == Lines{file.path + kNotACapture});
  }
}

TEST_CASE("closed standard input is one problem") {
  const int saved = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
  close(STDIN_FILENO);
  const Captured captured = ReadFile("-");
  if (saved >= 0) {
    dup2(saved, STDIN_FILENO);
    close(saved);
  }
  CHECK(captured.problems == Lines{"standard input: Bad file descriptor"});
}

TEST_CASE("problems of standard input are named so") {
  CHECK(ReadThroughPipe("text", 4).problems == Lines{std::string("standard input") + kNotACapture});
  CHECK(ReadThroughPipe("", 1).problems == Lines{"standard input: there are no data in it"});
  const std::string cut = PcapWriter().Frame(0, "abc").Bytes();
  CHECK(ReadThroughPipe(cut.substr(0, cut.size() - 1), 10).problems ==
        Lines{"standard input:24: the file is cut off in the middle of a record"});
}

TEST_CASE("a compressed capture that is cut off delivers what could be unpacked") {
  const std::string bytes = PcapWriter().Frame(0, std::string(100, 'x')).Frame(0, std::string(200, 'y')).Bytes();
  const std::string packed = Gzip(bytes, 0);  // stored: what is there can be told
  const TemporaryFile gzip(packed.substr(0, packed.size() - 9));
  const Captured captured = ReadFile(gzip.path);
  CHECK(captured.Bytes() == Lines{std::string(100, 'x')});
  CHECK(captured.problems == Lines{gzip.path + ":140: the gzip data are cut off"});

  const std::string frame = Zstd(bytes);
  const TemporaryFile zstd(frame.substr(0, frame.size() - 1));
  const Captured whole = ReadFile(zstd.path);
  CHECK(whole.frames.size() == 2);
  CHECK(whole.problems == Lines{zstd.path + ":356: the zstd data are cut off"});
}

TEST_CASE("damage at the very begin of a compressed capture is told as such") {
  const TemporaryFile file(std::string("\x1f\x8b\x63\x00", 4));
  const Captured captured = ReadFile(file.path);
  CHECK(captured.problems == Lines{file.path + ":0: the gzip data are damaged (unknown compression method)"});
}

TEST_CASE("progress of a compressed file counts compressed bytes") {
  const std::string packed = Gzip(Sample());
  const TemporaryFile file(packed);
  const auto source = capture::OpenFile(file.path, 0);
  CHECK(source->BytesTotal() == packed.size());
  test::ReadAll(source.get());
  CHECK(source->BytesRead() == packed.size());
}

TEST_CASE("the size of a pipe is not known") {
  const std::string bytes = Sample();
  const Feeder feeder(bytes, 1000);
  const StandardInput input(feeder.read_end);
  const auto source = capture::OpenFile("-", 0);
  CHECK(source->BytesTotal() == 0);
  test::ReadAll(source.get());
  CHECK(source->BytesRead() == bytes.size());
}
