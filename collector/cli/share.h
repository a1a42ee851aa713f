#pragma once

#include <cstdint>

#include "collector/packet/datagram.h"

namespace cli {

// One worker's part of the conversations.
struct Share {
  uint32_t worker = 0;
  uint32_t workers = 1;
};

// Whether the datagram belongs to this part. Both directions of a conversation do, and all that workers need not
// tell apart: what differs in its tags or its transport only.
bool IsOurs(const Share& share, const packet::Datagram& datagram);

}  // namespace cli
