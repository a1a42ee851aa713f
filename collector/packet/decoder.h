#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "collector/capture/source.h"
#include "collector/packet/datagram.h"
#include "collector/packet/outcome.h"

namespace packet {

// What fragments may take up, and for how long.
struct FragmentLimits {
  size_t max_packets = 4096;      // being put together at one time; the oldest makes room
  size_t max_pieces = 256;        // in one packet
  size_t max_bytes = 16U << 20U;  // of all their fragments
  // By the frames' times, from a packet's first fragment on. Fragments of one packet arrive within milliseconds;
  // where the rest is missing for good (a filter on ports sees first fragments only), the beginning should be
  // handed out while the query that it answers is still open.
  int64_t max_age_ns = 2'000'000'000;
};

// Counts beside the outcomes. At any time
//   fragments = joined + repeated + inconsistent + expired + dropped + FragmentsHeld().
struct FragmentCounts {
  uint64_t fragments = 0;      // that arrived, inside tunnels too
  uint64_t joined = 0;         // of packets that were put together
  uint64_t repeated = 0;       // that brought nothing new
  uint64_t inconsistent = 0;   // that contradicted others
  uint64_t expired = 0;        // given up because the rest never came
  uint64_t dropped = 0;        // given up because the store was full
  uint64_t reassembled = 0;    // packets put together
  uint64_t cut_datagrams = 0;  // handed out by TakeExpired
};

// Takes frames apart down to UDP and TCP, through VLAN tags, MPLS and tunnels, and puts IP fragments
// together. Bounded in depth, memory and time. Checksums are not looked at: captures made on the sender's side
// seldom have valid ones.
class Decoder {
 public:
  explicit Decoder(const FragmentLimits& limits = {});
  ~Decoder();
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  // Takes one frame apart. The datagram is whole only with kDatagram. A packet in fragments is the result of the
  // frame that completes it. An IPv4 total length of 0 or an IPv6 payload length of 0 (segmentation offload) and a
  // UDP length of 0 reach to the end of what contains them.
  Outcome Decode(const capture::Frame& frame, Datagram* datagram);

  // Moves the time that fragments are measured by, as Decode does with its frame's. Called before the time goes
  // anywhere else, it lets a cut answer come out while its query is still open.
  void Advance(int64_t now_ns) {
    if (has_waiting) AdvanceFragments(now_ns);
  }

  // After each Advance and Decode until it is false: the next datagram that was given up because its last fragments
  // did not come in time, or had to make room. What has come without a gap from its beginning is its payload, so it
  // is cut (captured below nominal), unless it was only trailing bytes that were missing. Its time lies in the
  // past. What is not taken before the next call of the two is lost. These datagrams come on top of those of the
  // frames.
  bool TakeExpired(Datagram* datagram) { return has_expired && TakeNextExpired(datagram); }
  bool HasExpired() const { return has_expired; }  // whether TakeExpired is worth a call

  // At the end of the input: gives up all fragments, so that TakeExpired hands out what there is.
  void Flush();

  const FragmentCounts& fragments() const;

  // How many fragments are still waiting for the rest of their packets.
  size_t FragmentsHeld() const;

  // Frames of link types that are not decoded, by the type's name.
  std::map<std::string, uint64_t> UnknownLinkTypes() const;

 private:
  struct State;

  void AdvanceFragments(int64_t now_ns);
  bool TakeNextExpired(Datagram* datagram);

  std::unique_ptr<State> state;
  bool has_expired = false;  // there may be something to take
  bool has_waiting = false;  // and something that waits
};

// A glance at a frame that is to be decoded later: the endpoints of a plain UDP packet (Ethernet, IPv4 without
// options, no fragment), and nothing else of the datagram. False for other frames. Good for prefetching only.
bool Glance(const capture::Frame& frame, Datagram* datagram);

}  // namespace packet
