#pragma once

#include <cstddef>
#include <cstdint>

#include "collector/flow/counts.h"
#include "collector/flow/flow.h"
#include "collector/flow/flow_pool.h"
#include "collector/flow/index_list.h"
#include "collector/flow/message_cutter.h"
#include "collector/flow/tcp_stream.h"
#include "collector/packet/datagram.h"

namespace flow {

// Who receives the messages of all connections.
class StreamOutput {
 public:
  virtual ~StreamOutput() = default;
  // The flow may learn its orientation in this call. Its connection must stay.
  virtual void OnStreamMessage(Flow* flow, bool from_local, const CutMessage& message) = 0;
};

// Follows TCP connections. Bounded in the memory that all of them hold together, and in the time that one waits
// for missing bytes.
class TcpTracker {
 public:
  static constexpr int64_t kGapPatienceNs = 2'000'000'000;

  TcpTracker(size_t most_bytes, const FlowPool* flows, Counts* shared_counts, StreamOutput* message_output);

  // Gives the flow a connection; one that it had must have been ended.
  static void Begin(Flow* flow);

  // Whether the segment's SYN says that this is another connection on the same endpoints.
  static bool IsNewConnection(const Flow& flow, bool from_local, const packet::Datagram& segment);

  void Follow(Flow* flow, bool from_local, const packet::Datagram& segment);

  // Hands on what is left of both directions; the connection holds nothing afterwards.
  void End(Flow* flow);

  // Drops the flow's connection as it is. No effect on a flow without one.
  void Forget(Flow* flow);

  // Gives up the gaps that nothing has filled for too long.
  void Tick(int64_t now_ns);

  // While the connections hold too much, the least recently active one hands on what it has, cut.
  void Shed();

  // Bytes held by all connections.
  size_t held() const { return total_held; }

 private:
  class Sink;

  void FollowReset(Flow* flow, const TcpStream* stream, const packet::Datagram& segment);
  void GiveUp(Flow* flow);
  void GiveUpOldGaps(Flow* flow, int64_t now_ns);
  void Account(Flow* flow);

  const size_t limit;
  const FlowPool* const pool;
  Counts* const counts;
  StreamOutput* const output;
  size_t total_held = 0;
  IndexList holding;  // connections that hold memory, least recently active first
  IndexList gapped;   // connections that wait for missing bytes, in the order in which they began to
};

}  // namespace flow
