#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "collector/capture/source.h"
#include "collector/flow/flow_table.h"
#include "collector/packet/decoder.h"
#include "collector/plugin/session.h"

namespace cli {

// Looks at the frames at hand some packets before they are handled, and asks the cache for what they will need: the
// place in the flow table's index first, then the flow, then its open query. Each step finds in the cache what the
// one before has asked for. Nothing is changed and no packet waits: frames that are not at hand are not looked at.
class LookAhead {
 public:
  LookAhead(const flow::FlowTable* flow_table, const plugin::Session* parser_session)
      : flows(flow_table), session(parser_session) {}

  // New frames; their bytes stay where they are until the next Begin.
  void Begin(std::span<const capture::Frame> at_hand);

  // Before the frame of this number is handled; in order.
  void Step(size_t frame);

 private:
  // How many frames before its turn each step happens.
  static constexpr size_t kIndexAhead = 12;
  static constexpr size_t kFlowAhead = 8;
  static constexpr size_t kQueryAhead = 4;
  static constexpr size_t kRing = 16;

  struct Seen {
    uint32_t hint = 0;
    const flow::Flow* flow = nullptr;
  };

  void LookAtIndex(size_t frame);
  void LookAtFlow(size_t frame);
  void LookAtQuery(size_t frame);

  const flow::FlowTable* flows;
  const plugin::Session* session;
  std::span<const capture::Frame> frames;
  std::array<Seen, kRing> ring;
  packet::Datagram datagram;
};

}  // namespace cli
