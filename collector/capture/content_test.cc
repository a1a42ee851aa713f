#include "collector/capture/content.h"

#include <doctest/doctest.h>

#include <initializer_list>
#include <vector>

namespace {

using capture::Content;

Content Of(std::initializer_list<uint8_t> bytes) { return capture::ContentOf(std::vector<uint8_t>(bytes)); }

}  // namespace

TEST_CASE("pcap is recognised in all its kinds and byte orders") {
  CHECK(Of({0xa1, 0xb2, 0xc3, 0xd4}) == Content::kPcap);
  CHECK(Of({0xd4, 0xc3, 0xb2, 0xa1}) == Content::kPcap);
  CHECK(Of({0xa1, 0xb2, 0x3c, 0x4d}) == Content::kPcap);
  CHECK(Of({0x4d, 0x3c, 0xb2, 0xa1}) == Content::kPcap);
  CHECK(Of({0xa1, 0xb2, 0xcd, 0x34}) == Content::kPcap);
  CHECK(Of({0x34, 0xcd, 0xb2, 0xa1}) == Content::kPcap);
}

TEST_CASE("pcapng is recognised by its first block") { CHECK(Of({0x0a, 0x0d, 0x0d, 0x0a}) == Content::kPcapng); }

TEST_CASE("compressed files are recognised") {
  CHECK(Of({0x1f, 0x8b, 0x08, 0x00}) == Content::kGzip);
  CHECK(Of({0x28, 0xb5, 0x2f, 0xfd}) == Content::kZstd);
}

TEST_CASE("a skippable frame begins a zstd file") {
  CHECK(Of({0x50, 0x2a, 0x4d, 0x18}) == Content::kZstd);
  CHECK(Of({0x5f, 0x2a, 0x4d, 0x18}) == Content::kZstd);
  CHECK(Of({0x60, 0x2a, 0x4d, 0x18}) == Content::kUnknown);
  CHECK(Of({0x50, 0x2a, 0x4d, 0x19}) == Content::kUnknown);
}

TEST_CASE("anything else is unknown, and so is what is too short") {
  CHECK(Of({'t', 'e', 'x', 't'}) == Content::kUnknown);
  CHECK(Of({0, 0, 0, 0}) == Content::kUnknown);
  CHECK(Of({0x1f, 0x8b, 0x08}) == Content::kUnknown);
  CHECK(Of({0x1f, 0x8c, 0x08, 0x00}) == Content::kUnknown);
  CHECK(Of({0x28, 0xb5, 0x2f, 0xfc}) == Content::kUnknown);
  CHECK(Of({}) == Content::kUnknown);
}
