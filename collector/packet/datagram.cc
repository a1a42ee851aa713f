#include "collector/packet/datagram.h"

#include <array>
#include <cstddef>

namespace packet {
namespace {

constexpr std::array kNames = {"", "ipip", "6in4", "gre", "vxlan", "geneve", "teredo", "gtp", "other"};
static_assert(kNames.size() == static_cast<size_t>(Tunnel::kOther) + 1);

}  // namespace

const char* TunnelName(Tunnel tunnel) { return kNames.at(static_cast<size_t>(tunnel)); }

}  // namespace packet
