#include "collector/packet/address.h"

#include <algorithm>
#include <array>

namespace packet {
namespace {

// An octet's decimal digits and a dot.
struct OctetText {
  std::array<char, 4> text;
  uint8_t size;  // with the dot
};

constexpr char Digit(int value) { return static_cast<char>('0' + value); }

constexpr OctetText MakeOctetText(int value) {
  if (value > 99) return {{Digit(value / 100), Digit(value / 10 % 10), Digit(value % 10), '.'}, 4};
  if (value > 9) return {{Digit(value / 10), Digit(value % 10), '.', 0}, 3};
  return {{Digit(value), '.', 0, 0}, 2};
}

constexpr std::array<OctetText, 256> MakeOctetTexts() {
  std::array<OctetText, 256> texts{};
  for (int value = 0; value < 256; ++value) texts[static_cast<size_t>(value)] = MakeOctetText(value);
  return texts;
}

constexpr std::array<OctetText, 256> kOctetTexts = MakeOctetTexts();

char* AppendDotted(char* at, const uint8_t* octets) {
  for (int i = 0; i < 4; ++i) {
    const OctetText& octet = kOctetTexts[octets[i]];
    std::memcpy(at, octet.text.data(), octet.text.size());
    at += octet.size;
  }
  return at - 1;  // without the last dot
}

char* AppendHex(char* at, unsigned group) {
  static constexpr char kDigits[] = "0123456789abcdef";
  if (group > 0xfff) *at++ = kDigits[group >> 12];
  if (group > 0xff) *at++ = kDigits[group >> 8 & 15];
  if (group > 0xf) *at++ = kDigits[group >> 4 & 15];
  *at++ = kDigits[group & 15];
  return at;
}

using Groups = std::array<unsigned, 8>;

Groups ToGroups(const Address& address) {
  Groups groups;
  for (size_t i = 0; i < groups.size(); ++i) {
    groups[i] = static_cast<unsigned>(address.octets[2 * i] << 8 | address.octets[2 * i + 1]);
  }
  return groups;
}

struct Run {
  int begin;
  int size;
};

// The longest run of zero groups, the first of several; a single group is not shortened (RFC 5952 4.2).
Run LongestZeroRun(const Groups& groups) {
  Run longest{-1, 1};
  int size = 0;
  for (int i = 0; i < 8; ++i) {
    size = groups[static_cast<size_t>(i)] == 0 ? size + 1 : 0;
    if (size > longest.size) longest = {i + 1 - size, size};
  }
  return longest;
}

bool EndsDotted(const Groups& groups, Run zeros) {
  return zeros.begin == 0 && (zeros.size == 6 || (zeros.size == 5 && groups[5] == 0xffff));
}

char* AppendIpv6(char* at, const Address& address) {
  const Groups groups = ToGroups(address);
  const Run zeros = LongestZeroRun(groups);
  const int hex_groups = EndsDotted(groups, zeros) ? 6 : 8;
  for (int i = 0; i < hex_groups; ++i) {
    if (i == zeros.begin) {
      *at++ = ':';
      i += zeros.size - 1;
      if (i == 7) *at++ = ':';
      continue;
    }
    if (i > 0) *at++ = ':';
    at = AppendHex(at, groups[static_cast<size_t>(i)]);
  }
  if (hex_groups == 8) return at;
  *at++ = ':';
  return AppendDotted(at, address.octets.data() + 12);
}

}  // namespace

char* AppendText(char* at, const Address& address) {
  if (address.version == 4) [[likely]]
    return AppendDotted(at, address.octets.data());
  return address.version == 6 ? AppendIpv6(at, address) : at;
}

std::string ToText(const Address& address) {
  std::array<char, kAddressTextSpace> text;
  return {text.data(), AppendText(text.data(), address)};
}

}  // namespace packet
