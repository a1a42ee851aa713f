#pragma once

#include <cstdint>

namespace plugin {

// What became of each message. Every message has exactly one outcome, so that at any time
//
//   queries   = begun + duplicates + table_full + query_ignored + query_refused
//   responses = answered + unsolicited + response_ignored + response_refused
//
// and at the end of the input begun = answered + timed_out + open_at_end.
//
// A zone transfer's first message ends its query; the others are unsolicited, as they are for the parser.
struct MessageCounts {
  uint64_t queries = 0;    // messages from clients
  uint64_t responses = 0;  // messages from servers

  // Of the queries:
  uint64_t begun = 0;          // an exchange of its own
  uint64_t duplicates = 0;     // the identifier was open already: the older query stands
  uint64_t table_full = 0;     // accepted by the parser, but not recorded
  uint64_t query_ignored = 0;  // opcodes 2 to 5, no question, blank or cut too short
  uint64_t query_refused = 0;
  // Of the responses:
  uint64_t answered = 0;          // ended an exchange, malformed ones included
  uint64_t unsolicited = 0;       // no open query
  uint64_t response_ignored = 0;  // opcodes 2 to 5, or cut too short
  uint64_t response_refused = 0;

  // Of the begun exchanges, beside the answered ones:
  uint64_t timed_out = 0;
  uint64_t open_at_end = 0;
  uint64_t malformed = 0;  // part of answered

  uint64_t retransmits = 0;          // part of duplicates: the same question again
  uint64_t question_mismatches = 0;  // part of answered
  uint64_t cut = 0;                  // messages that were not wholly captured
  uint64_t mappings = 0;
};

}  // namespace plugin
