// Captures of many tools, from a folder outside of the tree that DNSPAIR_CORPUS names, with tables beside them of
// what tshark finds in each.
#include <doctest/doctest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <tuple>

#include "tests/captures/differences.h"
#include "tests/captures/expected_table.h"
#include "tests/captures/program.h"
#include "tests/support/compress.h"
#include "tests/support/temporary_file.h"

namespace {

using nlohmann::json;
using test::Difference;
using test::ExpectedMessage;
using test::ExpectedPair;
using test::ReadRun;
using test::Reason;

struct Listed {
  std::string name;  // below the folder
  std::string path;
};

// Empty, with a message, without a corpus.
std::vector<Listed> Corpus() {
  const char* folder = std::getenv("DNSPAIR_CORPUS");
  if (folder == nullptr) {
    MESSAGE("skipped: DNSPAIR_CORPUS is not set");
    return {};
  }
  const std::string suffix = ".expected.tsv";
  std::vector<Listed> files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    std::string path = entry.path().string();
    if (!path.ends_with(suffix)) continue;
    path.resize(path.size() - suffix.size());
    files.push_back({std::filesystem::relative(path, folder).string(), path});
  }
  std::sort(files.begin(), files.end(), [](const Listed& a, const Listed& b) { return a.name < b.name; });
  CHECK(!files.empty());
  return files;
}

// What the program says of a capture; asked once.
const ReadRun& RunOf(const Listed& file) {
  static std::map<std::string, ReadRun> runs;
  const auto found = runs.find(file.path);
  return found != runs.end() ? found->second : runs.emplace(file.path, test::RunRead({file.path})).first->second;
}

// The records of one capture, by who asked whom under which identifier.
class Records {
 public:
  explicit Records(const ReadRun& run) {
    for (json& record : run.Records()) by_key[KeyOf(record)].push_back(std::move(record));
  }

  // Those of the pair's client, server and identifier for which the condition holds.
  template <typename Condition>
  std::vector<json> Find(const ExpectedPair& pair, const Condition& condition) const {
    const ExpectedMessage& q = pair.query;
    std::vector<json> all;
    const auto found = by_key.find({q.source, q.source_port, q.destination, q.destination_port, q.id, q.transport});
    if (found == by_key.end()) return all;
    std::copy_if(found->second.begin(), found->second.end(), std::back_inserter(all), condition);
    return all;
  }

  // Those that the pair's query began.
  std::vector<json> OfQuery(const ExpectedPair& pair) const {
    return Find(pair, [&](const json& record) { return record["query_ns"] == pair.query.time_ns; });
  }

 private:
  using Key = std::tuple<std::string, int, std::string, int, int, std::string>;

  static Key KeyOf(const json& record) {
    return {record["client_ip"],   record["client_port"], record["server_ip"],
            record["server_port"], record["dns_id"],      record["proto"]};
  }

  std::map<Key, std::vector<json>> by_key;
};

bool HasCode(const json& record, const ExpectedMessage& response) {
  static const std::vector<std::string> kNames = {"NOERROR",  "FORMERR", "SERVFAIL",
                                                  "NXDOMAIN", "NOTIMP",  "REFUSED"};
  if (record["result_code"] != response.rcode) return false;
  const auto code = static_cast<size_t>(response.rcode);
  return response.edns || code >= kNames.size() || record["rcode"] == kNames[code];  // OPT may extend it
}

// Whether a record says what tshark says of a pair, "" for yes.
std::string Disagreement(const json& record, const ExpectedPair& pair) {
  if (!record.contains("rtt_us")) return "has no response";
  if (std::abs(record["rtt_us"].get<int64_t>() - pair.ResponseTimeUs()) > 1) return "has another response time";
  if (test::ComparableRecordNames(record["qname"]) != pair.query.names) return "has another name";
  if (record["qtype"] != pair.query.types) return "has another type";
  if (!HasCode(record, pair.response)) return "has another code";
  return "";
}

// "" when exactly one record is about the pair's query and agrees.
std::string Disagreement(const Records& records, const ExpectedPair& pair) {
  const std::vector<json> candidates = records.OfQuery(pair);
  if (candidates.empty()) return "is missing";
  if (candidates.size() > 1) return "is there more than once";
  return Disagreement(candidates.front(), pair);
}

// Whether the records show what the reason says they show instead of the pair.
bool ShowsInstead(const Records& records, const ExpectedPair& pair, Reason reason) {
  const auto has_response_at = [](const json& record, int64_t time_ns) {
    return record.contains("response_ns") && record["response_ns"] == time_ns;
  };
  const std::vector<json> of_query = records.OfQuery(pair);
  switch (reason) {
    case Reason::kNotRecorded:
      return of_query.empty();
    case Reason::kTooLate:
      return of_query.size() == 1 && of_query[0]["status"] == "timeout" && pair.ResponseTimeUs() > 5'000'000;
    case Reason::kStillOpen:
      return of_query.empty() &&
             records.Find(pair,
                          [&](const json& record) {
                            const int64_t age_ns = pair.query.time_ns - record["query_ns"].get<int64_t>();
                            return has_response_at(record, pair.response.time_ns) && record["retransmits"] > 0 &&
                                   age_ns >= 5'000'000'000 && age_ns < 6'000'000'000;
                          })
                     .size() == 1;
    case Reason::kOwnPacket:
      return of_query.size() == 1 && of_query[0]["status"] == "answered" &&
             of_query[0]["response_ns"] < pair.response.time_ns && HasCode(of_query[0], pair.response);
  }
  return false;
}

const Reason* FindReason(const Listed& file, const ExpectedMessage& response) {
  const auto& all = test::ExplainedDifferences();
  const auto found = std::find_if(all.begin(), all.end(), [&](const Difference& difference) {
    return difference.file == file.name && difference.frame == response.frame && difference.id == response.id;
  });
  return found == all.end() ? nullptr : &found->reason;
}

void CheckPair(const Listed& file, const Records& records, const ExpectedPair& pair) {
  const std::string disagreement = Disagreement(records, pair);
  const Reason* reason = FindReason(file, pair.response);
  if (reason == nullptr && disagreement.empty()) return;
  CAPTURE(pair.response.frame);
  CAPTURE(pair.query.names);
  if (reason == nullptr) {
    CHECK_MESSAGE(false, "the pair ", disagreement);
  } else if (disagreement.empty()) {
    CHECK_MESSAGE(false, "the pair is as tshark has it; no difference is to be explained");
  } else {
    CHECK(ShowsInstead(records, pair, *reason));
  }
}

// Zero, or one and a line that says what is wrong with the file and where.
void CheckEnd(const Listed& file, const ReadRun& run) {
  if (run.exit_code == 0) {
    CHECK(run.errors == "");
    return;
  }
  CHECK(run.exit_code == 1);
  CHECK(run.errors.starts_with("dnspair: " + file.path + ":"));
}

size_t CountOf(const std::vector<ExpectedMessage>& messages, const char* transport) {
  return static_cast<size_t>(std::count_if(messages.begin(), messages.end(), [&](const ExpectedMessage& message) {
    return message.transport == transport;
  }));
}

std::string Contents(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

TEST_CASE("every capture's packets and messages add up, and no message that tshark sees is missing") {
  for (const Listed& file : Corpus()) {
    CAPTURE(file.name);
    const ReadRun& run = RunOf(file);
    CheckEnd(file, run);
    CHECK(test::WrongSums(run.account) == "");
    CHECK(run.account["exchanges"]["total"] == run.Records().size());
    const auto messages = test::ReadExpectedTable(file.path + ".expected.tsv");
    CHECK(run.account["messages"]["udp"] >= CountOf(messages, "udp"));
    CHECK(run.account["messages"]["tcp"] >= CountOf(messages, "tcp"));
  }
}

TEST_CASE("every pair that tshark sees is a record, or its difference is explained") {
  size_t pairs = 0;
  const std::vector<Listed> files = Corpus();
  for (const Listed& file : files) {
    CAPTURE(file.name);
    const Records records(RunOf(file));
    for (const ExpectedPair& pair : test::PairsOf(test::ReadExpectedTable(file.path + ".expected.tsv"))) {
      CheckPair(file, records, pair);
      ++pairs;
    }
  }
  MESSAGE("pairs compared with tshark: ", pairs);
  CHECK((pairs > 0 || files.empty()));
}

TEST_CASE("every explained difference is about a pair that is there") {
  std::set<std::string> names;
  std::set<std::tuple<std::string, int, int>> answers;
  for (const Listed& file : Corpus()) {
    names.insert(file.name);
    for (const ExpectedPair& pair : test::PairsOf(test::ReadExpectedTable(file.path + ".expected.tsv"))) {
      answers.insert({file.name, pair.response.frame, pair.response.id});
    }
  }
  for (const Difference& difference : test::ExplainedDifferences()) {
    const std::string name(difference.file);
    if (!names.contains(name)) continue;  // the folder holds other captures
    CAPTURE(name);
    CAPTURE(difference.frame);
    CHECK(answers.contains({name, difference.frame, difference.id}));
  }
}

TEST_CASE("every capture has the same records compressed and through a pipe") {
  for (const Listed& file : Corpus()) {
    CAPTURE(file.name);
    const std::string bytes = Contents(file.path);
    const std::string& records = RunOf(file).output;
    CHECK((test::RunRead({"-"}, bytes).output == records));
    if (bytes.starts_with("\x1f\x8b")) continue;
    const test::TemporaryFile gzip(test::Gzip(bytes, 1));
    CHECK((test::RunRead({gzip.path}).output == records));
    CHECK((test::RunRead({"-"}, test::Zstd(bytes, 1)).output == records));
  }
}
