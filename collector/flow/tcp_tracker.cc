#include "collector/flow/tcp_tracker.h"

#include <algorithm>
#include <limits>
#include <memory>

#include "collector/flow/elapsed.h"
#include "collector/flow/tcp_connection.h"

namespace flow {

namespace {

int64_t GapSince(const TcpConnection& connection) {
  int64_t since = std::numeric_limits<int64_t>::max();
  for (const TcpStream& stream : connection.streams) {
    if (stream.HasGap()) since = std::min(since, stream.GapSince());
  }
  return since;
}

bool HasGap(const TcpConnection& connection) {
  return connection.streams[0].HasGap() || connection.streams[1].HasGap();
}

}  // namespace

// One direction of one connection, as the streams see who receives their messages.
class TcpTracker::Sink : public CutterOutput {
 public:
  Sink(TcpTracker* owner, Flow* whose, const TcpStream* which)
      : CutterOutput(owner->counts), tracker(owner), flow(whose), first(which == &whose->tcp->streams[0]) {}

  void OnCutMessage(const CutMessage& message) override {
    tracker->output->OnStreamMessage(flow, FromLocal(), message);
  }

  Expected Expects() const override {
    if (!flow->oriented) return Expected::kEither;
    return FromLocal() ? Expected::kQueries : Expected::kResponses;
  }

 private:
  bool FromLocal() const { return first == flow->tcp->first_is_local; }

  TcpTracker* const tracker;
  Flow* const flow;
  const bool first;
};

TcpTracker::TcpTracker(size_t most_bytes, const FlowPool* flows, Counts* shared_counts,
                       StreamOutput* message_output)
    : limit(most_bytes), pool(flows), counts(shared_counts), output(message_output) {}

void TcpTracker::Begin(Flow* flow) { flow->tcp = std::make_unique<TcpConnection>(); }

bool TcpTracker::IsNewConnection(const Flow& flow, bool from_local, const packet::Datagram& segment) {
  if ((segment.tcp_flags & packet::kTcpSyn) == 0) return false;
  const TcpStream& stream = flow.tcp->Stream(from_local);
  return stream.started() && !stream.BeganWith(segment.tcp_sequence);
}

void TcpTracker::Follow(Flow* flow, bool from_local, const packet::Datagram& segment) {
  TcpStream* stream = &flow->tcp->Stream(from_local);
  Sink sink(this, flow, stream);
  const bool syn = (segment.tcp_flags & packet::kTcpSyn) != 0;
  // What stands behind a reset's header is a text for people (RFC 9293 3.5.3), not the stream's.
  if (segment.tcp_flags & packet::kTcpRst) return FollowReset(flow, stream, segment);
  if (syn && !stream->started()) stream->Syn(segment.tcp_sequence);
  const uint32_t begin = segment.tcp_sequence + (syn ? 1 : 0);
  stream->Data({begin, segment.payload, segment.captured, segment.nominal, segment.time_ns}, &sink);
  if (segment.tcp_flags & packet::kTcpFin) stream->Fin(begin + segment.nominal, segment.time_ns, &sink);
  Account(flow);
}

// What was on its way when one side gave up is still followed: an answer that crosses a reset is an answer.
void TcpTracker::FollowReset(Flow* flow, const TcpStream* stream, const packet::Datagram& segment) {
  if (flow->tcp->closed || !stream->MayReset(segment.tcp_sequence)) return;
  ++counts->tcp_resets;
  flow->tcp->closed = true;
  End(flow);
}

void TcpTracker::End(Flow* flow) {
  for (TcpStream& stream : flow->tcp->streams) {
    Sink sink(this, flow, &stream);
    stream.End(&sink);
  }
  Account(flow);
}

void TcpTracker::Forget(Flow* flow) {
  if (flow->tcp == nullptr) return;
  total_held -= flow->tcp->held;
  holding.Remove(flow->number);
  gapped.Remove(flow->number);
  flow->tcp.reset();
}

void TcpTracker::Tick(int64_t now_ns) {
  while (!gapped.empty()) {
    Flow* flow = pool->At(gapped.front());
    if (!HasElapsed(GapSince(*flow->tcp), now_ns, kGapPatienceNs)) return;
    GiveUpOldGaps(flow, now_ns);
  }
}

void TcpTracker::Shed() {
  while (total_held > limit && !holding.empty()) GiveUp(pool->At(holding.front()));
}

void TcpTracker::GiveUp(Flow* flow) {
  counts->tcp_dropped_bytes += flow->tcp->held;
  for (TcpStream& stream : flow->tcp->streams) {
    Sink sink(this, flow, &stream);
    stream.GiveUp(&sink);
  }
  Account(flow);
}

void TcpTracker::GiveUpOldGaps(Flow* flow, int64_t now_ns) {
  for (TcpStream& stream : flow->tcp->streams) {
    Sink sink(this, flow, &stream);
    while (stream.HasGap() && HasElapsed(stream.GapSince(), now_ns, kGapPatienceNs)) stream.GiveUpGap(&sink);
  }
  gapped.Remove(flow->number);  // to the end, where it waits for a later gap
  Account(flow);
}

void TcpTracker::Account(Flow* flow) {
  TcpConnection& connection = *flow->tcp;
  const size_t held = connection.streams[0].Held() + connection.streams[1].Held();
  total_held += held - connection.held;
  connection.held = held;
  if (connection.streams[0].ended() && connection.streams[1].ended()) connection.closed = true;
  if (held > 0) {
    holding.MoveToBack(flow->number);
  } else {
    holding.Remove(flow->number);
  }
  if (!HasGap(connection)) {
    gapped.Remove(flow->number);
  } else if (!gapped.Contains(flow->number)) {
    gapped.PushBack(flow->number);
  }
}

}  // namespace flow
