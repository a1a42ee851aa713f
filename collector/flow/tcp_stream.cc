#include "collector/flow/tcp_stream.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace flow {

namespace {

// How far `to` lies behind `from` in sequence space (RFC 9293 3.4); negative where it lies before it.
int32_t Distance(uint32_t from, uint32_t to) { return static_cast<int32_t>(to - from); }

bool IsBefore(uint32_t a, uint32_t b) { return Distance(b, a) < 0; }

// The part of the segment from `from` up to `to`. What was not captured stays missing at its end.
Segment Part(const Segment& segment, uint32_t from, uint32_t to) {
  const uint32_t before = from - segment.sequence;
  const uint32_t captured = segment.captured > before ? segment.captured - before : 0;
  const uint32_t present = std::min(before, segment.captured);
  Segment part = segment;
  part.sequence = from;
  part.nominal = to - from;
  part.captured = std::min(captured, part.nominal);
  part.data = segment.data + present;
  return part;
}

}  // namespace

void TcpStream::Syn(uint32_t sequence) {
  StartAt(sequence + 1, true);
  from_syn = true;
}

// A stream joined in its middle may have been joined a little after a SYN that comes late.
bool TcpStream::BeganWith(uint32_t syn_sequence) const {
  constexpr int32_t kLate = 1 << 16;
  const int32_t behind = Distance(syn_sequence + 1, first);
  return from_syn ? behind == 0 : behind >= 0 && behind <= kLate;
}

void TcpStream::Data(Segment segment, CutterOutput* output) {
  if (segment.nominal == 0) return;
  if (!next_known) StartAt(segment.sequence, false);
  const int32_t distance = Distance(next, segment.sequence);
  if (distance > kReach || distance < -kReach) StartAnew(segment.sequence, output);
  const bool whole = !IsBefore(segment.sequence, next);
  if (!whole && !Trim(&segment, output)) return;
  if (segment.sequence == next && waiting.empty()) {
    Deliver(segment, whole, output);
    return FinishIfComplete(output);
  }
  Store(segment, whole, output);
  DeliverReady(output);
  FinishIfComplete(output);
  while (waiting.size() > kMostWaiting || waiting_bytes > kMostWaitingBytes) GiveUpGap(output);
}

void TcpStream::Fin(uint32_t sequence, int64_t time_ns, CutterOutput* output) {
  if (!next_known) StartAt(sequence, false);
  const int32_t distance = Distance(next, sequence);
  if (fin_known || distance < 0 || distance > kReach) return;
  fin_known = true;
  fin = sequence;
  fin_time_ns = time_ns;
  FinishIfComplete(output);
}

bool TcpStream::MayReset(uint32_t sequence) const {
  const int32_t distance = Distance(next, sequence);
  return !next_known || (distance >= -1 && distance <= kReach);
}

void TcpStream::GiveUpGap(CutterOutput* output) {
  if (!HasGap()) return;
  const uint32_t behind = waiting.empty() ? fin : waiting.front().sequence;
  const uint32_t missing = behind - next;
  ++output->counts->tcp_gaps;
  next = behind;
  cutter.Hole(missing, output);
  DeliverReady(output);
  FinishIfComplete(output);
}

bool TcpStream::GiveUp(CutterOutput* output) {
  while (HasGap()) GiveUpGap(output);
  return cutter.GiveUp(output);
}

void TcpStream::End(CutterOutput* output) {
  if (GiveUp(output)) ++output->counts->tcp_unfinished_messages;
}

void TcpStream::StartAt(uint32_t sequence, bool at_boundary) {
  first = sequence;
  next = sequence;
  next_known = true;
  from_syn = false;
  fin_known = false;
  finished = false;
  cutter.Start(at_boundary);
}

void TcpStream::StartAnew(uint32_t sequence, CutterOutput* output) {
  GiveUp(output);
  ++output->counts->tcp_gaps;
  StartAt(sequence, false);
}

// Cuts off what has been delivered. False when nothing is left.
bool TcpStream::Trim(Segment* segment, CutterOutput* output) const {
  const uint32_t old = std::min(next - segment->sequence, segment->nominal);
  output->counts->tcp_retransmitted_bytes += old;
  if (old == segment->nominal) return false;
  *segment = Part(*segment, next, segment->sequence + segment->nominal);
  return true;
}

void TcpStream::Deliver(const Segment& segment, bool begins_segment, CutterOutput* output) {
  next = segment.sequence + segment.nominal;
  cutter.Bytes({segment.data, segment.captured, begins_segment, segment.time_ns}, output);
  if (segment.captured == segment.nominal) return;
  ++output->counts->tcp_gaps;
  cutter.Hole(segment.nominal - segment.captured, output);
}

void TcpStream::DeliverReady(CutterOutput* output) {
  while (!waiting.empty() && waiting.front().sequence == next) {
    const Waiting held = std::move(waiting.front());
    waiting.erase(waiting.begin());
    waiting_bytes -= held.Cost();
    Deliver({held.sequence, held.data.get(), held.captured, held.nominal, held.time_ns}, held.begins_segment,
            output);
  }
  if (waiting.empty()) std::vector<Waiting>().swap(waiting);
}

// Keeps the segment's bytes from `from` up to `to`, in front of the waiting ones at `at`; where the next go.
size_t TcpStream::Insert(size_t at, const Segment& segment, uint32_t from, uint32_t to) {
  const Segment part = Part(segment, from, to);
  auto data = std::make_unique_for_overwrite<uint8_t[]>(part.captured + 1);  // and the byte behind
  if (part.captured > 0) std::memcpy(data.get(), part.data, part.captured);
  data[part.captured] = 0;
  Waiting held{part.sequence, part.captured, part.nominal, false, part.time_ns, std::move(data)};
  waiting_bytes += held.Cost();
  waiting.insert(waiting.begin() + static_cast<std::ptrdiff_t>(at), std::move(held));
  return at + 1;
}

// Keeps what no waiting segment has.
void TcpStream::Store(const Segment& segment, bool begins_segment, CutterOutput* output) {
  const uint32_t end = segment.sequence + segment.nominal;
  uint32_t at = segment.sequence;
  uint32_t fresh = 0;
  size_t i = 0;
  while (i < waiting.size() && IsBefore(waiting[i].sequence, end)) {
    const uint32_t held_end = waiting[i].End();
    if (IsBefore(at, waiting[i].sequence)) {
      fresh += waiting[i].sequence - at;
      const bool head = begins_segment && at == segment.sequence;
      const size_t inserted = i;
      i = Insert(i, segment, at, waiting[i].sequence);
      waiting[inserted].begins_segment = head;
    }
    if (IsBefore(at, held_end)) at = held_end;
    ++i;
  }
  if (IsBefore(at, end)) {
    fresh += end - at;
    Insert(i, segment, at, end);
    waiting[i].begins_segment = begins_segment && at == segment.sequence;
  }
  output->counts->tcp_retransmitted_bytes += segment.nominal - fresh;
}

// What was sent behind a FIN is no part of the stream.
void TcpStream::FinishIfComplete(CutterOutput* output) {
  if (!fin_known || finished || IsBefore(next, fin)) return;
  finished = true;
  std::vector<Waiting>().swap(waiting);
  waiting_bytes = 0;
  if (cutter.GiveUp(output)) ++output->counts->tcp_unfinished_messages;
}

}  // namespace flow
