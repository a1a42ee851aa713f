#pragma once

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

namespace packet {

// An IPv4 or IPv6 address. IPv4 fills the first four octets; the rest is zero.
struct Address {
  std::array<uint8_t, 16> octets{};  // network order
  uint8_t version = 0;               // 4, 6, or 0 for none

  friend bool operator==(const Address&, const Address&) = default;
  friend auto operator<=>(const Address&, const Address&) = default;

  // The IPv4 address as it lies in memory in network order.
  uint32_t Ipv4() const {
    uint32_t value;
    std::memcpy(&value, octets.data(), sizeof value);
    return value;
  }
};

// Room for any address's text, and for AppendText to scribble behind it.
inline constexpr size_t kAddressTextSpace = 48;

// Dotted text, or IPv6 text in the canonical form of RFC 5952 (IPv4-mapped and IPv4-compatible addresses end
// dotted, as inet_ntop writes them). "" for no address.
std::string ToText(const Address& address);

// The same text at `at`, where kAddressTextSpace bytes must be free. Returns its end; there is no terminator.
char* AppendText(char* at, const Address& address);

}  // namespace packet
