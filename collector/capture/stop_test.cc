#include "collector/capture/stop.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <unistd.h>

#include <thread>

#include "collector/capture/byte_stream.h"
#include "tests/support/temporary_file.h"

namespace capture {
namespace {

struct Pipe {
  Pipe() { REQUIRE(pipe(ends) == 0); }
  ~Pipe() { close(ends[1]); }
  int ends[2];  // the stream closes the first
};

TEST_CASE("a stream that waits on a pipe ends when reading is stopped") {
  const Pipe pipe;
  DescriptorStream stream(pipe.ends[0], 0);
  std::thread stopper([] {
    usleep(50000);
    StopReading();
  });
  uint8_t byte = 0;
  CHECK(stream.Read(&byte, 1) == 0);
  CHECK(stream.Damage() == "");
  CHECK(stream.Read(&byte, 1) == 0);  // and for good
  stopper.join();
  ResumeReading();
}

TEST_CASE("bytes that are there are not read once reading is stopped") {
  const Pipe pipe;
  DescriptorStream stream(pipe.ends[0], 0);
  REQUIRE(write(pipe.ends[1], "ab", 2) == 2);
  uint8_t byte = 0;
  CHECK(stream.Read(&byte, 1) == 1);
  StopReading();
  CHECK(stream.Read(&byte, 1) == 0);
  ResumeReading();
  CHECK(stream.Read(&byte, 1) == 1);
  CHECK(byte == 'b');
}

TEST_CASE("a file can be read to its end although reading is stopped") {
  const test::TemporaryFile file("ab");
  DescriptorStream stream(open(file.path.c_str(), O_RDONLY | O_CLOEXEC), 2);
  StopReading();
  uint8_t bytes[3];
  CHECK(stream.Read(bytes, sizeof bytes) == 2);
  CHECK(stream.Read(bytes, sizeof bytes) == 0);
  CHECK(stream.Damage() == "");
  ResumeReading();
}

TEST_CASE("waiting ends at the end of a pipe and at a descriptor that is none") {
  int ends[2];
  REQUIRE(pipe(ends) == 0);
  close(ends[1]);
  CHECK(WaitForInput(ends[0]));
  close(ends[0]);
  CHECK(WaitForInput(ends[0]));
}

}  // namespace
}  // namespace capture
