#include "collector/capture/pcap_format.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/captured.h"
#include "tests/support/pcap_writer.h"

namespace {

using test::ByteOrder;
using test::Captured;
using test::PcapSettings;
using test::PcapWriter;
using test::ReadBytes;

constexpr int64_t kTime = 1'700'000'000'123'456'789;

PcapWriter Writer(ByteOrder order, uint32_t magic) { return PcapWriter({.order = order, .magic = magic}); }

}  // namespace

TEST_CASE("a pcap file is read in both byte orders and resolutions") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const Captured micro = ReadBytes(Writer(order, test::kPcapMicroseconds).Frame(kTime, "frame", 60).Bytes());
    REQUIRE(micro.frames.size() == 1);
    CHECK(micro.problems.empty());
    CHECK(micro.frames[0] == test::CapturedFrame{1'700'000'000'123'456'000, "frame", 60, 24, 0, 1});

    const Captured nano = ReadBytes(Writer(order, test::kPcapNanoseconds).Frame(kTime, "frame", 60).Bytes());
    REQUIRE(nano.frames.size() == 1);
    CHECK(nano.frames[0] == test::CapturedFrame{kTime, "frame", 60, 24, 0, 1});
  }
}

TEST_CASE("a modified pcap file has longer record headers") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const Captured captured =
        ReadBytes(Writer(order, test::kPcapModified).Frame(1000, "one").Frame(2000, "two", 9).Bytes());
    CHECK(captured.problems.empty());
    REQUIRE(captured.Bytes() == std::vector<std::string>{"one", "two"});
    CHECK(captured.frames[1] == test::CapturedFrame{2000, "two", 9, 24 + 24 + 3, 0, 1});
  }
}

TEST_CASE("a frame may be empty") {
  const Captured captured = ReadBytes(PcapWriter().Frame(0, "").Frame(1000, "", 60).Frame(2000, "x").Bytes());
  CHECK(captured.problems.empty());
  REQUIRE(captured.Bytes() == std::vector<std::string>{"", "", "x"});
  CHECK(captured.frames[0].wire == 0);
  CHECK(captured.frames[1].wire == 60);
}

TEST_CASE("a length on the wire below the captured one is lifted to it") {
  const Captured captured = ReadBytes(PcapWriter().Frame(0, "frame", 0).Frame(0, "frame", 4).Bytes());
  REQUIRE(captured.frames.size() == 2);
  CHECK(captured.frames[0].wire == 5);
  CHECK(captured.frames[1].wire == 5);
}

TEST_CASE("seconds beyond 2038 are no negative times") {
  constexpr int64_t kLastSecond = 4'294'967'295;
  const Captured captured = ReadBytes(
      Writer(ByteOrder::kBig, test::kPcapNanoseconds).Frame(kLastSecond * 1'000'000'000 + 5, "x").Bytes());
  REQUIRE(captured.frames.size() == 1);
  CHECK(captured.frames[0].time_ns == kLastSecond * 1'000'000'000 + 5);
}

TEST_CASE("a fraction of more than a second counts as it stands") {
  test::ByteWriter record;
  record.U32(10).U32(4'000'000'000).U32(1).U32(1).Raw("x");
  const Captured captured = ReadBytes(PcapWriter().Raw(record.bytes).Bytes());
  REQUIRE(captured.frames.size() == 1);
  CHECK(captured.frames[0].time_ns == 4'010'000'000'000);
}

TEST_CASE("the link type is that of the file's header") {
  const auto link_type = [](uint32_t written) {
    return ReadBytes(PcapWriter({.link_type = written}).Frame(0, "x").Bytes()).frames.at(0).link_type;
  };
  CHECK(link_type(276) == 276);
  CHECK(link_type(0) == 0);
  CHECK(link_type(12) == 101);
  CHECK(link_type(0x24000001) == 1);  // with frame check sequences
}

TEST_CASE("a frame longer than anyone captures is corrupt") {
  const Captured captured = ReadBytes(
      PcapWriter().Frame(0, "good").RecordHeader(0, 262145, 262145).Raw(std::string(300000, 'x')).Bytes());
  CHECK(captured.Bytes() == std::vector<std::string>{"good"});
  CHECK(captured.problems ==
        std::vector<std::string>{"file:44: a packet of 262145 bytes, more than the 262144 that are possible"});
}

TEST_CASE("a frame of the greatest length is delivered") {
  const std::string longest(262144, 'x');
  const Captured captured = ReadBytes(PcapWriter({.snaplen = 96}).Frame(0, longest).Frame(0, "y").Bytes());
  CHECK(captured.problems.empty());
  CHECK(captured.Bytes() == std::vector<std::string>{longest, "y"});
}

TEST_CASE("a file may announce longer frames, up to a limit") {
  const std::string longest(1'000'000, 'x');
  CHECK(ReadBytes(PcapWriter({.snaplen = 1'000'000}).Frame(0, longest).Bytes()).Bytes() ==
        std::vector<std::string>{longest});
  CHECK(ReadBytes(PcapWriter({.snaplen = 999'999}).Frame(0, longest).Bytes()).problems.size() == 1);
  CHECK(ReadBytes(PcapWriter({.snaplen = UINT32_MAX}).Frame(0, longest).Bytes()).problems.size() == 1);
  CHECK(ReadBytes(PcapWriter({.snaplen = 16 << 20}).Frame(0, longest).Bytes()).problems.empty());
  CHECK(ReadBytes(PcapWriter({.snaplen = (16 << 20) + 1}).Frame(0, longest).Bytes()).problems.size() == 1);
}

TEST_CASE("a snap length of zero is none") {
  CHECK(ReadBytes(PcapWriter({.snaplen = 0}).Frame(0, std::string(1500, 'x')).Bytes()).frames.size() == 1);
}

TEST_CASE("an unknown version of pcap is refused") {
  const Captured captured = ReadBytes(PcapWriter({.major = 3, .minor = 1}).Frame(0, "x").Bytes());
  CHECK(captured.frames.empty());
  CHECK(captured.problems == std::vector<std::string>{"file:0: pcap version 3.1 is not known"});
}

TEST_CASE("a pcap file without packets is no problem") {
  const Captured captured = ReadBytes(PcapWriter().Bytes());
  CHECK(captured.frames.empty());
  CHECK(captured.problems.empty());
}

TEST_CASE("every prefix of a pcap file gives its whole frames and says where it is cut") {
  const PcapWriter writer = PcapWriter().Frame(1000, "one").Frame(2000, "").Frame(3000, "three");
  const std::string& whole = writer.Bytes();
  const size_t begins[] = {24, 43, 59, 80};
  const std::vector<std::string> all{"one", "", "three"};
  REQUIRE(whole.size() == begins[3]);
  for (size_t length = 4; length <= whole.size(); ++length) {
    CAPTURE(length);
    const Captured captured = ReadBytes(whole.substr(0, length));
    size_t frames = 0;
    while (frames < 3 && begins[frames + 1] <= length) ++frames;
    CHECK(captured.Bytes() == std::vector<std::string>(all.begin(), all.begin() + static_cast<long>(frames)));
    const bool between_records = length >= begins[0] && length == begins[frames];
    CHECK(captured.problems.size() == (between_records ? 0 : 1));
    if (between_records || captured.problems.empty()) continue;
    const size_t record = length < begins[0] ? 0 : begins[frames];
    CHECK(captured.problems[0] ==
          "file:" + std::to_string(record) + ": the file is cut off in the middle of a record");
  }
}

TEST_CASE("pcap frames do not depend on how their bytes arrive") {
  PcapWriter writer;
  for (int i = 0; i < 200; ++i) writer.Frame(i * 1000, std::string(static_cast<size_t>(i), 'x'));
  const Captured at_once = ReadBytes(writer.Bytes());
  REQUIRE(at_once.frames.size() == 200);
  for (const size_t piece : std::vector<size_t>{1, 2, 3, 7, 16, 17, 100, 1000}) {
    const Captured in_pieces = ReadBytes(writer.Bytes(), piece);
    CHECK(in_pieces.frames == at_once.frames);
    CHECK(in_pieces.problems.empty());
  }
  for (size_t first = 1; first < 100; ++first)
    CHECK(ReadBytes(writer.Bytes(), 4096, first).frames == at_once.frames);
}
