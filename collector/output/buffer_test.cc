#include "collector/output/buffer.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <new>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace {

bool memory_is_out = false;

}  // namespace

// Of the whole test program. A sanitizer's own would end the process where this one throws.
void* operator new[](size_t size) {
  void* const block = memory_is_out ? nullptr : std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete[](void* block, size_t /*size*/) noexcept { std::free(block); }

namespace output {
namespace {

// A pipe whose ends close with it.
struct Pipe {
  Pipe() { REQUIRE(pipe(ends) == 0); }
  ~Pipe() {
    CloseReader();
    CloseWriter();
  }
  void CloseReader() { Close(&ends[0]); }
  void CloseWriter() { Close(&ends[1]); }
  static void Close(int* fd) {
    if (*fd >= 0) close(*fd);
    *fd = -1;
  }
  std::string ReadAll() const {
    std::string all;
    char bytes[4096];
    for (ssize_t got = 0; (got = read(ends[0], bytes, sizeof bytes)) > 0;)
      all.append(bytes, static_cast<size_t>(got));
    return all;
  }
  int ends[2];
};

struct TemporaryFile {
  TemporaryFile() {
    const int fd = mkstemp(path);
    REQUIRE(fd >= 0);
    close(fd);
  }
  ~TemporaryFile() { unlink(path); }
  std::string Content() const {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
  }
  char path[32] = "/tmp/dnspair_buffer_XXXXXX";
};

TEST_CASE("nothing is written before it has to be") {
  TemporaryFile file;
  Buffer buffer((std::string(file.path)));
  buffer.Write("one\n");
  CHECK(file.Content() == "");
  buffer.Flush();
  CHECK(file.Content() == "one\n");
}

TEST_CASE("a full buffer writes whole records only") {
  TemporaryFile file;
  const int fd = open(file.path, O_WRONLY);
  Buffer buffer(fd, "out", 10);
  buffer.Write("1234567\n");
  buffer.Write("abcdefg\n");
  CHECK(file.Content() == "1234567\n");
  buffer.Close();
  CHECK(file.Content() == "1234567\nabcdefg\n");
  close(fd);
}

TEST_CASE("a record larger than the buffer is written whole") {
  TemporaryFile file;
  const int fd = open(file.path, O_WRONLY);
  Buffer buffer(fd, "out", 4);
  buffer.Write("a\n");
  buffer.Write(std::string(1000, 'x') + "\n");
  buffer.Write("b\n");
  buffer.Close();
  CHECK(file.Content() == "a\n" + std::string(1000, 'x') + "\nb\n");
  close(fd);
}

TEST_CASE("memory that runs out leaves the buffer as it was, and the next records find their room") {
  TemporaryFile file;
  const int fd = open(file.path, O_WRONLY);
  Buffer to_file(fd, "out", 8);
  Buffer in_memory;
  for (Buffer* buffer : {&to_file, &in_memory}) {
    buffer->Write("one\n");
    memory_is_out = true;
    CHECK_THROWS_AS(buffer->Room(200'000), std::bad_alloc);
    memory_is_out = false;
    buffer->Write(std::string(100'000, 'x') + "\n");
  }
  to_file.Close();
  const std::string expected = "one\n" + std::string(100'000, 'x') + "\n";
  CHECK(file.Content() == expected);
  CHECK(in_memory.Held() == expected);
  close(fd);
}

TEST_CASE("a pipe that takes little at a time gets everything") {
  Pipe pipe;
  std::string all;
  std::thread reader([&] { all = pipe.ReadAll(); });
  Buffer buffer(pipe.ends[1], "out");
  std::string expected;
  for (int i = 0; i < 20000; ++i) expected += std::to_string(i) + " is a line of some length\n";
  for (size_t at = 0; at < expected.size(); at += 1000) buffer.Write(expected.substr(at, 1000));
  buffer.Close();
  pipe.CloseWriter();
  reader.join();
  CHECK(buffer.Good());
  CHECK(all == expected);
}

TEST_CASE("a pipe that does not block is waited for") {
  Pipe pipe;
  fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
  std::string all;
  std::thread reader([&] {
    usleep(20000);
    all = pipe.ReadAll();
  });
  Buffer buffer(pipe.ends[1], "out");
  const std::string expected(400000, 'x');
  buffer.Write(expected);
  buffer.Close();
  pipe.CloseWriter();
  reader.join();
  CHECK(buffer.Problem() == "");
  CHECK(all == expected);
}

TEST_CASE("a signal during a write loses nothing") {
  Pipe pipe;
  struct sigaction action {};
  action.sa_handler = [](int) {};  // no SA_RESTART: the write fails with EINTR
  sigaction(SIGALRM, &action, nullptr);
  std::string all;
  std::thread reader([&] {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    usleep(100000);
    all = pipe.ReadAll();
  });
  const std::string fills(65536, 'x');  // as much as a pipe takes, so that the next write waits
  Buffer buffer(pipe.ends[1], "out", fills.size());
  buffer.Write(fills);
  buffer.Flush();
  ualarm(20000, 0);
  buffer.Write("rest");
  buffer.Close();
  CHECK(buffer.Problem() == "");
  pipe.CloseWriter();
  reader.join();
  CHECK(all == fills + "rest");
  signal(SIGALRM, SIG_DFL);
}

TEST_CASE("a closed pipe ends the writing without a problem") {
  signal(SIGPIPE, SIG_IGN);
  Pipe pipe;
  pipe.CloseReader();
  Buffer buffer(pipe.ends[1], "out");
  buffer.Write("one\n");
  CHECK(buffer.Good());
  buffer.Flush();
  CHECK_FALSE(buffer.Good());
  CHECK(buffer.Problem() == "");
  buffer.Write("two\n");
  buffer.Close();
  CHECK(buffer.Problem() == "");
}

TEST_CASE("a full disk is named with the file") {
  Buffer buffer("/dev/full");
  buffer.Write("one\n");
  buffer.Close();
  CHECK_FALSE(buffer.Good());
  CHECK(buffer.Problem() == "/dev/full: No space left on device");
}

TEST_CASE("a file that cannot be created is named") {
  CHECK_THROWS_WITH_AS(Buffer("/nowhere/at/all"), "/nowhere/at/all: No such file or directory", std::runtime_error);
}

TEST_CASE("an old file is emptied") {
  TemporaryFile file;
  std::ofstream(file.path) << "something long from before\n";
  Buffer buffer((std::string(file.path)));
  buffer.Write("new\n");
  buffer.Close();
  CHECK(file.Content() == "new\n");
}

TEST_CASE("an old file stays as it was until the first record reaches it, or the end does") {
  TemporaryFile file;
  std::ofstream(file.path) << "old\n";
  {
    Buffer buffer((std::string(file.path)));
    buffer.Write("new\n");
    CHECK(file.Content() == "old\n");
  }
  CHECK(file.Content() == "new\n");
  Buffer((std::string(file.path))).Close();
  CHECK(file.Content() == "");
}

TEST_CASE("what is abandoned leaves an old file alone, but for what has reached it") {
  TemporaryFile file;
  std::ofstream(file.path) << "old\n";
  Buffer first((std::string(file.path)));
  first.Write("new\n");
  first.Abandon();
  CHECK(first.Good());
  CHECK(file.Content() == "old\n");
  Buffer second((std::string(file.path)));
  second.Write("new\n");
  second.Flush();
  second.Write("newer\n");
  second.Abandon();
  CHECK(file.Content() == "new\n");
}

}  // namespace
}  // namespace output
