#include "collector/cli/look_ahead.h"

#include <algorithm>

namespace cli {

void LookAhead::Begin(std::span<const capture::Frame> at_hand) {
  frames = at_hand;
  const size_t first = std::min(kIndexAhead, frames.size());
  for (size_t frame = 0; frame < first; ++frame) LookAtIndex(frame);
  for (size_t frame = 0; frame < std::min(kFlowAhead, first); ++frame) LookAtFlow(frame);
  for (size_t frame = 0; frame < std::min(kQueryAhead, first); ++frame) LookAtQuery(frame);
}

void LookAhead::Step(size_t frame) {
  if (frame + kIndexAhead < frames.size()) LookAtIndex(frame + kIndexAhead);
  if (frame + kFlowAhead < frames.size()) LookAtFlow(frame + kFlowAhead);
  if (frame + kQueryAhead < frames.size()) LookAtQuery(frame + kQueryAhead);
}

void LookAhead::LookAtIndex(size_t frame) {
  ring[frame % kRing].hint = packet::Glance(frames[frame], &datagram) ? flows->Prefetch(datagram) : 0;
}

void LookAhead::LookAtFlow(size_t frame) {
  Seen& seen = ring[frame % kRing];
  seen.flow = flows->PrefetchFlow(seen.hint);
}

void LookAhead::LookAtQuery(size_t frame) {
  const Seen& seen = ring[frame % kRing];
  if (seen.flow != nullptr) session->Prefetch(*seen.flow);
}

}  // namespace cli
