#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "collector/cli/forwarding.h"
#include "collector/cli/options.h"
#include "collector/cli/pipeline.h"
#include "collector/cli/record_order.h"
#include "collector/cli/run.h"
#include "collector/cli/worker_link.h"
#include "collector/output/buffer.h"
#include "collector/plugin/library.h"

namespace cli {

// One of several processes that read the same captures, each for its share of the conversations. It sends its
// records in their places' order.
class Worker : public plugin::ExchangeListener {
 public:
  Worker(const Options& given, Consumer* writer, WorkerLink* to);

  // Reads everything and reports. Throws what keeps it from that.
  void Run(const PipelineSettings& settings, const plugin::Library& library);

  void OnExchange(const plugin::Exchange& exchange) override;
  bool WantsDetails() const override { return first->WantsDetails(); }

 private:
  // A record that waits until all that its packet ends have come.
  struct Written {
    RecordPlace place;
    size_t begin;  // in the buffer
    size_t size;
  };

  bool GoOn(const capture::Source& source);
  void SendGroup();

  const Options& options;
  Consumer* consumer;
  std::optional<Masking> masking;   // where there is a mask
  plugin::ExchangeListener* first;  // the consumer, behind the mask
  WorkerLink* link;
  const Pipeline* pipeline = nullptr;
  output::Buffer buffer;
  std::vector<Written> group;
  uint64_t flushed_at = 0;
};

}  // namespace cli
