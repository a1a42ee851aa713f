#include "collector/output/vocabulary.h"

#include <strings.h>

#include <algorithm>
#include <array>
#include <cstdint>

#include "collector/output/iana.h"
#include "collector/plugin/exchange.h"

namespace output {
namespace {

bool Same(std::string_view one, std::string_view other) {
  return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

// Whether it is the text of one of the numbers from 0 to `last`. Several in one field are joined by commas: such
// words are left to who compares them.
template <char* (*put)(char*, uint16_t)>
bool IsCode(std::string_view word, unsigned last) {
  if (word.find(',') != std::string_view::npos) return true;
  std::array<char, kRoomForWord> text;
  for (unsigned number = 0; number <= last; ++number) {
    const char* const end = put(text.data(), static_cast<uint16_t>(number));
    if (Same(word, {text.data(), end})) return true;
  }
  return false;
}

bool IsType(std::string_view word) { return IsCode<PutType>(word, 0xffff); }
bool IsClass(std::string_view word) { return IsCode<PutClass>(word, 0xffff); }
bool IsRcode(std::string_view word) { return IsCode<PutRcode>(word, 0xfff); }  // 12 bits (RFC 6891 6.1.3)
bool IsTransport(std::string_view word) { return Same(word, "udp") || Same(word, "tcp"); }

bool IsStatus(std::string_view word) {
  for (int status = 0; status < plugin::kStatusCount; ++status) {
    if (Same(word, StatusName(static_cast<plugin::Status>(status)))) return true;
  }
  return false;
}

constexpr Vocabulary kVocabularies[] = {
    {"proto", "udp or tcp", IsTransport},
    {"qtype", "such as A, HTTPS or TYPE65280", IsType},
    {"qclass", "such as IN, CH or CLASS2", IsClass},
    {"status", "answered, timeout, malformed or open", IsStatus},
    {"rcode", "such as NOERROR, NXDOMAIN or RCODE12", IsRcode},
};

}  // namespace

const Vocabulary* FindVocabulary(std::string_view column) {
  const auto* const found = std::ranges::find(kVocabularies, column, &Vocabulary::column);
  return found == std::end(kVocabularies) ? nullptr : found;
}

}  // namespace output
