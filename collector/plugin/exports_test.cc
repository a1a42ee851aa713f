#include "collector/plugin/exports.h"

#include <doctest/doctest.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace plugin {
namespace {

struct Line {
  int level;
  std::string text;
};

std::vector<Line>& Lines() {
  static std::vector<Line> lines;
  return lines;
}

void KeepLine(int level, const std::string& text) { Lines().push_back({level, text}); }

class Mappings : public MappingReceiver {
 public:
  void OnMapping(const char* query_name, const char* name, uint32_t ipv4) override {
    texts.push_back(std::string(query_name != nullptr ? query_name : "(null)") + "/" + name);
    last = ipv4;
  }
  std::vector<std::string> texts;
  uint32_t last = 0;
};

struct Bench {
  explicit Bench(int level, LogLine log = KeepLine) : exports(level, log, &mappings), table(exports.table()) {
    Lines().clear();
  }
  Mappings mappings;
  Exports exports;
  const CollectorExports* table;
};

}  // namespace

TEST_CASE("the parser reads the level as it is now") {
  Bench bench(3);
  CHECK(*bench.table->log_level == 3);
  bench.exports.SetLevel(4);
  CHECK(*bench.table->log_level == 4);
  CHECK(bench.exports.level() == 4);
}

TEST_CASE("a log line is formatted and passed on with its level") {
  Bench bench(2);
  bench.table->log(2, "%sUnknown transport %d", "[dns]-", 7);
  REQUIRE(Lines().size() == 1);
  CHECK(Lines()[0].level == 2);
  CHECK(Lines()[0].text == "[dns]-Unknown transport 7");
}

TEST_CASE("a log line that is too long is cut and says so") {
  Bench bench(2);
  bench.table->log(2, "%s", std::string(Exports::kMaxLine, 'x').c_str());
  bench.table->log(2, "%s", std::string(Exports::kMaxLine + 1, 'x').c_str());
  REQUIRE(Lines().size() == 2);
  CHECK(Lines()[0].text == std::string(Exports::kMaxLine, 'x'));
  CHECK(Lines()[1].text == std::string(Exports::kMaxLine - 3, 'x') + "...");
}

TEST_CASE("without a log function nothing is said") {
  Bench bench(5, nullptr);
  CHECK(*bench.table->log_level == 0);
  bench.exports.SetLevel(5);
  CHECK(*bench.table->log_level == 0);
  CHECK_FALSE(bench.table->is_debug_enabled("dns-parser.cc"));
  bench.table->log(2, "%s", "nothing");
  CHECK(Lines().empty());
}

TEST_CASE("debug lines are on from level 5") {
  Bench bench(4);
  CHECK_FALSE(bench.table->is_debug_enabled("dns-parser.cc"));
  bench.exports.SetLevel(5);
  CHECK(bench.table->is_debug_enabled("dns-parser.cc"));
}

TEST_CASE("extended details are wanted until nobody looks at them") {
  Bench bench(2);
  CHECK(bench.table->want_extended_details());
  bench.exports.SetDetails(false);
  CHECK_FALSE(bench.table->want_extended_details());
}

TEST_CASE("the current context is none of the captured flows'") {
  CHECK(Bench(2).table->get_current_context_id() == 0);
}

TEST_CASE("a mapping reaches the receiver, with a null question for reverse look-ups") {
  Bench bench(2);
  bench.table->inject_dns_mapping("aa.bb", "cc.bb", 0x01020304);
  bench.table->inject_dns_mapping(nullptr, "dd", 5);
  CHECK(bench.mappings.texts == std::vector<std::string>{"aa.bb/cc.bb", "(null)/dd"});
  CHECK(bench.mappings.last == 5);
}

TEST_CASE("there is one table at a time, and another one after it") {
  Mappings mappings;
  {
    const Exports first(2, KeepLine, &mappings);
    CHECK_THROWS_AS(Exports(2, KeepLine, &mappings), std::logic_error);
    Lines().clear();
    first.table()->log(2, "still %s", "active");
    CHECK(Lines().size() == 1);
  }
  CHECK_NOTHROW(Exports(2, KeepLine, &mappings));
}

TEST_CASE("callbacks after the end of their table do nothing") {
  const CollectorExports kept = *Bench(5).table;
  Lines().clear();
  kept.log(2, "%s", "late");
  kept.inject_dns_mapping("a", "b", 1);
  CHECK_FALSE(kept.is_debug_enabled("dns-parser.cc"));
  CHECK_FALSE(kept.want_extended_details());
  CHECK(Lines().empty());
}

}  // namespace plugin
