#pragma once

#include <doctest/doctest.h>

#include <string>

#include "collector/plugin/testdata/session_bench.h"
#include "tests/support/dns_builder.h"

namespace plugin {

// A session with the real parser.
class ParserBench : public SessionBench {
 public:
  ParserBench() : SessionBench(DNS_PARSER) {}
  ParserBench(const std::string& key, const std::string& value) : SessionBench(DNS_PARSER, {{key, value}}) {}
};

inline test::Message Ask(unsigned id, const test::Name& name = "aa.bb", uint16_t type = test::kA) {
  return test::Query(id).Question(name, type);
}

inline test::Message Reply(unsigned id, const test::Name& name = "aa.bb", uint16_t type = test::kA) {
  return test::Response(id).Question(name, type);
}

// A question of class IN as exchanges show it.
inline std::string QuestionWire(const test::Name& name, uint16_t type) {
  return name.Wire() + test::U16(type) + test::U16(test::kIn);
}

// Holds at any time.
inline void CheckSums(const MessageCounts& counts) {
  CHECK(counts.queries ==
        counts.begun + counts.duplicates + counts.table_full + counts.query_ignored + counts.query_refused);
  CHECK(counts.responses ==
        counts.answered + counts.unsolicited + counts.response_ignored + counts.response_refused);
  CHECK(counts.malformed <= counts.answered);
  CHECK(counts.retransmits <= counts.duplicates);
}

}  // namespace plugin
