#include "collector/capture/filter.h"

#include <doctest/doctest.h>

#include <map>
#include <stdexcept>
#include <string>

#include "tests/support/pcap_writer.h"

namespace {

using capture::Filter;
using capture::Frame;
using test::ByteOrder;
using test::ByteWriter;

// IPv4 and UDP headers with this destination port.
std::string Datagram(uint16_t port) {
  ByteWriter out(ByteOrder::kBig);
  out.U8(0x45).U8(0).U16(28).U32(0).U8(64).U8(17).U16(0).U32(0xc0000201).U32(0xc0000202);
  return out.U16(40000).U16(port).U16(8).U16(0).bytes;
}

std::string Ethernet(uint16_t port) {
  return ByteWriter(ByteOrder::kBig).Raw("aaaaaabbbbbb").U16(0x0800).Raw(Datagram(port)).bytes;
}

bool Match(Filter* filter, uint16_t link_type, const std::string& bytes, uint32_t wire = 0, uint32_t lost = 0) {
  Frame frame;
  frame.data = reinterpret_cast<const uint8_t*>(bytes.data());
  frame.captured = static_cast<uint32_t>(bytes.size()) - lost;
  frame.wire = wire == 0 ? frame.captured : wire;
  frame.link_type = link_type;
  return filter->Matches(frame);
}

constexpr uint16_t kEthernet = 1;
constexpr uint16_t kRaw = 101;
constexpr uint16_t kLinuxCooked = 113;
constexpr uint16_t kUsb = 189;

}  // namespace

TEST_CASE("a filter lets through what it describes") {
  Filter filter("udp dst port 53");
  CHECK(Match(&filter, kEthernet, Ethernet(53)));
  CHECK_FALSE(Match(&filter, kEthernet, Ethernet(54)));
}

TEST_CASE("a filter is compiled for each link type") {
  Filter filter("udp dst port 53");
  CHECK(Match(&filter, kRaw, Datagram(53)));
  CHECK_FALSE(Match(&filter, kRaw, Datagram(54)));
  CHECK(Match(&filter, kEthernet, Ethernet(53)));
  const std::string cooked =
      ByteWriter(ByteOrder::kBig).Raw(std::string(14, '\0')).U16(0x0800).Raw(Datagram(53)).bytes;
  CHECK(Match(&filter, kLinuxCooked, cooked));
  CHECK_FALSE(Match(&filter, kLinuxCooked, Ethernet(53)));
  CHECK(filter.NotFiltered().empty());
}

TEST_CASE("an empty filter lets everything through") {
  Filter filter("");
  CHECK(Match(&filter, kEthernet, "x"));
  CHECK(Match(&filter, kRaw, ""));
}

TEST_CASE("a filter sees both lengths of a frame") {
  Filter long_frames("greater 100");
  CHECK(Match(&long_frames, kEthernet, Ethernet(53), 100));
  CHECK_FALSE(Match(&long_frames, kEthernet, Ethernet(53), 99));
  Filter cut("udp dst port 53");
  CHECK_FALSE(Match(&cut, kEthernet, Ethernet(53), 42, 5));
  CHECK(Match(&cut, kEthernet, Ethernet(53), 42, 4));
}

TEST_CASE("a wrong expression is told in libpcap's words") {
  CHECK_THROWS_WITH_AS(Filter("udp and and 53"), doctest::Contains("syntax error"), std::runtime_error);
  CHECK_THROWS_WITH_AS(Filter("udp and and 53"), doctest::Contains("filter 'udp and and 53': "),
                       std::runtime_error);
  CHECK_THROWS_AS(Filter("port"), std::runtime_error);
  CHECK_THROWS_AS(Filter("tcp["), std::runtime_error);
}

TEST_CASE("frames of a link type for which the expression makes no sense are counted by its name") {
  Filter filter("ether host 02:00:00:00:00:01");
  CHECK_FALSE(Match(&filter, kUsb, "x"));
  CHECK_FALSE(Match(&filter, kRaw, Datagram(53)));
  CHECK_FALSE(Match(&filter, kUsb, "x"));
  CHECK_FALSE(Match(&filter, kEthernet, Ethernet(53)));
  CHECK(filter.NotFiltered() == std::map<std::string, uint64_t>{{"USB_LINUX", 2}, {"RAW", 1}});
}
