#include "collector/cli/worker.h"

#include <algorithm>

#include "collector/capture/stop.h"
#include "collector/cli/interrupt.h"
#include "collector/cli/run_parts.h"
#include "collector/cli/worker_report.h"

namespace cli {
namespace {

// A worker with little to say says at least how far it is, so that the others' records need not wait for it.
constexpr uint64_t kPacketsBetweenFlushes = 8192;

}  // namespace

Worker::Worker(const Options& given, Consumer* writer, WorkerLink* to)
    : options(given), consumer(writer), first(writer), link(to) {
  if (const auto mask = MaskFrom(given)) first = &masking.emplace(writer, *mask);
}

void Worker::Run(const PipelineSettings& settings, const plugin::Library& library) {
  Pipeline whole(settings, library, this);
  pipeline = &whole;
  whole.Publish(&link->status().whereabouts);
  const std::unique_ptr<capture::Source> source = OpenSources(options.files);
  consumer->Begin(&buffer);
  buffer.Drop();  // what stands before all records is not ours to write
  whole.Run(source.get(), [&] { return GoOn(*source); });
  WorkerReport report;
  // Where reading was stopped, the last read may have met an end that is none of the input's.
  const bool stopped = Interrupted() || link->status().whereabouts.last != 0 || link->broken();
  if (!stopped) report.problems = source->Problems();
  if (stopped) capture::StopReading();  // or a thread that waits for more would keep us
  whole.Finish();
  SendGroup();

  report.account = whole.Account();
  report.account.exchanges = consumer->delivered;
  report.account.shown = consumer->shown;
  report.account.input_problems = report.problems.size();
  if (settings.share.worker > 0) KeepOwnShare(&report.account);
  link->SendReport(Pack(report));
}

bool Worker::GoOn(const capture::Source& source) {
  WorkerLink::Status& status = link->status();
  status.bytes_read.store(source.BytesRead(), std::memory_order_relaxed);
  status.bytes_total.store(source.BytesTotal(), std::memory_order_relaxed);
  const uint64_t packets = pipeline->packets();
  if (packets - flushed_at >= kPacketsBetweenFlushes || options.workers == 1) {
    SendGroup();
    link->Flush(packets);
    flushed_at = packets;
  }
  return !link->broken() && !Interrupted();
}

void Worker::OnExchange(const plugin::Exchange& exchange) {
  const uint64_t packet = pipeline->finishing() ? RecordPlace::kAtEnd : pipeline->packets();
  if (!group.empty() && group.back().place.packet != packet) SendGroup();
  const size_t begin = buffer.Held().size();
  first->OnExchange(exchange);
  const size_t size = buffer.Held().size() - begin;
  if (size > 0) group.push_back({PlaceOf(packet, exchange), begin, size});
}

// All that one packet has ended.
void Worker::SendGroup() {
  if (group.size() > 1) {
    std::stable_sort(group.begin(), group.end(),
                     [](const Written& a, const Written& b) { return a.place < b.place; });
  }
  for (const Written& record : group) link->Send(record.place, buffer.Held().substr(record.begin, record.size));
  group.clear();
  buffer.Drop();
}

}  // namespace cli
