#include "collector/flow/plausible.h"

namespace flow {

namespace {

constexpr uint32_t kHeader = 12;
constexpr uint32_t kSmallestQuestion = 5;  // the root name, type, class
constexpr uint32_t kSmallestRecord = 11;   // the root name, type, class, time to live, length of nothing

constexpr int kQuery = 0;
constexpr int kUpdate = 5;  // RFC 2136; the highest opcode that the parser knows
constexpr int kLongestLabel = 63;

// The fields of the header behind a prefix (RFC 1035 4.1.1).
struct Header {
  explicit Header(const uint8_t* data)
      : length(Word(data)),
        flags(Word(data + 4)),
        questions(Word(data + 6)),
        answers(Word(data + 8)),
        authorities(Word(data + 10)),
        additionals(Word(data + 12)) {}

  static uint32_t Word(const uint8_t* at) { return (uint32_t{at[0]} << 8) | at[1]; }

  bool IsResponse() const { return (flags & 0x8000) != 0; }
  int Opcode() const { return static_cast<int>((flags >> 11) & 15); }
  bool ReservedBit() const { return (flags & 0x0040) != 0; }  // Z
  int Rcode() const { return static_cast<int>(flags & 15); }

  bool CountsFit() const {
    const uint32_t records = answers + authorities + additionals;
    return kHeader + questions * kSmallestQuestion + records * kSmallestRecord <= length;
  }

  uint32_t length;
  uint32_t flags;
  uint32_t questions;
  uint32_t answers;
  uint32_t authorities;
  uint32_t additionals;
};

bool Fits(const Header& header, Expected expected) {
  if (expected == Expected::kQueries) return !header.IsResponse();
  if (expected == Expected::kResponses) return header.IsResponse();
  return true;
}

bool IsPlausibleQuery(const Header& header) {
  if (header.Rcode() != 0 || header.questions != 1) return false;
  // Of all sections a plain query fills only the additional one, IXFR also the authority (RFC 1995 3).
  return header.Opcode() != kQuery || (header.answers == 0 && header.authorities <= 1);
}

bool IsPlausibleMessage(const uint8_t* data, size_t present, Expected expected) {
  const Header header(data);
  if (header.Opcode() > kUpdate || header.ReservedBit() || !header.CountsFit()) return false;
  if (!Fits(header, expected)) return false;
  if (header.IsResponse() ? header.questions > 1 : !IsPlausibleQuery(header)) return false;
  if (header.questions == 0 || present == kPrefixAndHeader) return true;
  return data[kPrefixAndHeader] <= kLongestLabel;
}

}  // namespace

bool IsPlausibleStart(const uint8_t* data, size_t present, Expected expected) {
  if (!IsPlausibleMessage(data, present, expected)) return false;
  const size_t whole = Header(data).length + 2;
  if (present < whole + kPrefixAndHeader) return true;
  return IsPlausibleMessage(data + whole, present - whole, expected);
}

}  // namespace flow
