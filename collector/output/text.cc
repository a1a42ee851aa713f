#include "collector/output/text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>

namespace output {
namespace {

// What a byte needs to become printable.
enum Kind : uint8_t { kAsIs, kDot, kQuote, kBackslash, kNotPrintable };

constexpr std::array<uint8_t, 256> MakeKinds() {
  std::array<uint8_t, 256> kinds{};
  for (unsigned byte = 0; byte < 256; ++byte) {
    kinds[byte] = byte < 0x20 || byte > 0x7e ? kNotPrintable : kAsIs;
  }
  kinds['.'] = kDot;
  kinds['"'] = kQuote;
  kinds['\\'] = kBackslash;
  return kinds;
}
constexpr std::array<uint8_t, 256> kKinds = MakeKinds();

char* PutBackslash(char* out, Style style) {
  *out++ = '\\';
  if (style == Style::kJson) *out++ = '\\';
  return out;
}

[[gnu::noinline]] char* PutSpecial(char* out, uint8_t byte, uint8_t kind, Style style) {
  switch (kind) {
    case kQuote:
      if (style == Style::kJson) *out++ = '\\';
      *out++ = '"';
      return out;
    case kBackslash:
      return PutBackslash(PutBackslash(out, style), style);
    case kDot:
      if (style == Style::kHex) return PutHexEscape(out, '.');
      out = PutBackslash(out, style);
      *out++ = '.';
      return out;
    default:
      if (style == Style::kHex) return PutHexEscape(out, static_cast<char>(byte));
      return PutPadded(PutBackslash(out, style), byte, 3);
  }
}

// Sixteen bytes, compared at once.
using Chunk = uint8_t __attribute__((vector_size(16)));

// False when all of them may stay as they are.
template <uint8_t plain>
bool NeedEscapes(const char* bytes) {
  Chunk chunk;
  std::memcpy(&chunk, bytes, sizeof chunk);
  auto found = (chunk < 0x20) | (chunk > 0x7e) | (chunk == '"') | (chunk == '\\');
  if (plain == kAsIs) found |= chunk == '.';
  std::array<uint64_t, 2> halves;
  std::memcpy(&halves, &found, sizeof halves);
  return (halves[0] | halves[1]) != 0;
}

// Whether nothing needs an escape. The last chunk overlaps the one before.
template <uint8_t plain>
bool IsPlain(std::string_view bytes) {
  if (bytes.size() < sizeof(Chunk)) {
    return std::all_of(bytes.begin(), bytes.end(),
                       [](char byte) { return kKinds[static_cast<uint8_t>(byte)] <= plain; });
  }
  const char* const last = bytes.end() - sizeof(Chunk);
  for (const char* at = bytes.begin(); at < last; at += sizeof(Chunk)) {
    if (NeedEscapes<plain>(at)) return false;
  }
  return !NeedEscapes<plain>(last);
}

// Bytes whose kind is at most `plain` stay as they are.
template <uint8_t plain>
char* PutEscaped(char* out, std::string_view bytes, Style style) {
  if (bytes.empty()) return out;  // perhaps a null pointer, which is nothing to copy from
  if (IsPlain<plain>(bytes)) return PutText(out, bytes);
  for (const char character : bytes) {
    const auto byte = static_cast<uint8_t>(character);
    const uint8_t kind = kKinds[byte];
    if (kind <= plain) {
      *out++ = character;
    } else {
      out = PutSpecial(out, byte, kind, style);
    }
  }
  return out;
}

// All numbers of two digits, one behind the other.
constexpr std::array<char, 200> MakePairs() {
  std::array<char, 200> pairs{};
  for (size_t i = 0; i < 100; ++i) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}
constexpr std::array<char, 200> kPairs = MakePairs();

char* PutPair(char* out, uint64_t below_100) {
  std::memcpy(out, &kPairs[2 * below_100], 2);
  return out + 2;
}

char* PutFourDigits(char* out, uint32_t value) { return PutPair(PutPair(out, value / 100), value % 100); }

char* PutEightDigits(char* out, uint32_t value) {
  return PutFourDigits(PutFourDigits(out, value / 10000), value % 10000);
}

char* PutDigit(char* out, uint64_t value) {
  *out = static_cast<char>('0' + value);
  return out + 1;
}

// Without leading zeros, as all that follow.
char* PutBelow10000(char* out, uint32_t value) {
  if (value < 10) return PutDigit(out, value);
  if (value < 100) return PutPair(out, value);
  if (value < 1000) return PutPair(PutDigit(out, value / 100), value % 100);
  return PutFourDigits(out, value);
}

char* PutBelow100Million(char* out, uint32_t value) {
  if (value < 10000) return PutBelow10000(out, value);
  return PutFourDigits(PutBelow10000(out, value / 10000), value % 10000);
}

char* PutUnsigned(char* out, uint64_t value) {
  constexpr uint64_t k100Million = 100'000'000;
  if (value < k100Million) return PutBelow100Million(out, static_cast<uint32_t>(value));
  const uint64_t upper = value / k100Million;
  if (upper < k100Million) {
    out = PutBelow100Million(out, static_cast<uint32_t>(upper));
  } else {
    out = PutBelow10000(out, static_cast<uint32_t>(upper / k100Million));
    out = PutEightDigits(out, static_cast<uint32_t>(upper % k100Million));
  }
  return PutEightDigits(out, static_cast<uint32_t>(value % k100Million));
}

// All octets, each with a dot behind it.
struct Octet {
  std::array<char, 4> text;
  uint8_t length;
};
constexpr std::array<Octet, 256> MakeOctets() {
  std::array<Octet, 256> octets{};
  for (unsigned value = 0; value < octets.size(); ++value) {
    Octet& octet = octets[value];
    for (unsigned power = value < 10 ? 1 : value < 100 ? 10 : 100; power > 0; power /= 10) {
      octet.text[octet.length++] = static_cast<char>('0' + value / power % 10);
    }
    octet.text[octet.length++] = '.';
  }
  return octets;
}
constexpr std::array<Octet, 256> kOctets = MakeOctets();

char* PutIpv4(char* out, const uint8_t* octets) {
  for (int i = 0; i < 4; ++i) {
    const Octet& octet = kOctets[octets[i]];
    std::memcpy(out, octet.text.data(), octet.text.size());
    out += octet.length;
  }
  return out - 1;  // without the last dot
}

struct Run {
  int begin = -1;
  int length = 0;
};

// The longest run of zero groups, the first of equals; a single group is no run (RFC 5952 4.2).
Run LongestZeroRun(const std::array<uint16_t, 8>& groups) {
  Run longest;
  for (int i = 0; i < 8; ++i) {
    int end = i;
    while (end < 8 && groups[static_cast<size_t>(end)] == 0) ++end;
    if (end - i > longest.length && end - i > 1) longest = {i, end - i};
    if (end > i) i = end;
  }
  return longest;
}

char* PutIpv6(char* out, const uint8_t* octets) {
  std::array<uint16_t, 8> groups;
  for (size_t i = 0; i < 8; ++i) groups[i] = static_cast<uint16_t>(octets[2 * i] << 8 | octets[2 * i + 1]);
  const Run zeros = LongestZeroRun(groups);
  // IPv4-mapped addresses show their IPv4 part (RFC 5952 5).
  if (zeros.begin == 0 && zeros.length == 5 && groups[5] == 0xffff) {
    return PutIpv4(PutText(out, "::ffff:"), octets + 12);
  }
  for (int i = 0; i < 8; ++i) {
    if (i == zeros.begin) {
      out = PutText(out, "::");
      i += zeros.length - 1;
      continue;
    }
    if (i > 0 && i != zeros.begin + zeros.length) *out++ = ':';
    out = std::to_chars(out, out + 4, groups[static_cast<size_t>(i)], 16).ptr;
  }
  return out;
}

}  // namespace

char* PutInteger(char* out, int64_t value) {
  auto rest = static_cast<uint64_t>(value);
  if (value < 0) {
    *out++ = '-';
    rest = 0 - rest;
  }
  return PutUnsigned(out, rest);
}

char* PutPadded(char* out, uint64_t value, int digits) {
  for (char* at = out + digits; at != out; value /= 10) *--at = static_cast<char>('0' + value % 10);
  return out + digits;
}

char* PutHexEscape(char* out, char character) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  const auto byte = static_cast<uint8_t>(character);
  out = PutText(out, "\\x");
  *out++ = kDigits[byte >> 4];
  *out++ = kDigits[byte & 0xf];
  return out;
}

char* PutAddress(char* out, const packet::Address& address) {
  if (address.version == 4) return PutIpv4(out, address.octets.data());
  if (address.version == 6) return PutIpv6(out, address.octets.data());
  return out;
}

char* PutBytes(char* out, std::string_view bytes, Style style) { return PutEscaped<kDot>(out, bytes, style); }
bool IsPlainLabel(std::string_view label) { return IsPlain<kAsIs>(label); }
char* PutLabel(char* out, std::string_view label, Style style) { return PutEscaped<kAsIs>(out, label, style); }

char* PutTime(char* out, int64_t time_ns) {
  using namespace std::chrono;
  int64_t whole = time_ns / 1000000000;
  int64_t rest = time_ns % 1000000000;
  if (rest < 0) {  // before 1970: the second that the instant lies in began earlier
    rest += 1000000000;
    --whole;
  }
  const auto day = floor<days>(seconds(whole));
  const year_month_day date{sys_days(day)};
  const auto second = static_cast<uint64_t>((seconds(whole) - day).count());
  out = PutPadded(out, static_cast<uint64_t>(static_cast<int>(date.year())), 4);
  out = PutPadded(PutText(out, "-"), static_cast<unsigned>(date.month()), 2);
  out = PutPadded(PutText(out, "-"), static_cast<unsigned>(date.day()), 2);
  out = PutPadded(PutText(out, " "), second / 3600, 2);
  out = PutPadded(PutText(out, ":"), second / 60 % 60, 2);
  out = PutPadded(PutText(out, ":"), second % 60, 2);
  return PutPadded(PutText(out, "."), static_cast<uint64_t>(rest) / 1000, 6);
}

char* PutMilliseconds(char* out, int64_t microseconds) {
  auto rest = static_cast<uint64_t>(microseconds);
  if (microseconds < 0) {
    *out++ = '-';
    rest = 0 - rest;
  }
  out = PutInteger(out, static_cast<int64_t>(rest / 1000));
  return PutPadded(PutText(out, "."), rest % 1000, 3);
}

std::string Printable(std::string_view bytes) {
  std::string text(bytes.size() * kLongestEscape, '\0');
  const char* end = PutBytes(text.data(), bytes, Style::kPlain);
  text.resize(static_cast<size_t>(end - text.data()));
  return text;
}

std::string TimeText(int64_t time_ns) {
  char text[kLongestTime];
  return std::string(text, PutTime(text, time_ns));
}

}  // namespace output
