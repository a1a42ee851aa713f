#include "collector/capture/pcapng_format.h"

#include <doctest/doctest.h>

#include <string>
#include <vector>

#include "tests/support/captured.h"
#include "tests/support/pcap_writer.h"

namespace {

using test::ByteOrder;
using test::ByteWriter;
using test::Captured;
using test::CapturedFrame;
using test::PcapngWriter;
using test::ReadBytes;

using Lines = std::vector<std::string>;

PcapngWriter OneInterface(ByteOrder order = ByteOrder::kLittle) {
  return PcapngWriter().Section(order).Interface();
}

// What is wrong with a file of one interface (48 bytes) and then this block.
Lines ProblemsOf(uint32_t type, std::string_view body) {
  return ReadBytes(OneInterface().Block(type, body).Bytes()).problems;
}

constexpr uint32_t kInterface = 1;
constexpr uint32_t kObsoletePacket = 2;
constexpr uint32_t kSimplePacket = 3;
constexpr uint32_t kEnhancedPacket = 6;

}  // namespace

TEST_CASE("enhanced packets are read in both byte orders") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const Captured captured =
        ReadBytes(OneInterface(order).Enhanced(0, 1'700'000'000'123'456, "frame", 60).Bytes());
    CHECK(captured.problems.empty());
    REQUIRE(captured.frames.size() == 1);
    CHECK(captured.frames[0] == CapturedFrame{1'700'000'000'123'456'000, "frame", 60, 48, 0, 1});
  }
}

TEST_CASE("obsolete packets are read in both byte orders") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const Captured captured = ReadBytes(PcapngWriter()
                                            .Section(order)
                                            .Interface()
                                            .Interface({.link_type = 113})
                                            .Packet(1, 1'700'000'000'123'456, "frame", 60)
                                            .Bytes());
    CHECK(captured.problems.empty());
    REQUIRE(captured.frames.size() == 1);
    CHECK(captured.frames[0] == CapturedFrame{1'700'000'000'123'456'000, "frame", 60, 68, 0, 113});
  }
}

TEST_CASE("an obsolete packet's count of drops is no part of its interface") {
  ByteWriter body;
  body.U16(0).U16(65535).U32(0).U32(7).U32(1).U32(1).Padded("x");
  const Captured captured = ReadBytes(OneInterface().Block(kObsoletePacket, body.bytes).Bytes());
  CHECK(captured.problems.empty());
  CHECK(captured.Times() == std::vector<int64_t>{7000});
}

TEST_CASE("simple packets have the first interface's link type and the time of the packet before") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const Captured captured = ReadBytes(PcapngWriter()
                                            .Section(order)
                                            .Interface({.link_type = 101})
                                            .Interface({.link_type = 1})
                                            .Simple("first")
                                            .Enhanced(1, 5, "timed")
                                            .Simple("second")
                                            .Bytes());
    CHECK(captured.problems.empty());
    REQUIRE(captured.frames.size() == 3);
    CHECK(captured.frames[0].time_ns == 0);
    CHECK(captured.frames[0].link_type == 101);
    CHECK(captured.frames[1].link_type == 1);
    CHECK(captured.frames[2].time_ns == 5000);
    CHECK(captured.frames[2].bytes == "second");
  }
}

TEST_CASE("a simple packet is captured up to the snap length") {
  const auto read = [](uint32_t snaplen, std::string_view bytes, uint32_t wire) {
    return ReadBytes(PcapngWriter().Section().Interface({.snaplen = snaplen}).Simple(bytes, wire).Bytes());
  };
  const Captured cut = read(3, "abc", 60);
  REQUIRE(cut.frames.size() == 1);
  CHECK(cut.frames[0].bytes == "abc");
  CHECK(cut.frames[0].wire == 60);
  CHECK(read(96, "abc", 3).Bytes() == Lines{"abc"});
  CHECK(read(0, "abc", 3).Bytes() == Lines{"abc"});
  CHECK(read(0, "abc", 60).problems == Lines{"file:48: a packet of 60 bytes in a block of 20"});
}

TEST_CASE("interfaces differ in link type, resolution and offset") {
  const Captured captured = ReadBytes(PcapngWriter()
                                          .Section()
                                          .Interface({.link_type = 1, .name = "eth0"})
                                          .Interface({.link_type = 101, .resolution = 9})
                                          .Interface({.link_type = 113, .resolution = 0x81, .offset = 100})
                                          .Enhanced(2, 3, "c")
                                          .Enhanced(0, 3, "a")
                                          .Enhanced(1, 3, "b")
                                          .Bytes());
  CHECK(captured.problems.empty());
  REQUIRE(captured.Bytes() == Lines{"c", "a", "b"});
  CHECK(captured.Times() == std::vector<int64_t>{101'500'000'000, 3000, 3});
  CHECK(captured.frames[0].link_type == 113);
  CHECK(captured.frames[1].link_type == 1);
  CHECK(captured.frames[2].link_type == 101);
}

TEST_CASE("an offset may be negative, in both byte orders") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    const Captured captured =
        ReadBytes(PcapngWriter().Section(order).Interface({.offset = -1}).Enhanced(0, 1, "x").Bytes());
    CHECK(captured.Times() == std::vector<int64_t>{-999'999'000});
  }
}

TEST_CASE("raw IP of old systems is raw IP in pcapng too") {
  const Captured captured = ReadBytes(PcapngWriter().Section().Interface({.link_type = 12}).Simple("x").Bytes());
  REQUIRE(captured.frames.size() == 1);
  CHECK(captured.frames[0].link_type == 101);
}

TEST_CASE("a new section has interfaces and a byte order of its own") {
  const Captured captured = ReadBytes(PcapngWriter()
                                          .Section(ByteOrder::kLittle)
                                          .Interface({.link_type = 1})
                                          .Enhanced(0, 1, "little")
                                          .Section(ByteOrder::kBig)
                                          .Interface({.link_type = 113, .resolution = 3})
                                          .Enhanced(0, 2, "big")
                                          .Section(ByteOrder::kLittle, 1, 2)
                                          .Enhanced(0, 3, "none")
                                          .Bytes());
  CHECK(captured.Bytes() == Lines{"little", "big"});
  CHECK(captured.Times() == std::vector<int64_t>{1000, 2'000'000});
  REQUIRE(captured.problems.size() == 1);
  CHECK(captured.problems[0].find("a packet of interface 0, which does not exist") != std::string::npos);
}

TEST_CASE("unknown blocks are passed over, whatever their size") {
  const std::string large(1'000'000, 'x');
  const Captured captured = ReadBytes(OneInterface()
                                          .Block(5, "statistics")
                                          .Block(0x40000bad, large)
                                          .Block(0xbad, "")
                                          .Enhanced(0, 1, "frame", {}, "optional")
                                          .Block(4, "names")
                                          .Bytes(),
                                      1000);
  CHECK(captured.problems.empty());
  CHECK(captured.Bytes() == Lines{"frame"});
}

TEST_CASE("frames of every length lose their padding") {
  PcapngWriter writer = OneInterface();
  Lines expected;
  for (size_t length = 0; length < 9; ++length) {
    expected.push_back(std::string(length, 'x'));
    writer.Enhanced(0, 0, expected.back()).Simple(expected.back()).Packet(0, 0, expected.back());
    expected.insert(expected.end(), 2, std::string(length, 'x'));
  }
  CHECK(ReadBytes(writer.Bytes()).Bytes() == expected);
}

TEST_CASE("a length on the wire of zero is lifted to the captured one in pcapng too") {
  const Captured captured = ReadBytes(OneInterface().Enhanced(0, 0, "frame", 0).Bytes());
  REQUIRE(captured.frames.size() == 1);
  CHECK(captured.frames[0].wire == 5);
}

TEST_CASE("a captured length beyond the block is corrupt") {
  ByteWriter enhanced;
  enhanced.U32(0).U32(0).U32(0).U32(5).U32(5).Padded("four");
  CHECK(ProblemsOf(kEnhancedPacket, enhanced.bytes) == Lines{"file:48: a packet of 5 bytes in a block of 36"});
  ByteWriter huge;
  huge.U32(0).U32(0).U32(0).U32(UINT32_MAX).U32(5).Padded("four");
  CHECK(ProblemsOf(kEnhancedPacket, huge.bytes) == Lines{"file:48: a packet of 4294967295 bytes in a block of 36"});
}

TEST_CASE("blocks too short for their fields are corrupt") {
  CHECK(ProblemsOf(kEnhancedPacket, std::string(16, '\0')) == Lines{"file:48: a packet block of 28 bytes"});
  CHECK(ProblemsOf(kObsoletePacket, std::string(16, '\0')) == Lines{"file:48: a packet block of 28 bytes"});
  CHECK(ProblemsOf(kSimplePacket, "") == Lines{"file:48: a packet block of 12 bytes"});
  CHECK(ProblemsOf(kInterface, std::string(4, '\0')) == Lines{"file:48: an interface block of 16 bytes"});
}

TEST_CASE("block lengths that cannot be are corrupt") {
  const auto problems = [](uint32_t type, uint32_t length) {
    ByteWriter block;
    block.U32(type).U32(length).Raw(std::string(100, '\0'));
    return ReadBytes(OneInterface().Raw(block.bytes).Bytes()).problems;
  };
  CHECK(problems(5, 0) == Lines{"file:48: a block of 0 bytes"});
  CHECK(problems(5, 8) == Lines{"file:48: a block of 8 bytes"});
  CHECK(problems(5, 21) == Lines{"file:48: a block of 21 bytes"});
  CHECK(problems(kEnhancedPacket, 0xfffffff0) ==
        Lines{"file:48: a block of 4294967280 bytes, more than the 16777216 that are possible"});
  CHECK(problems(5, 0xfffffff0) == Lines{"file:48: the file is cut off in the middle of a record"});
}

TEST_CASE("a block must end with the length it began with") {
  const auto problems = [](uint32_t type) {
    ByteWriter block;
    block.U32(type).U32(32).U32(0).U32(0).U32(0).U32(0).U32(0).U32(36);
    return ReadBytes(OneInterface().Raw(block.bytes).Simple("x").Bytes());
  };
  CHECK(problems(kEnhancedPacket).problems == Lines{"file:48: a block of 32 bytes ends as one of 36"});
  CHECK(problems(0xbad).problems == Lines{"file:48: a block of 32 bytes ends as one of 36"});
  CHECK(problems(0xbad).frames.empty());
}

TEST_CASE("damaged sections are corrupt") {
  ByteWriter no_magic;
  no_magic.U32(0x0a0d0d0a).U32(28).U32(0xdeadbeef).U32(0).U32(0).U32(0).U32(28);
  CHECK(ReadBytes(no_magic.bytes).problems == Lines{"file:0: a section header without byte order"});
  ByteWriter too_short;
  too_short.U32(0x0a0d0d0a).U32(24).U32(0x1a2b3c4d).U16(1).U16(0).U32(0).U32(0).U32(24);
  CHECK(ReadBytes(too_short.bytes).problems == Lines{"file:0: a section header of 24 bytes"});
  CHECK(ReadBytes(PcapngWriter().Section(ByteOrder::kBig, 2, 7).Bytes()).problems ==
        Lines{"file:0: pcapng version 2.7 is not known"});
}

TEST_CASE("a section may have options") {
  ByteWriter body;
  body.U32(0x1a2b3c4d).U16(1).U16(0).U64(UINT64_MAX).U16(4).U16(5).Padded("shark").U16(0).U16(0);
  const Captured captured = ReadBytes(PcapngWriter().Block(0x0a0d0d0a, body.bytes).Interface().Simple("x").Bytes());
  CHECK(captured.problems.empty());
  CHECK(captured.Bytes() == Lines{"x"});
}

TEST_CASE("damaged options of an interface are corrupt") {
  const auto problems = [](const ByteWriter& options) {
    ByteWriter body;
    body.U16(1).U16(0).U32(0).Raw(options.bytes);
    return ProblemsOf(kInterface, body.bytes);
  };
  CHECK(problems(ByteWriter()).empty());
  CHECK(problems(ByteWriter().U16(2).U16(4).Raw("eth0")).empty());  // without an end of options
  CHECK(problems(ByteWriter().U16(2).U16(3).Padded("lo0").U16(0).U16(0)).empty());
  const Lines damaged{"file:48: an interface with damaged options"};
  CHECK(problems(ByteWriter().U16(2).U16(5).Raw("eth0")) == damaged);
  CHECK(problems(ByteWriter().U16(2).U16(65535).Raw("eth0")) == damaged);
  CHECK(problems(ByteWriter().U16(9).U16(2).U32(0)) == damaged);
  CHECK(problems(ByteWriter().U16(14).U16(4).U32(0)) == damaged);
  CHECK(problems(ByteWriter().U16(0).U16(0).U16(9).U16(2).U32(0)).empty());  // behind the end of options
}

TEST_CASE("a file of nothing but interfaces does not fill the memory") {
  PcapngWriter writer = PcapngWriter().Section();
  for (int i = 0; i < 65536; ++i) writer.Interface();
  CHECK(ReadBytes(PcapngWriter(writer).Enhanced(65535, 1, "x").Bytes()).Bytes() == Lines{"x"});
  const Captured captured = ReadBytes(writer.Interface().Bytes());
  REQUIRE(captured.problems.size() == 1);
  CHECK(captured.problems[0].find("more than 65536 interfaces in one section") != std::string::npos);
}

TEST_CASE("every prefix of a pcapng file gives its whole frames and says where it is cut") {
  for (const ByteOrder order : {ByteOrder::kLittle, ByteOrder::kBig}) {
    PcapngWriter writer;
    std::vector<size_t> begins{0};  // of blocks, and the end
    std::vector<size_t> frames_before{0};
    const auto note = [&](bool frame) {
      begins.push_back(writer.Bytes().size());
      frames_before.push_back(frames_before.back() + (frame ? 1 : 0));
    };
    writer.Section(order), note(false);
    writer.Interface({.resolution = 9}), note(false);
    writer.Enhanced(0, 1, "one", {}, std::string(8, '\0')), note(true);
    writer.Block(5, "statistics"), note(false);
    writer.Simple("two"), note(true);
    writer.Packet(0, 3, "three"), note(true);
    const Lines all{"one", "two", "three"};
    for (size_t length = 4; length <= writer.Bytes().size(); ++length) {
      CAPTURE(length);
      const Captured captured = ReadBytes(writer.Bytes().substr(0, length));
      size_t block = 0;
      while (block + 1 < begins.size() && begins[block + 1] <= length) ++block;
      CHECK(captured.Bytes() == Lines(all.begin(), all.begin() + static_cast<long>(frames_before[block])));
      Lines expected;
      if (begins[block] != length) {
        expected.push_back("file:" + std::to_string(begins[block]) +
                           ": the file is cut off in the middle of a record");
      }
      CHECK(captured.problems == expected);
    }
  }
}

TEST_CASE("pcapng frames do not depend on how their bytes arrive") {
  PcapngWriter writer = OneInterface(ByteOrder::kBig);
  for (uint32_t i = 0; i < 100; ++i) {
    writer.Enhanced(0, i, std::string(i, 'x')).Block(5, std::string(i, 'y')).Simple("simple");
  }
  const Captured at_once = ReadBytes(writer.Bytes());
  REQUIRE(at_once.frames.size() == 200);
  for (const size_t piece : std::vector<size_t>{1, 2, 3, 5, 12, 16, 100, 1000}) {
    const Captured in_pieces = ReadBytes(writer.Bytes(), piece);
    CHECK(in_pieces.frames == at_once.frames);
    CHECK(in_pieces.problems.empty());
  }
}
