#include "collector/capture/read_ahead_stream.h"

#include <doctest/doctest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <new>
#include <string>
#include <thread>

#include "tests/support/captured.h"

namespace {

using capture::ReadAheadStream;

std::string Pattern(size_t size) {
  std::string text;
  for (size_t i = 0; i < size; ++i) text.push_back(static_cast<char>(i * 7 + i / 251));
  return text;
}

std::string Drain(capture::ByteStream* stream, size_t room) {
  std::string all;
  std::string buffer(room, '\0');
  while (const size_t count = stream->Read(reinterpret_cast<uint8_t*>(buffer.data()), buffer.size())) {
    all.append(buffer, 0, count);
  }
  return all;
}

// Without an end. Counts what is taken from it.
class Endless final : public capture::ByteStream {
 public:
  explicit Endless(std::atomic<size_t>* taken_bytes) : taken(taken_bytes) {}
  size_t Read(uint8_t* buffer, size_t size) override {
    std::fill(buffer, buffer + size, uint8_t{1});
    *taken += size;
    return size;
  }
  std::string Damage() const override { return {}; }
  uint64_t BytesRead() const override { return 0; }
  uint64_t BytesTotal() const override { return 0; }

 private:
  std::atomic<size_t>* taken;
};

// Runs out of memory at its third read.
class Failing final : public capture::ByteStream {
 public:
  size_t Read(uint8_t* buffer, size_t size) override {
    if (++reads == 3) throw std::bad_alloc();
    std::fill(buffer, buffer + size, uint8_t{1});
    return size;
  }
  std::string Damage() const override { return {}; }
  uint64_t BytesRead() const override { return 0; }
  uint64_t BytesTotal() const override { return 0; }

 private:
  int reads = 0;
};

}  // namespace

TEST_CASE("bytes that are read ahead come in order, whatever the pieces") {
  const std::string bytes = Pattern(2'000'000);
  for (const size_t piece : {size_t{10'000}, size_t{300'000}, SIZE_MAX}) {
    for (const size_t room : {size_t{1000}, size_t{65536}, size_t{1'000'000}}) {
      ReadAheadStream stream(std::make_unique<test::PiecewiseStream>(bytes, piece));
      CHECK(Drain(&stream, room) == bytes);
      CHECK(stream.BytesRead() == bytes.size());
    }
  }
}

TEST_CASE("what is thrown while reading ahead is thrown to the reader, behind the bytes before it") {
  ReadAheadStream stream(std::make_unique<Failing>());
  std::string buffer(1'000'000, '\0');
  auto* bytes = reinterpret_cast<uint8_t*>(buffer.data());
  CHECK(stream.Read(bytes, buffer.size()) == buffer.size());
  CHECK(stream.Read(bytes, buffer.size()) > 0);
  CHECK_THROWS_AS(stream.Read(bytes, buffer.size()), std::bad_alloc);
  CHECK_THROWS_AS(stream.Read(bytes, buffer.size()), std::bad_alloc);
}

TEST_CASE("the end stays the end when reading ahead") {
  auto source = std::make_unique<test::PiecewiseStream>("abc");
  source->damage = "disk on fire";
  ReadAheadStream stream(std::move(source));
  CHECK(Drain(&stream, 10) == "abc");
  CHECK(Drain(&stream, 10).empty());
  CHECK(stream.Damage() == "disk on fire");
}

TEST_CASE("reading ahead is bounded, and ends when nobody reads any more") {
  std::atomic<size_t> taken = 0;
  {
    ReadAheadStream stream(std::make_unique<Endless>(&taken));
    uint8_t byte = 0;
    REQUIRE(stream.Read(&byte, 1) == 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    CHECK(taken == 1);  // no thread for the first bytes
    REQUIRE(stream.Read(&byte, 1) == 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    CHECK(taken <= 1 << 20);
  }
  const size_t at_end = taken;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  CHECK(taken == at_end);
}
