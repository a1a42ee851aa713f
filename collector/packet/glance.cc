#include <cstring>

#include "collector/packet/decoder.h"

namespace packet {
namespace {

constexpr uint16_t kEthernet = 1;
constexpr size_t kEthernetHeader = 14;
constexpr size_t kIpv4Header = 20;
constexpr uint32_t kNeeded = kEthernetHeader + kIpv4Header + 4;
constexpr uint8_t kUdp = 17;

uint16_t Word(const uint8_t* at) { return static_cast<uint16_t>(at[0] << 8 | at[1]); }

void SetIpv4(Address* address, const uint8_t* octets) {
  std::memcpy(address->octets.data(), octets, 4);
  address->version = 4;
}

}  // namespace

bool Glance(const capture::Frame& frame, Datagram* datagram) {
  if (frame.link_type != kEthernet || frame.captured < kNeeded) return false;
  const uint8_t* ip = frame.data + kEthernetHeader;
  constexpr uint16_t kFragment = 0x3fff;  // the offset, and that more follow
  if (Word(ip - 2) != 0x0800 || ip[0] != 0x45 || ip[9] != kUdp || (Word(ip + 6) & kFragment) != 0) return false;
  SetIpv4(&datagram->source, ip + 12);
  SetIpv4(&datagram->destination, ip + 16);
  datagram->source_port = Word(ip + kIpv4Header);
  datagram->destination_port = Word(ip + kIpv4Header + 2);
  datagram->transport = kUdp;
  return true;
}

}  // namespace packet
