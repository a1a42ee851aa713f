#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// Tables of what another program, tshark, found in a capture: "FILE.expected.tsv", a line for each DNS message on
// port 53. The first line names the columns.
namespace test {

struct ExpectedMessage {
  int frame = 0;  // that completes the message
  int64_t time_ns = 0;
  std::string source;
  std::string destination;
  int source_port = 0;
  int destination_port = 0;
  std::string transport;  // "udp" or "tcp"
  int id = 0;
  bool response = false;
  int rcode = -1;               // of the header; -1 in queries
  std::string names;            // of the questions, as ComparableNames() leaves them
  std::string types;            // of the questions, "A, AAAA"
  bool edns = false;            // an OPT record is in it
  int answer_to = 0;            // the frame of its query; 0: none
  std::optional<double> after;  // response time in seconds
};

struct ExpectedPair {
  ExpectedMessage query;
  ExpectedMessage response;

  int64_t ResponseTimeUs() const;  // rounded
};

// Throws std::runtime_error for a file that is not there or has not the columns needed.
std::vector<ExpectedMessage> ReadExpectedTable(const std::string& path);

// The responses that answer a query of the table, with it.
std::vector<ExpectedPair> PairsOf(const std::vector<ExpectedMessage>& messages);

// The names of questions without what the two programs write in their own ways: bytes that are not printable ASCII
// are left out. The one takes a name as the table has it, the other as records have it.
std::string ComparableNames(const std::string& in_table);
std::string ComparableRecordNames(const std::string& in_record);

}  // namespace test
