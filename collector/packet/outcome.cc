#include "collector/packet/outcome.h"

#include <array>
#include <cstddef>

namespace packet {
namespace {

constexpr std::array kNames = {"datagram",  "unknown_link_type", "not_ip",   "not_udp_or_tcp",
                               "truncated", "malformed",         "too_deep", "fragment"};
static_assert(kNames.size() == static_cast<size_t>(Outcome::kCount));

}  // namespace

const char* OutcomeName(Outcome outcome) { return kNames.at(static_cast<size_t>(outcome)); }

}  // namespace packet
