#include "collector/packet/decoder.h"

#include "collector/capture/link_type.h"
#include "collector/packet/fragments.h"
#include "collector/packet/layers.h"

namespace packet {

struct Decoder::State {
  explicit State(const FragmentLimits& limits) : fragments(limits) {}

  // The next packet that was given up. At the end of the input, one may have carried fragments of another.
  bool NextGivenUp(Reassembled* given_up) {
    if (fragments.TakeGivenUp(given_up)) return true;
    if (!flushing) return false;
    fragments.ExpireAll();
    return fragments.TakeGivenUp(given_up);
  }

  Fragments fragments;
  bool flushing = false;
  std::map<uint16_t, uint64_t> unknown_link_types;
};

Decoder::Decoder(const FragmentLimits& limits) : state(std::make_unique<State>(limits)) {}
Decoder::~Decoder() = default;

Outcome Decoder::Decode(const capture::Frame& frame, Datagram* datagram) {
  state->flushing = false;
  state->fragments.Advance(frame.time_ns);
  datagram->time_ns = frame.time_ns;
  datagram->encapsulation = {};
  Walk walk{datagram, &state->fragments};
  const Outcome outcome = DecodeLink(walk, frame.link_type, {frame.data, frame.captured, frame.wire});
  has_expired = state->fragments.HasGivenUp();
  has_waiting = !state->fragments.IsIdle();
  if (outcome == Outcome::kUnknownLinkType) [[unlikely]] {
    ++state->unknown_link_types[frame.link_type];
  }
  return outcome;
}

void Decoder::AdvanceFragments(int64_t now_ns) {
  state->fragments.Advance(now_ns);
  has_expired = state->fragments.HasGivenUp();
}

bool Decoder::TakeNextExpired(Datagram* datagram) {
  Reassembled given_up;
  while (state->NextGivenUp(&given_up)) {
    datagram->time_ns = given_up.time_ns;
    datagram->source = given_up.key.source;
    datagram->destination = given_up.key.destination;
    datagram->encapsulation = given_up.key.encapsulation;
    Walk walk{datagram, &state->fragments};
    walk.open_ended = given_up.open_ended;
    if (DecodeProtocol(walk, given_up.protocol, given_up.payload) != Outcome::kDatagram) continue;
    ++state->fragments.counts.cut_datagrams;
    return true;
  }
  has_expired = false;
  return false;
}

void Decoder::Flush() {
  has_expired = true;
  state->flushing = true;
  state->fragments.ExpireAll();
}

const FragmentCounts& Decoder::fragments() const { return state->fragments.counts; }

size_t Decoder::FragmentsHeld() const { return state->fragments.Held(); }

std::map<std::string, uint64_t> Decoder::UnknownLinkTypes() const {
  std::map<std::string, uint64_t> names;
  for (const auto& [link_type, frames] : state->unknown_link_types) {
    names[capture::LinkTypeName(link_type)] += frames;
  }
  return names;
}

}  // namespace packet
