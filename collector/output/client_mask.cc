#include "collector/output/client_mask.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace output {
namespace {

// The number from `at` on, no more than `most`; moves behind it. -1 when there is none.
int Bits(const char** at, const char* end, int most) {
  int bits = -1;
  const auto parsed = std::from_chars(*at, end, bits);
  if (parsed.ec != std::errc() || bits > most) return -1;
  *at = parsed.ptr;
  return bits;
}

}  // namespace

ClientMask::ClientMask(const std::string& text) {
  const char* at = text.data();
  const char* const end = at + text.size();
  ipv4 = Bits(&at, end, 32);
  const bool comma = at != end && *at == ',';
  if (comma) ++at;
  ipv6 = Bits(&at, end, 128);
  if (ipv4 < 0 || !comma || ipv6 < 0 || at != end) {
    throw std::runtime_error("'" + text + "' is not a length for IPv4 and one for IPv6, such as 24,48");
  }
}

packet::Address ClientMask::Applied(const packet::Address& address) const {
  packet::Address masked = address;
  int left = address.version == 4 ? ipv4 : ipv6;
  for (uint8_t& octet : masked.octets) {
    const int kept = std::clamp(left, 0, 8);
    octet = static_cast<uint8_t>(octet & (0xff00 >> kept));
    left -= 8;
  }
  return masked;
}

}  // namespace output
