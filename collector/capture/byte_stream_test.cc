#include "collector/capture/byte_stream.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <thread>

#include "tests/support/captured.h"
#include "tests/support/temporary_file.h"

namespace {

std::string ReadOnce(capture::ByteStream* stream, size_t size) {
  std::string buffer(size, '\0');
  buffer.resize(stream->Read(reinterpret_cast<uint8_t*>(buffer.data()), size));
  return buffer;
}

}  // namespace

TEST_CASE("a descriptor's bytes come in order and are counted") {
  const test::TemporaryFile file("abcdef");
  capture::DescriptorStream stream(open(file.path.c_str(), O_RDONLY | O_CLOEXEC), 6);
  CHECK(ReadOnce(&stream, 4) == "abcd");
  CHECK(stream.BytesRead() == 4);
  CHECK(stream.BytesTotal() == 6);
  CHECK(ReadOnce(&stream, 4) == "ef");
  CHECK(ReadOnce(&stream, 4).empty());
  CHECK(stream.Damage().empty());
}

TEST_CASE("a descriptor that cannot be read says why at its end") {
  capture::DescriptorStream stream(open("/tmp", O_RDONLY | O_CLOEXEC), 0);
  CHECK(ReadOnce(&stream, 4).empty());
  CHECK(stream.Damage() == "Is a directory");
  CHECK(ReadOnce(&stream, 4).empty());
}

TEST_CASE("a signal does not end the wait for bytes") {
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};  // without SA_RESTART
  REQUIRE(sigaction(SIGUSR1, &action, &before) == 0);
  int ends[2];
  REQUIRE(pipe2(ends, O_CLOEXEC) == 0);
  std::thread other([&, reader = pthread_self()] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    pthread_kill(reader, SIGUSR1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    CHECK(write(ends[1], "abc", 3) == 3);
  });
  capture::DescriptorStream stream(ends[0], 0);
  CHECK(ReadOnce(&stream, 4) == "abc");
  CHECK(stream.Damage().empty());
  other.join();
  close(ends[1]);
  sigaction(SIGUSR1, &before, nullptr);
}

TEST_CASE("bytes that were looked at come before the rest of their stream") {
  capture::PrefixedStream stream({'a', 'b', 'c'}, std::make_unique<test::PiecewiseStream>("defg"));
  CHECK(ReadOnce(&stream, 2) == "ab");
  CHECK(ReadOnce(&stream, 9) == "c");
  CHECK(ReadOnce(&stream, 3) == "def");
  CHECK(ReadOnce(&stream, 3) == "g");
  CHECK(ReadOnce(&stream, 3).empty());
}

TEST_CASE("a prefixed stream has the damage of the stream behind it") {
  auto rest = std::make_unique<test::PiecewiseStream>("");
  rest->damage = "disk on fire";
  const capture::PrefixedStream stream({'a'}, std::move(rest));
  CHECK(stream.Damage() == "disk on fire");
}
