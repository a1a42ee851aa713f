#pragma once

#include <string>

#include "collector/output/text.h"
#include "collector/packet/address.h"
#include "collector/plugin/answer_reader.h"

namespace output {

// Of one response, no more answers than this are shown.
inline constexpr int kMostAnswers = 256;

// The owner's name, "." for the root.
void AppendOwner(const plugin::AnswerReader& answer, Style style, std::string* text);

// The data in the form of zone files (RFC 1035 5.1), of A, AAAA, NS, CNAME, PTR, DNAME, MX, SOA, SRV and TXT, whose
// strings come one behind the other, separated by a space. Any other data, and those that are broken, in the form
// that is meant for unknown types (RFC 3597 5): "\\# 4 c0000201". Printable ASCII in the style.
void AppendAnswerData(const plugin::AnswerReader& answer, Style style, std::string* text);

// The address of an A or AAAA record of the Internet class; version 0 when it is neither.
packet::Address AnswerAddress(const plugin::AnswerReader& answer);

}  // namespace output
