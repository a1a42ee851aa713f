#pragma once

#include <array>
#include <cstdint>

#include "collector/plugin/exchange.h"

namespace cli {

// Where a record stands in the output of workers, however many there are: by the packet that ended its exchange,
// and among what one packet ended (a heartbeat may end many) by conversation and identifier.
struct RecordPlace {
  static constexpr uint64_t kAtEnd = UINT64_MAX - 1;  // open when the input ended

  uint64_t packet = 0;            // counted from 1
  std::array<uint8_t, 44> tie{};  // client, server, transport, identifier: big-endian, so that bytes compare

  bool operator<(const RecordPlace& other) const {
    return packet != other.packet ? packet < other.packet : tie < other.tie;
  }
};

RecordPlace PlaceOf(uint64_t packet, const plugin::Exchange& exchange);

}  // namespace cli
