#include "tests/captures/expected_table.h"

#include <doctest/doctest.h>

#include <stdexcept>

#include "tests/support/temporary_file.h"

using namespace test;

namespace {

constexpr const char* kColumns =
    "frame\ttime_epoch\tsrc\tsport\tdst\tdport\ttransport\tdns.id\tresponse\trcode\tqry.name\tqry.type\tedns\tdns."
    "time\t"
    "answer_to\n";

}  // namespace

TEST_CASE("a table's rows become messages and its pairs are found") {
  const TemporaryFile file(
      std::string(kColumns) +
      "7\t12.000000500\t192.0.2.1\t4000\t192.0.2.53\t53\tudp\t9\t0\t\ta.b\t28\t1\t\t\n"
      "8\t12.001000500\t192.0.2.53\t53\t192.0.2.1\t4000\tudp\t9\t1\t3\ta.b\t28\t0\t0.001000000\t7\n");
  const auto messages = ReadExpectedTable(file.path);
  REQUIRE(messages.size() == 2);
  CHECK(messages[0].time_ns == 12'000'000'500);
  CHECK(messages[0].rcode == -1);
  CHECK(messages[0].edns);
  CHECK(messages[0].types == "AAAA");
  const auto pairs = PairsOf(messages);
  REQUIRE(pairs.size() == 1);
  CHECK(pairs[0].query.frame == 7);
  CHECK(pairs[0].response.rcode == 3);
  CHECK(pairs[0].ResponseTimeUs() == 1000);
}

TEST_CASE("a response time that the table lacks is the difference of the times") {
  const TemporaryFile file(std::string(kColumns) +
                           "1\t5.000000000\ta\t1\tb\t53\tudp\t9\t0\t\ta\t1\t0\t\t\n"
                           "2\t5.250000000\tb\t53\ta\t1\tudp\t9\t1\t0\ta\t1\t0\t\t1\n");
  CHECK(PairsOf(ReadExpectedTable(file.path)).at(0).ResponseTimeUs() == 250'000);
}

TEST_CASE("a table that is not there or lacks a column or a query is no table without pairs") {
  CHECK_THROWS_AS(ReadExpectedTable("/nonexistent"), std::runtime_error);
  const TemporaryFile without_columns("frame\tsrc\n1\tx\n");
  CHECK_THROWS_AS(ReadExpectedTable(without_columns.path), std::runtime_error);
  const TemporaryFile without_query(std::string(kColumns) + "2\t5.25\tb\t53\ta\t1\tudp\t9\t1\t0\ta\t1\t0\t\t1\n");
  CHECK_THROWS_AS(PairsOf(ReadExpectedTable(without_query.path)), std::runtime_error);
}

TEST_CASE("names of tables and records compare by what is printable") {
  CHECK(ComparableNames("<Root>") == ".");
  CHECK(ComparableNames("a.b,c") == "a.b, c");
  CHECK(ComparableNames("a\\,b\\tc") == "a,bc");
  CHECK(ComparableNames("a\\\\004b\xe9") == "ab");
  CHECK(ComparableRecordNames("a\\004\\233b") == "ab");
  CHECK(ComparableRecordNames("a\\.b\\\\c, d") == "a.b\\c, d");
}
