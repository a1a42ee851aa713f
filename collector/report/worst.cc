#include "collector/report/worst.h"

#include <algorithm>
#include <array>
#include <set>

#include "collector/output/columns.h"
#include "collector/output/question.h"

namespace report {
namespace {

std::string Field(const char* column, const plugin::Exchange& exchange) {
  return output::FieldText(*output::FindColumn(column), exchange);
}

std::string ResultOf(const plugin::Exchange& exchange, Outcome outcome) {
  return outcome == Outcome::kOtherCode ? Field("rcode", exchange) : OutcomeName(outcome);
}

// How much a failure says about the server rather than about what was asked.
int64_t Severity(Outcome outcome) {
  if (outcome == Outcome::kMalformed || outcome == Outcome::kServFail) return 3;
  return outcome == Outcome::kNxDomain ? 1 : 2;
}

}  // namespace

void Worst::Add(const plugin::Exchange& exchange) {
  const Outcome outcome = OutcomeOf(exchange);
  if (outcome == Outcome::kTimeout) {
    Offer(&timed_out, exchange.retransmits, ~exchange.query_time_ns, exchange, outcome);
  } else if (IsAnswer(outcome)) {
    Offer(&slowest, exchange.rtt_us, 0, exchange, outcome);
    if (IsFailure(outcome)) Offer(&failed, Severity(outcome), exchange.rtt_us, exchange, outcome);
  }
  ++count;
}

void Worst::Offer(Heap* heap, int64_t badness, int64_t tie, const plugin::Exchange& exchange,
                  Outcome outcome) const {
  const auto worse = [](const Entry& a, const Entry& b) {
    return a.badness != b.badness ? a.badness > b.badness : a.tie > b.tie;
  };
  Entry entry{badness, tie, {}};
  const bool full = heap->size() == capacity;
  if (full && (capacity == 0 || !worse(entry, heap->front()))) return;  // the usual case, without a copy of texts
  entry.exchange = {.outcome = outcome,
                    .query_time_ns = exchange.query_time_ns,
                    .rtt_us = exchange.rtt_us,
                    .has_response = exchange.has_response,
                    .retransmits = exchange.retransmits,
                    .number = count,
                    .client = Field("client_ip", exchange),
                    .server = Field("server_ip", exchange),
                    .proto = Field("proto", exchange),
                    .name = Field("qname", exchange),
                    .type = Field("qtype", exchange),
                    .result = ResultOf(exchange, outcome)};
  if (full) {
    std::pop_heap(heap->begin(), heap->end(), worse);
    heap->pop_back();
  }
  heap->push_back(std::move(entry));
  std::push_heap(heap->begin(), heap->end(), worse);
}

std::vector<BadExchange> Worst::All() const {
  std::vector<BadExchange> all;
  std::set<uint64_t> seen;
  for (const Heap* heap : {&timed_out, &slowest, &failed}) {
    for (const Entry& entry : *heap) {
      if (seen.insert(entry.exchange.number).second) all.push_back(entry.exchange);
    }
  }
  std::sort(all.begin(), all.end(), [](const BadExchange& a, const BadExchange& b) {
    const bool a_waits = a.outcome == Outcome::kTimeout;
    const bool b_waits = b.outcome == Outcome::kTimeout;
    if (a_waits != b_waits) return a_waits;
    if (!a_waits && a.rtt_us != b.rtt_us) return a.rtt_us > b.rtt_us;
    if (a_waits && a.retransmits != b.retransmits) return a.retransmits > b.retransmits;
    return a.query_time_ns != b.query_time_ns ? a.query_time_ns < b.query_time_ns : a.number < b.number;
  });
  return all;
}

}  // namespace report
