#include "collector/plugin/testdata/flow_double.h"

namespace flow {

struct TcpConnection {};
struct FlowTable::State {};

Flow::Flow() = default;
Flow::~Flow() = default;

FlowTable::FlowTable(const Settings& /*settings*/, Listener* /*listener*/) {}
FlowTable::~FlowTable() = default;

void FlowTable::GiveUpGaps(int64_t now_ns) {
  if (OnGiveUpGaps()) OnGiveUpGaps()(now_ns);
}
void FlowTable::Tick(int64_t now_ns) { Ticks().push_back(now_ns); }
void FlowTable::Release(Flow* flow) { ReleasedFlows().push_back(flow); }

}  // namespace flow

FlowDouble::FlowDouble() : table({}, nullptr) {
  ReleasedFlows().clear();
  Ticks().clear();
  OnGiveUpGaps() = nullptr;
}

std::vector<const flow::Flow*>& ReleasedFlows() {
  static std::vector<const flow::Flow*> released;
  return released;
}

std::vector<int64_t>& Ticks() {
  static std::vector<int64_t> ticks;
  return ticks;
}

std::function<void(int64_t now_ns)>& OnGiveUpGaps() {
  static std::function<void(int64_t now_ns)> action;
  return action;
}
