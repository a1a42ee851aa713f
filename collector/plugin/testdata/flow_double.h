#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "collector/flow/flow_table.h"

// A flow table that only notes what it is told, so that a session is tested without packets and reassembly.
struct FlowDouble {
  FlowDouble();

  flow::FlowTable table;
};

// What all tables of the process were told.
std::vector<const flow::Flow*>& ReleasedFlows();
std::vector<int64_t>& Ticks();

// What they do when they are to give up gaps; nothing at first.
std::function<void(int64_t now_ns)>& OnGiveUpGaps();
