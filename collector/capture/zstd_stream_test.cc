#include "collector/capture/zstd_stream.h"

#include <doctest/doctest.h>

#include <string>

#include "tests/support/compress.h"
#include "tests/support/pcap_writer.h"
#include "tests/support/unpack.h"

namespace {

using test::Sample;
using test::Unpacked;
using test::Zstd;

Unpacked Unpack(const std::string& packed, size_t piece = SIZE_MAX, size_t room = 65536,
                const std::string& source_damage = {}) {
  return test::Unpack<capture::ZstdStream>(packed, piece, room, source_damage);
}

constexpr size_t kBlock = 128 * 1024;

// Where a block's header begins in the one frame of `packed` (RFC 8878 3.1.1).
size_t BlockBegin(const std::string& packed, int number) {
  size_t at = 5;  // magic number and descriptor
  const auto descriptor = static_cast<uint8_t>(packed[at - 1]);
  const bool single_segment = (descriptor & 0x20) != 0;
  constexpr size_t kContentSizes[] = {0, 2, 4, 8};
  at += single_segment ? 0 : 1;
  at += kContentSizes[descriptor >> 6];
  for (int i = 0; i < number; ++i) {
    const auto byte = [&](size_t index) { return static_cast<size_t>(static_cast<uint8_t>(packed[at + index])); };
    at += 3 + ((byte(0) | byte(1) << 8 | byte(2) << 16) >> 3);
  }
  return at;
}

}  // namespace

TEST_CASE("zstd data are unpacked") {
  const Unpacked unpacked = Unpack(Zstd("some text"));
  CHECK(unpacked.bytes == "some text");
  CHECK(unpacked.damage.empty());
}

TEST_CASE("zstd frames stand one behind the other") {
  const Unpacked unpacked = Unpack(Zstd("one ") + Zstd("") + Zstd("two"));
  CHECK(unpacked.bytes == "one two");
  CHECK(unpacked.damage.empty());
}

TEST_CASE("zstd data that fill the buffer exactly have an end") {
  const std::string sample = Sample(1000);
  std::string packed(ZSTD_compressBound(sample.size()), '\0');
  packed.resize(ZSTD_compress(packed.data(), packed.size(), sample.data(), sample.size(), 1));  // without checksum
  for (const size_t room : {size_t{500}, size_t{1000}, size_t{1001}}) {
    const Unpacked unpacked = Unpack(packed, SIZE_MAX, room);
    CHECK(unpacked.bytes == sample);
    CHECK(unpacked.damage.empty());
  }
}

TEST_CASE("zstd data do not depend on how they arrive or leave") {
  const std::string sample = Sample(20000);
  const std::string packed = Zstd(sample) + Zstd(sample);
  for (const size_t piece : {size_t{1}, size_t{2}, size_t{1000}}) {
    for (const size_t room : {size_t{1}, size_t{3}, size_t{4096}, size_t{20000}, size_t{40000}}) {
      const Unpacked unpacked = Unpack(packed, piece, room);
      CHECK(unpacked.bytes == sample + sample);
      CHECK(unpacked.damage.empty());
    }
  }
}

TEST_CASE("a second zstd frame that is cut off costs nothing of the first") {
  const std::string second = Zstd("second");
  for (size_t length = 1; length < second.size(); ++length) {
    const Unpacked unpacked = Unpack(Zstd("first") + second.substr(0, length));
    CHECK(unpacked.bytes.substr(0, 5) == "first");
    CHECK(unpacked.damage == "the zstd data are cut off");
  }
}

TEST_CASE("a source that fails is the reason for missing zstd data") {
  const std::string packed = Zstd("some text");
  CHECK(Unpack(packed.substr(0, 12), SIZE_MAX, 100, "disk on fire").damage == "disk on fire");
  CHECK(Unpack(packed, SIZE_MAX, 100, "disk on fire").damage == "disk on fire");
}

TEST_CASE("skippable zstd frames are passed over") {
  const std::string skippable = test::ByteWriter().U32(0x184d2a50).U32(1000).Raw(std::string(1000, 'x')).bytes;
  for (const size_t piece : {size_t{1}, size_t{100}, SIZE_MAX}) {
    const Unpacked unpacked = Unpack(skippable + Zstd("one ") + skippable + Zstd("two") + skippable, piece);
    CHECK(unpacked.bytes == "one two");
    CHECK(unpacked.damage.empty());
  }
}

TEST_CASE("zstd data that are cut off give every whole block") {
  const std::string sample = Sample(1 << 20);
  const std::string packed = Zstd(sample);
  const auto cut = [&](size_t length) {
    const Unpacked unpacked = Unpack(packed.substr(0, length), 5000);
    CHECK(unpacked.damage == "the zstd data are cut off");
    CHECK(sample.compare(0, unpacked.bytes.size(), unpacked.bytes) == 0);
    return unpacked.bytes.size();
  };
  CHECK(cut(1) == 0);
  CHECK(cut(packed.size() / 2) >= (size_t{1} << 19) - kBlock);
  CHECK(cut(packed.size() - 1) == sample.size());  // only the checksum was missing
}

TEST_CASE("damage in a zstd block costs nothing that stands before it") {
  const std::string sample = Sample(4 * kBlock);
  const std::string packed = Zstd(sample);
  const size_t third = BlockBegin(packed, 2);
  for (const size_t behind : {size_t{0}, size_t{1}}) {
    std::string damaged = packed;
    // Either a header that names a reserved type of block, or a block whose first section is nonsense.
    damaged[third + behind * 3] = '\xff';
    if (behind == 0) damaged[third + 1] = '\xff';
    for (const size_t room : {size_t{1000}, size_t{65536}, size_t{1} << 20}) {
      const Unpacked unpacked = Unpack(damaged, SIZE_MAX, room);
      CHECK(unpacked.damage.find("the zstd data are damaged (") == 0);
      CHECK(unpacked.bytes == sample.substr(0, 2 * kBlock));
    }
  }
}

TEST_CASE("a wrong zstd checksum is damage behind all the data") {
  std::string packed = Zstd("some text");
  packed.back() ^= 1;
  const Unpacked unpacked = Unpack(packed);
  CHECK(unpacked.bytes == "some text");
  CHECK(unpacked.damage.find("the zstd data are damaged (") == 0);
}

TEST_CASE("anything else behind the last zstd frame is damage") {
  const Unpacked unpacked = Unpack(Zstd("text") + "some junk");
  CHECK(unpacked.bytes == "text");
  CHECK(unpacked.damage.find("the zstd data are damaged (") == 0);
}
