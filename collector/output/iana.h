#pragma once

#include <cstdint>
#include <string_view>

#include "collector/output/text.h"

namespace output {

// The mnemonics of the IANA registry "Domain Name System (DNS) Parameters". Empty where a number has none.
std::string_view TypeName(uint16_t type);
std::string_view ClassName(uint16_t number);

// Of a response code, extended by OPT or not (RFC 6895 2.3). 16 is BADVERS: the BADSIG of the same number occurs
// in TSIG records only.
std::string_view RcodeName(uint16_t rcode);

// The mnemonic, or the number behind a prefix where it has none: "TYPE123" and "CLASS123" (RFC 3597 5), "RCODE123".
// Writes at most kLongestCode characters and returns the end. Needs room for kRoomForWord.
char* PutType(char* out, uint16_t type);
char* PutClass(char* out, uint16_t number);
char* PutRcode(char* out, uint16_t rcode);
inline constexpr int kLongestCode = 10;

}  // namespace output
