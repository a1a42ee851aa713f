#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "collector/flow/message_cutter.h"

namespace flow {

// The payload of one TCP segment.
struct Segment {
  uint32_t sequence = 0;          // of its first byte
  const uint8_t* data = nullptr;  // one readable byte lies behind the captured ones
  uint32_t captured = 0;          // bytes at data
  uint32_t nominal = 0;           // bytes on the wire; those behind the captured ones are lost for good
  int64_t time_ns = 0;
};

// One direction of a TCP connection: puts segments in order and hands their bytes to a message cutter. Where
// segments overlap, what came first stands. Segments that arrive early wait, within limits, for what is missing;
// what never comes becomes a hole.
class TcpStream {
 public:
  static constexpr size_t kMostWaiting = 64;               // segments behind a gap
  static constexpr size_t kMostWaitingBytes = 256 * 1024;  // their bytes
  // A segment further away than this from where the stream stands is no longer its neighbour: the stream is
  // followed anew from there. Above any window in use, and half of what sequence numbers could tell apart.
  static constexpr int32_t kReach = 1 << 24;

  // A SYN with this sequence number: the next byte begins a message.
  void Syn(uint32_t sequence);

  // Whether a SYN with this sequence number can belong to the stream as it is.
  bool BeganWith(uint32_t syn_sequence) const;

  void Data(Segment segment, CutterOutput* output);

  // The sender's end, behind the byte before `sequence`.
  void Fin(uint32_t sequence, int64_t time_ns, CutterOutput* output);

  // Whether a RST with this sequence number can be meant for the stream as it is (RFC 9293 3.5.2), and is not one
  // of an earlier connection that comes late.
  bool MayReset(uint32_t sequence) const;

  // Something is missing before what has arrived, and since when.
  bool HasGap() const { return !waiting.empty() || (fin_known && !finished); }
  int64_t GapSince() const { return waiting.empty() ? fin_time_ns : waiting.front().time_ns; }

  // Goes on behind the first gap.
  void GiveUpGap(CutterOutput* output);

  // Goes on behind all gaps and hands on what has begun; holds no memory afterwards. Whether a message had begun.
  bool GiveUp(CutterOutput* output);

  // The connection ends here: GiveUp, and a message that had begun counts as unfinished.
  void End(CutterOutput* output);

  bool started() const { return next_known; }
  bool ended() const { return finished; }  // all bytes up to the FIN have been delivered or given up
  size_t Held() const { return waiting.capacity() * sizeof(Waiting) + waiting_bytes + cutter.Held(); }

 private:
  struct Waiting {
    uint32_t sequence;
    uint32_t captured;
    uint32_t nominal;
    bool begins_segment;
    int64_t time_ns;
    std::unique_ptr<uint8_t[]> data;

    uint32_t End() const { return sequence + nominal; }
    size_t Cost() const { return size_t{captured} + 1; }
  };

  void StartAt(uint32_t sequence, bool at_boundary);
  void StartAnew(uint32_t sequence, CutterOutput* output);
  bool Trim(Segment* segment, CutterOutput* output) const;
  void Deliver(const Segment& segment, bool begins_segment, CutterOutput* output);
  void DeliverReady(CutterOutput* output);
  size_t Insert(size_t at, const Segment& segment, uint32_t from, uint32_t to);
  void Store(const Segment& segment, bool begins_segment, CutterOutput* output);
  void FinishIfComplete(CutterOutput* output);

  MessageCutter cutter;
  std::vector<Waiting> waiting;  // in order, without overlap, none at `next`
  size_t waiting_bytes = 0;
  uint32_t first = 0;  // sequence number of the first byte
  uint32_t next = 0;   // of the next byte to deliver
  uint32_t fin = 0;    // of the FIN
  int64_t fin_time_ns = 0;
  bool next_known = false;
  bool from_syn = false;
  bool fin_known = false;
  bool finished = false;
};

}  // namespace flow
