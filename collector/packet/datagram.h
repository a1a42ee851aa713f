#pragma once

#include <array>
#include <compare>
#include <cstdint>

#include "collector/packet/address.h"

namespace packet {

// The outermost tunnel that a packet came through. kGre includes ERSPAN and PPTP; kOther is EtherIP and MPLS in IP.
enum class Tunnel : uint8_t { kNone, kIpInIp, k6in4, kGre, kVxlan, kGeneve, kTeredo, kGtp, kOther };

// The tunnel's name as records show it ("ipip", "6in4", "gre", "vxlan", "geneve", "teredo", "gtp", "other"), "" for
// none.
const char* TunnelName(Tunnel tunnel);

// The tags and tunnels around a packet, outermost first.
struct Encapsulation {
  static constexpr int kMaxTags = 4;  // deeper tags are decoded but not kept

  std::array<uint16_t, kMaxTags> vlan{};  // VLAN identifiers, 12 bits
  uint8_t vlan_count = 0;
  Tunnel tunnel = Tunnel::kNone;
  uint32_t tunnel_id = 0;  // VNI of VXLAN and GENEVE, key of GRE (call of PPTP), TEID of GTP; 0 for the others

  friend bool operator==(const Encapsulation&, const Encapsulation&) = default;
  friend auto operator<=>(const Encapsulation&, const Encapsulation&) = default;
};

// Flags of the TCP header (RFC 9293 3.1).
inline constexpr uint8_t kTcpFin = 0x01;
inline constexpr uint8_t kTcpSyn = 0x02;
inline constexpr uint8_t kTcpRst = 0x04;

// A UDP datagram or a TCP segment, reassembled from IP fragments where it came in several. Ports are in host
// byte order. The payload lies in the frame or in the decoder; it stays valid until the frame goes or the decoder
// is called again.
struct Datagram {
  int64_t time_ns = 0;  // of the frame that completed it; of its first fragment where the rest never came
  Address source;
  Address destination;
  uint16_t source_port = 0;
  uint16_t destination_port = 0;
  uint8_t transport = 0;  // 6 TCP, 17 UDP
  uint8_t tcp_flags = 0;
  uint32_t tcp_sequence = 0;         // of the first payload byte; of the SYN itself where it is set
  const uint8_t* payload = nullptr;  // at least one readable byte lies behind the captured ones
  uint32_t captured = 0;             // payload bytes present, never more than nominal; may be 0
  uint32_t nominal = 0;              // payload bytes by the length fields of the headers
  Encapsulation encapsulation;
};

}  // namespace packet
