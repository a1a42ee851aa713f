#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "collector/packet/address.h"

// Writers of text into memory that the caller has made room in. Each returns the end of what it wrote; none of them
// allocates, asks a locale or writes anything but printable ASCII.
namespace output {

// What the text is written for. Inside JSON, quotes and backslashes get a backslash in front. In a hexadecimal
// text, what would be "\DDD" is "\xHH" instead, and so is a dot inside a label.
enum class Style : uint8_t { kPlain, kJson, kHex };

inline char* PutText(char* out, std::string_view text) {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

// A short text that is known before the run: it is copied whole, in one piece of fixed size, however long it is.
// Needs room for kRoomForWord characters, of which those behind the text are overwritten by what comes next.
class Word {
 public:
  static constexpr size_t kLongest = 31;

  constexpr Word() = default;
  constexpr explicit Word(std::string_view text) : length(static_cast<uint8_t>(text.size())) {
    for (size_t i = 0; i < text.size(); ++i) characters.at(i) = text[i];
  }

  constexpr std::string_view text() const { return {characters.data(), length}; }
  constexpr bool empty() const { return length == 0; }

  char* Put(char* out) const {
    std::memcpy(out, characters.data(), characters.size());
    return out + length;
  }

 private:
  std::array<char, kLongest> characters{};
  uint8_t length = 0;
};
inline constexpr size_t kRoomForWord = Word::kLongest;

// At most 20 characters.
char* PutInteger(char* out, int64_t value);

// With leading zeros up to `digits`.
char* PutPadded(char* out, uint64_t value, int digits);

// Dotted text, or IPv6 text in the canonical form of RFC 5952; nothing for an address of no version. At most
// kLongestAddress characters.
char* PutAddress(char* out, const packet::Address& address);
inline constexpr int kLongestAddress = 39;

// "\x2e".
char* PutHexEscape(char* out, char character);

// Arbitrary bytes made printable: a backslash as "\\", bytes that are not printable ASCII as "\DDD" (decimal).
// At most kLongestEscape characters a byte.
char* PutBytes(char* out, std::string_view bytes, Style style);

// The bytes of one label of a name: as PutBytes, and a dot as "\.".
char* PutLabel(char* out, std::string_view label, Style style);
bool IsPlainLabel(std::string_view label);  // whether PutLabel writes the bytes as they are, in every style
inline constexpr int kLongestEscape = 5;

// "2026-01-31 12:34:56.789012" in UTC. At most kLongestTime characters.
char* PutTime(char* out, int64_t time_ns);
inline constexpr int kLongestTime = 32;

// Milliseconds with three decimals, "12.345".
char* PutMilliseconds(char* out, int64_t microseconds);

// The same as texts, for places where speed does not matter.
std::string Printable(std::string_view bytes);
std::string TimeText(int64_t time_ns);

}  // namespace output
