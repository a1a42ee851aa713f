#include "collector/capture/file_reader.h"

#include <doctest/doctest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/support/captured.h"
#include "tests/support/compress.h"
#include "tests/support/pcap_writer.h"

namespace {

using test::Captured;
using test::PcapngWriter;
using test::PcapWriter;
using test::ReadBytes;

using Lines = std::vector<std::string>;

const std::string kNoCapture = "file: not a capture file (pcap or pcapng, plain or compressed with gzip or zstd)";

// A reader over a stream that reports damage at its end.
Captured ReadDamaged(const std::string& bytes) {
  auto stream = std::make_unique<test::PiecewiseStream>(bytes, 100);
  stream->damage = "disk on fire";
  capture::FileReader reader("file", 0, std::move(stream));
  return test::ReadAll(&reader);
}

std::string RandomBytes(std::mt19937* random, size_t size) {
  std::string bytes;
  for (size_t i = 0; i < size; ++i) bytes.push_back(static_cast<char>((*random)() & 0xff));
  return bytes;
}

std::string SmallPcapng() {
  return PcapngWriter()
      .Section()
      .Interface()
      .Enhanced(0, 1, "one")
      .Block(5, "stats")
      .Simple("two")
      .Packet(0, 1, "x")
      .Bytes();
}

}  // namespace

TEST_CASE("a file without a byte has no data") {
  CHECK(ReadBytes("").problems == Lines{"file: there are no data in it"});
}

TEST_CASE("what is no capture is called so") {
  CHECK(ReadBytes("a").problems == Lines{kNoCapture});
  CHECK(ReadBytes("abc").problems == Lines{kNoCapture});
  CHECK(ReadBytes("a text of some length\n").problems == Lines{kNoCapture});
  CHECK(ReadBytes(PcapWriter().Bytes().substr(0, 3)).problems == Lines{kNoCapture});
}

TEST_CASE("a stream that fails is reported where the first missing record begins") {
  CHECK(ReadDamaged(PcapWriter().Frame(0, "x").Bytes()).problems == Lines{"file:41: disk on fire"});
  const Captured cut = ReadDamaged(PcapWriter().Frame(0, "x").RecordHeader(0, 9, 9).Raw("yyy").Bytes());
  CHECK(cut.Bytes() == Lines{"x"});
  CHECK(cut.problems == Lines{"file:41: disk on fire"});
  CHECK(ReadDamaged("").problems == Lines{"file:0: disk on fire"});
}

TEST_CASE("a reader stays at its end") {
  auto stream = std::make_unique<test::PiecewiseStream>(PcapWriter().Frame(0, "x").Bytes());
  capture::FileReader reader("file", 0, std::move(stream));
  test::ReadAll(&reader);
  std::span<const capture::Frame> frames;
  CHECK(reader.Read(&frames) == capture::ReadState::kEnd);
  CHECK(frames.empty());
  CHECK(reader.BytesRead() == 41);
}

TEST_CASE("frames carry the number of their file") {
  auto stream = std::make_unique<test::PiecewiseStream>(PcapWriter().Frame(0, "x").Bytes());
  capture::FileReader reader("file", 7, std::move(stream));
  CHECK(test::ReadAll(&reader).frames.at(0).source == 7);
}

TEST_CASE("frames come in batches") {
  PcapWriter writer;
  for (int i = 0; i < 100; ++i) writer.Frame(i, "x");
  auto stream = std::make_unique<test::PiecewiseStream>(writer.Bytes());
  capture::FileReader reader("file", 0, std::move(stream));
  std::span<const capture::Frame> frames;
  REQUIRE(reader.Read(&frames) == capture::ReadState::kFrames);
  CHECK(frames.size() == 64);
  REQUIRE(reader.Read(&frames) == capture::ReadState::kFrames);
  CHECK(frames.size() == 36);
}

TEST_CASE("a frame larger than the buffer makes it grow") {
  const std::string large(5'000'000, 'x');
  PcapngWriter writer = PcapngWriter().Section().Interface();
  for (int i = 0; i < 1000; ++i) writer.Enhanced(0, 0, "small");
  writer.Enhanced(0, 0, large).Enhanced(0, 0, "small");
  const Captured captured = ReadBytes(writer.Bytes(), 70'000);
  REQUIRE(captured.frames.size() == 1002);
  CHECK(captured.frames[1000].bytes == large);
  CHECK(captured.frames[1001].bytes == "small");
}

TEST_CASE("noise behind any header ends in at most one problem") {
  std::mt19937 random(1);
  for (int i = 0; i < 2000; ++i) {
    const std::string noise = RandomBytes(&random, random() % 300);
    CHECK(ReadBytes(PcapWriter().Bytes() + noise, 1 + random() % 50).problems.size() <= 1);
    CHECK(ReadBytes(PcapngWriter().Section().Interface().Bytes() + noise).problems.size() <= 1);
  }
}

TEST_CASE("a changed byte anywhere ends in at most one problem") {
  const std::string files[] = {PcapWriter().Frame(0, "one").Frame(1, "two").Bytes(), SmallPcapng()};
  for (const std::string& file : files) {
    for (size_t at = 0; at < file.size(); ++at) {
      for (int value = 0; value < 256; ++value) {
        std::string changed = file;
        changed[at] = static_cast<char>(value);
        const Captured whole = ReadBytes(changed);
        CHECK(whole.problems.size() <= 1);
        if (value % 16 == 0) {
          const Captured in_pieces = ReadBytes(changed, 3);
          CHECK(in_pieces.frames == whole.frames);
          CHECK(in_pieces.problems == whole.problems);
        }
      }
    }
  }
}
