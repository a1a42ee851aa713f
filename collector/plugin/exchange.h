#pragma once

#include <cstdint>
#include <limits>
#include <string_view>

#include "collector/packet/datagram.h"

class EndRequest;
class RequestMetricSpecification;

namespace plugin {

enum class Status : uint8_t {
  kAnswered,   // a response came
  kTimeout,    // none came in time
  kMalformed,  // the response could not be decoded
  kOpen,       // the input ended before the query's time ran out
};
inline constexpr int kStatusCount = 4;

// "answered", "timeout", "malformed", "open".
const char* StatusName(Status status);

// One exchange, complete: the parser's record and what the host saw beside it. Texts and pointers are valid
// during the call that delivers it.
struct Exchange {
  Status status = Status::kAnswered;
  bool has_response = false;

  int64_t query_time_ns = 0;     // since the Unix epoch
  int64_t response_time_ns = 0;  // 0 without a response
  int64_t rtt_us = 0;            // the record's response time; meaningless without a response

  const packet::Address* client = nullptr;
  const packet::Address* server = nullptr;
  uint16_t client_port = 0;
  uint16_t server_port = 0;
  uint8_t transport = 0;  // 6 TCP, 17 UDP

  // The question section of the query: uncompressed names, types and classes as on the wire, one question
  // behind the other. Well formed.
  std::string_view question;
  uint16_t question_count = 0;  // in `question`
  bool question_cut = false;    // there were more than are kept

  std::string_view pattern;  // the record's request pattern
  int32_t result_code = 0;   // the record's
  uint16_t rcode = 0;        // of the response, extended by OPT (RFC 6891 6.1.3); meaningless without one
  uint16_t dns_id = 0;
  uint16_t query_flags = 0;     // bytes 2 and 3 of the query's header, as a big-endian number
  uint16_t response_flags = 0;  // of the response's; 0 without one

  int64_t bytes_query = 0;
  int64_t bytes_response = 0;
  std::string_view answers;  // the record's "Response" text, raw
  // The response as it was captured, without the length prefix of TCP, and where its first record starts: 0 where
  // that cannot be told. Empty without one.
  std::string_view response;
  size_t response_records = 0;

  int rrsigs = 0;  // the record's "NumRRSIGRecords", 0 where it has none
  bool rrsigs_known = false;

  uint32_t retransmits = 0;                              // the same query again while it was open
  bool question_mismatch = false;                        // the response's question is another one
  bool cut = false;                                      // query or response was not wholly captured
  const packet::Encapsulation* encapsulation = nullptr;  // of the query
  int32_t request_id = 0;

  // From query to response by the packets' clocks, which may hold anything: the difference ends where 64 bits do.
  int64_t DurationNs() const {
    int64_t duration = 0;
    if (!__builtin_sub_overflow(response_time_ns, query_time_ns, &duration)) return duration;
    return response_time_ns > query_time_ns ? std::numeric_limits<int64_t>::max()
                                            : std::numeric_limits<int64_t>::min();
  }
};

// Who receives exchanges and mappings.
class ExchangeListener {
 public:
  virtual ~ExchangeListener() = default;
  virtual void OnExchange(const Exchange& exchange) = 0;

  // Whether anybody looks at `answers`, `rrsigs` and the strings of the parser's records. The parser does not put
  // them together for nobody: 6 % of `summary`. Asked once, before the first record.
  virtual bool WantsDetails() const { return true; }

  // The parser's own end record, and how the parser groups its records (null if it does not). The exchange with the
  // record's request_id is the next to be delivered. Valid during the call.
  virtual void OnRecord(const EndRequest& /*record*/, const RequestMetricSpecification* /*metrics*/) {}

  // A name-to-address mapping that the parser injected. query_name is null for reverse look-ups. The address is
  // in network order in memory.
  virtual void OnMapping(const char* /*query_name*/, const char* /*name*/, uint32_t /*ipv4*/, int64_t /*time_ns*/) {
  }
};

}  // namespace plugin
