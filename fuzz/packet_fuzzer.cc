// Frames of every link type, through tags and tunnels, down to datagrams.

#include <algorithm>
#include <map>
#include <string>

#include "collector/packet/decoder.h"
#include "fuzz/draw.h"
#include "fuzz/packet_checks.h"
#include "fuzz/target.h"

namespace fuzz {
namespace {

// Each frame: its link type, how many bytes the capture cut off, how much later it came in milliseconds, its bytes.
capture::Frame DrawFrame(Draw* input, int64_t* now_ns) {
  capture::Frame frame;
  frame.link_type = input->U16();
  const uint32_t missing = input->U8();
  *now_ns += int64_t{input->U16()} * 1000000;
  const std::string_view bytes = input->LongText();
  frame.time_ns = *now_ns;
  frame.data = reinterpret_cast<const uint8_t*>(bytes.data());
  frame.captured = static_cast<uint32_t>(bytes.size());
  frame.wire = frame.captured + missing;
  return frame;
}

void CheckSameAlone(const capture::Frame& frame, packet::Outcome outcome) {
  if (outcome == packet::Outcome::kFragment) return;
  packet::Decoder fresh;
  packet::Datagram datagram;
  const packet::Outcome alone = fresh.Decode(frame, &datagram);
  Must(alone == outcome || alone == packet::Outcome::kFragment, "what came before changes only what fragments are");
}

void Run(Draw* input) {
  packet::Decoder decoder({.max_packets = 4, .max_pieces = 8, .max_bytes = 16384, .max_age_ns = 2'000'000'000});
  packet::Datagram datagram;
  std::map<packet::Outcome, uint64_t> outcomes;
  int64_t now_ns = 0;
  while (!input->Empty()) {
    capture::Frame frame = DrawFrame(input, &now_ns);
    const Captured block({reinterpret_cast<const char*>(frame.data), frame.captured});
    frame.data = block.data();
    decoder.Advance(frame.time_ns);
    while (decoder.TakeExpired(&datagram)) CheckDatagram(datagram);
    const packet::Outcome outcome = decoder.Decode(frame, &datagram);
    Must(outcome < packet::Outcome::kCount, "a frame has an outcome");
    ++outcomes[outcome];
    if (outcome == packet::Outcome::kDatagram) CheckDatagram(datagram);
    while (decoder.TakeExpired(&datagram)) CheckDatagram(datagram);
    CheckFragmentCounts(decoder);
    CheckSameAlone(frame, outcome);
  }
  uint64_t unknown = 0;
  for (const auto& entry : decoder.UnknownLinkTypes()) unknown += entry.second;
  Must(unknown == outcomes[packet::Outcome::kUnknownLinkType], "frames of unknown link types are counted by name");
  decoder.Flush();
  while (decoder.TakeExpired(&datagram)) CheckDatagram(datagram);
  CheckFragmentCounts(decoder);
  Must(decoder.FragmentsHeld() == 0, "nothing is held after the end");
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  fuzz::Run(&input);
  return 0;
}
