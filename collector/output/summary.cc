#include "collector/output/summary.h"

#include <algorithm>

#include "collector/output/keys.h"
#include "collector/output/question.h"

namespace output {

namespace {

size_t KeysFor(size_t listed) { return std::clamp<size_t>(listed * 64, 2048, 65536); }

}  // namespace

void Rate::Add(int64_t time_ns) {
  first = any ? std::min(first, time_ns) : time_ns;
  last = any ? std::max(last, time_ns) : time_ns;
  any = true;
  const int64_t second = time_ns / 1000000000;
  Second& slot = seconds[static_cast<uint64_t>(second) % kSecondsKept];
  if (slot.second != second) slot = {second, 0};
  peak = std::max(peak, ++slot.count);
}

Summary::Summary(size_t listed)
    : clients(KeysFor(listed)), names(KeysFor(listed)), failing(KeysFor(listed)), unanswered(KeysFor(listed)) {}

void Summary::Tally::Add(const plugin::Exchange& exchange) {
  if (exchange.status == plugin::Status::kOpen) {
    ++open;
  } else if (exchange.status == plugin::Status::kTimeout) {
    ++timed_out;
  } else {
    ++answered;
    if (exchange.result_code != 0) ++failed;
    times_us.Add(exchange.rtt_us);
  }
}

void Summary::Tally::Add(const Tally& other) {
  answered += other.answered;
  failed += other.failed;
  timed_out += other.timed_out;
  open += other.open;
  times_us.Add(other.times_us);
}

void Summary::Add(const plugin::Exchange& exchange) {
  all.Add(exchange);
  rate.Add(exchange.query_time_ns);
  constexpr uint8_t kUdp = 17;
  if (exchange.transport == kUdp) ++udp;
  if (exchange.status == plugin::Status::kMalformed) ++malformed;
  if (exchange.status != plugin::Status::kOpen) groups.Count(exchange.request_id);

  const auto keep_server = [this](const Tally& evicted) { other_servers.Add(evicted); };
  servers.Count(AddressKey(*exchange.server), keep_server)->Add(exchange);
  clients.Count(AddressKey(*exchange.client));
  AddNames(exchange);
}

// Names and types are those of the first question.
void Summary::AddNames(const plugin::Exchange& exchange) {
  QuestionReader question(exchange.question);
  if (!question.Next()) return;
  const uint16_t type = question.type();
  const char type_key[] = {static_cast<char>(type >> 8), static_cast<char>(type & 0xff)};
  const auto keep_type = [this](const Tally& evicted) { other_types.Add(evicted); };
  types.Count({type_key, sizeof type_key}, keep_type)->Add(exchange);

  FoldName(question.name(), &name);
  names.Count(name);
  if (exchange.status == plugin::Status::kTimeout) unanswered.Count(name);
  if (!exchange.has_response) return;
  if (exchange.result_code != 0) failing.Count(name);
  slowest.Add(name, exchange.rtt_us);
}

}  // namespace output
