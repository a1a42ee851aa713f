#include "collector/capture/gzip_stream.h"

#include <doctest/doctest.h>

#include <string>

#include "tests/support/compress.h"
#include "tests/support/unpack.h"

namespace {

using test::Gzip;
using test::Sample;
using test::Unpacked;

Unpacked Unpack(const std::string& packed, size_t piece = SIZE_MAX, size_t room = 65536,
                const std::string& source_damage = {}) {
  return test::Unpack<capture::GzipStream>(packed, piece, room, source_damage);
}

}  // namespace

TEST_CASE("gzip data are unpacked") {
  const Unpacked unpacked = Unpack(Gzip("some text"));
  CHECK(unpacked.bytes == "some text");
  CHECK(unpacked.damage.empty());
}

TEST_CASE("gzip members stand one behind the other") {
  const Unpacked unpacked = Unpack(Gzip("one ") + Gzip("") + Gzip("two"));
  CHECK(unpacked.bytes == "one two");
  CHECK(unpacked.damage.empty());
}

TEST_CASE("gzip data do not depend on how they arrive or leave") {
  const std::string sample = Sample(20000);
  const std::string packed = Gzip(sample) + Gzip(sample);
  for (const size_t piece : {size_t{1}, size_t{2}, size_t{1000}}) {
    for (const size_t room : {size_t{1}, size_t{3}, size_t{4096}, size_t{20000}, size_t{40000}}) {
      const Unpacked unpacked = Unpack(packed, piece, room);
      CHECK(unpacked.bytes == sample + sample);
      CHECK(unpacked.damage.empty());
    }
  }
}

TEST_CASE("zeros behind the last gzip member are padding") {
  const Unpacked unpacked = Unpack(Gzip("text") + std::string(1000, '\0'));
  CHECK(unpacked.bytes == "text");
  CHECK(unpacked.damage.empty());
}

TEST_CASE("anything else behind the last gzip member is damage") {
  const Unpacked unpacked = Unpack(Gzip("text") + "junk");
  CHECK(unpacked.bytes == "text");
  CHECK(unpacked.damage == "something else stands behind the gzip data");
}

TEST_CASE("gzip data that are cut off give what they have at every place") {
  const std::string sample = Sample(2000);
  const std::string packed = Gzip(sample);
  size_t longest = 0;
  for (size_t length = 1; length < packed.size(); ++length) {
    const Unpacked unpacked = Unpack(packed.substr(0, length));
    CHECK(unpacked.damage == "the gzip data are cut off");
    CHECK(sample.compare(0, unpacked.bytes.size(), unpacked.bytes) == 0);
    CHECK(unpacked.bytes.size() >= longest);
    longest = unpacked.bytes.size();
  }
  CHECK(longest == sample.size());  // only the checksum was missing
}

TEST_CASE("gzip data that are cut off give no less to small buffers") {
  const std::string packed = Gzip(std::string(100'000, 'x') + Sample(100));
  for (const size_t length : {packed.size() - 8, packed.size() / 2, size_t{60}}) {
    const std::string cut = packed.substr(0, length);
    CHECK(Unpack(cut, SIZE_MAX, 7).bytes == Unpack(cut).bytes);
  }
}

TEST_CASE("what does not even begin as gzip is damaged") {
  CHECK(Unpack("junk").damage == "the gzip data are damaged (incorrect header check)");
}

TEST_CASE("a second gzip member that is cut off costs nothing of the first") {
  const std::string second = Gzip("second");
  for (size_t length = 1; length < second.size(); ++length) {
    const Unpacked unpacked = Unpack(Gzip("first") + second.substr(0, length));
    CHECK(unpacked.bytes.substr(0, 5) == "first");
    CHECK(unpacked.damage == "the gzip data are cut off");
  }
}

TEST_CASE("damaged gzip data give what stands before the damage") {
  const std::string sample = Sample(1 << 20);
  std::string packed = Gzip(sample);
  packed.replace(packed.size() / 2, 64, std::string(64, '\xff'));
  const Unpacked unpacked = Unpack(packed);
  CHECK(unpacked.damage.find("the gzip data are damaged (") == 0);
  size_t same = 0;
  while (same < unpacked.bytes.size() && unpacked.bytes[same] == sample[same]) ++same;
  CHECK(same > sample.size() / 3);
}

TEST_CASE("a wrong gzip checksum is damage behind all the data") {
  std::string packed = Gzip("some text");
  packed[packed.size() - 8] ^= 1;
  const Unpacked unpacked = Unpack(packed);
  CHECK(unpacked.bytes == "some text");
  CHECK(unpacked.damage == "the gzip data are damaged (incorrect data check)");
}

TEST_CASE("a source that fails is the reason for missing gzip data") {
  const std::string packed = Gzip("some text");
  CHECK(Unpack(packed.substr(0, 12), SIZE_MAX, 100, "disk on fire").damage == "disk on fire");
  CHECK(Unpack(packed, SIZE_MAX, 100, "disk on fire").damage == "disk on fire");
}
