#include "collector/packet/bytes.h"

#include <doctest/doctest.h>

using packet::Bytes;
using packet::Outcome;

namespace {

constexpr uint8_t kData[] = {1, 2, 3, 4, 5, 6};

}  // namespace

TEST_CASE("numbers are read in network order, or little-endian by name") {
  const Bytes bytes{kData, 6, 6};
  CHECK(bytes.U8(5) == 6);
  CHECK(bytes.U16(1) == 0x0203);
  CHECK(bytes.U32(1) == 0x02030405);
  CHECK(bytes.LittleU16(1) == 0x0302);
  CHECK(bytes.LittleU32(1) == 0x05040302);
}

TEST_CASE("a header is missing because the capture cut it, or because there is no room for it") {
  const Bytes bytes{kData, 3, 5};
  CHECK(bytes.Has(3));
  CHECK_FALSE(bytes.Has(4));
  CHECK(bytes.Missing(4) == Outcome::kTruncated);
  CHECK(bytes.Missing(5) == Outcome::kTruncated);
  CHECK(bytes.Missing(6) == Outcome::kMalformed);
}

TEST_CASE("parts keep captured and nominal apart") {
  const Bytes bytes{kData, 4, 6};
  const Bytes rest = bytes.From(3);
  CHECK(rest.data == kData + 3);
  CHECK(rest.captured == 1);
  CHECK(rest.nominal == 3);
  CHECK(bytes.First(5).captured == 4);
  CHECK(bytes.First(5).nominal == 5);
  CHECK(bytes.First(2).captured == 2);
  CHECK(bytes.First(9).nominal == 6);
  CHECK(bytes.Claiming(9).captured == 4);
  CHECK(bytes.Claiming(9).nominal == 9);
  CHECK(bytes.Claiming(2).captured == 2);
}
