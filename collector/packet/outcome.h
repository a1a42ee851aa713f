#pragma once

#include <cstdint>

namespace packet {

// What became of a frame. Every frame has exactly one.
enum class Outcome : uint8_t {
  kDatagram,         // a UDP datagram or TCP segment is in the result
  kUnknownLinkType,  // counted by name as well
  kNotIp,            // ARP, STP and the like; encrypted 802.11
  kNotUdpOrTcp,      // ICMP and the like
  kTruncated,        // captured too short for its headers
  kMalformed,        // header fields contradict each other, or leave no room for a header
  kTooDeep,          // more layers than the decoder follows
  kFragment,         // kept until the rest of its packet arrives; FragmentCounts says what became of it
  kCount
};

// The outcome's name as the account shows it ("not_ip").
const char* OutcomeName(Outcome outcome);

}  // namespace packet
