// Queries that nobody answers, and the parser's health line.

#include <sys/time.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <utility>

#include "dns-parser/dns_parser.h"
#include "dns-parser/trace.h"
#include "host/request_visitor.h"
#include "host/requests.h"

void DNSParser::Heartbeat() {
  timeval now;
  gettimeofday(&now, nullptr);
  Heartbeat(Timestamp<1000000>{int64_t{now.tv_sec} * 1000000 + now.tv_usec});
}

void DNSParser::Heartbeat(Timestamp<1000000> now) {
  const Timestamp<1000000> cutoff = now - TimeDelta<1000000>{static_cast<int64_t>(request_timeout_us)};
  if (cutoff <= earliest_start) return;
  // Found anew from the queries that stay; what a sink records meanwhile lowers it as well.
  const Timestamp<1000000> before = std::exchange(earliest_start, kNever);
  try {
    ExpireBefore(cutoff);
  } catch (...) {  // the rest of the table was not looked at
    earliest_start = std::min(earliest_start, before);
    throw;
  }
}

void DNSParser::ExpireBefore(Timestamp<1000000> cutoff) {
  for (auto entry = open_queries.begin(); entry != open_queries.end();) {
    const auto current = entry++;
    if (current->second.start_time < cutoff) {
      Expire(current);
    } else {
      earliest_start = std::min(earliest_start, current->second.start_time);
    }
  }
}

void DNSParser::Expire(QueryTable::iterator entry) {
  const DnsQuery& query = entry->second;
  DNS_LOG(kLogDropped, "Dropping %s %s that is too old", query.types.c_str(), query.names.c_str());

  ExtendedEndRequest record;
  record.spec_id = kDnsSpecId;
  record.request_id = query.request_id;
  record.flow = &entry->first.flow;
  record.request_pattern = query.types.c_str();
  // The configured time-out and not the age, on purpose: how late a heartbeat came says nothing of the exchange.
  record.response_time.ticks = static_cast<int64_t>(request_timeout_us);
  record.start_time = query.start_time;
  record.bytes_request = query.request_bytes;
  record.result_code = kResultTimedOut;
  record.num_errors = 1;
  std::optional<RecordStrings::Loan> strings;
  if (exports->want_extended_details()) {
    record_strings.Set(RecordStrings::kNames, query.names);
    record_strings.Set(RecordStrings::kNumRrsigRecords, "");
    record_strings.Set(RecordStrings::kResponse, "");
    strings.emplace(&record_strings, &record);
  }

  request_sink->OnEndRequest(&record);
  Forget(entry);
  ++timed_out_requests;
}

const char* DNSParser::GetHealthEvent() {
  static char health_buffer[1024];  // shared by every parser of the library
  const auto open = static_cast<long>(open_queries.size());
  // Table-full drops are left out on purpose; the line is compared text by text in the field.
  std::snprintf(health_buffer, sizeof health_buffer,
                "parser:dns uop:%ld zqd:%ld mqd:%ld ur:%ld inj:%ld mor:%d or:%ld rt:%ld", unknown_opcodes,
                zero_qdcount_requests, multi_qdcount_requests, unsolicited_responses, injected_mappings,
                max_open_queries_seen, open, timed_out_requests);
  unknown_opcodes = 0;
  zero_qdcount_requests = 0;
  table_full_drops = 0;
  multi_qdcount_requests = 0;
  unsolicited_responses = 0;
  injected_mappings = 0;
  timed_out_requests = 0;
  max_open_queries_seen = static_cast<int32_t>(open);  // the next "mor" is never below what is open now
  return health_buffer;
}
