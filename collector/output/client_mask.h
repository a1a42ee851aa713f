#pragma once

#include <cstdint>
#include <string>

#include "collector/packet/address.h"

namespace output {

// How much of a client's address may be seen: so many bits from the left, the others are zero.
class ClientMask {
 public:
  // "24,48": the bits of IPv4 and of IPv6 addresses. Throws std::runtime_error for anything else.
  explicit ClientMask(const std::string& text);

  packet::Address Applied(const packet::Address& address) const;

  int ipv4_bits() const { return ipv4; }
  int ipv6_bits() const { return ipv6; }

 private:
  int ipv4 = 32;
  int ipv6 = 128;
};

}  // namespace output
