#include "host/requests.h"

#include <doctest/doctest.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/parser_flow.h"
#include "tests/support/flows.h"
#include "tests/support/recording_visitor.h"

using test::FlowAddress;
using test::RecordingVisitor;

// What records say of themselves. What they own and when they let go of it is in requests_lifetime_test.cc.

namespace {

using Visits = std::vector<std::string>;

class NamedItem : public KeyValueItem {
 public:
  explicit NamedItem(const char* item_name) : name(item_name) {}
  void Visit(RequestVisitor* visitor) override { visitor->VisitString("Item", name); }

 private:
  const char* name;
};

ParserFlow Flow() {
  ParserFlow flow;
  flow.local_ipv4 = FlowAddress(1, 0, 0, 0);
  flow.remote_ipv4 = FlowAddress(2, 0, 0, 0);
  flow.local_port = 40000;
  flow.remote_port = 53;
  flow.client_side = 0;
  return flow;
}

// Fills every number of a record. The flow must outlive it.
template <typename Record>
void Fill(Record* record, const ParserFlow* flow) {
  record->spec_id = 1;
  record->request_id = 9;
  record->flow = flow;
  record->request_pattern = "A - IPv4 address lookup";
  record->response_time.ticks = 25000;
  record->start_time.ticks = 1700000000123456;
  record->bytes_request = 40;
  record->bytes_response = 200;
  record->result_code = 3;
  record->num_errors = 1;
}

Visits VisitsOf(const EndRequest& record) {
  RecordingVisitor visitor;
  record.Visit(&visitor);
  return visitor.visits;
}

// The visits of a record that differs from the filled one by `change`, behind the first six, which all have.
template <typename Change>
Visits RestAfter(const ParserFlow& flow, Change change) {
  EndRequest record;
  Fill(&record, &flow);
  change(&record);
  const Visits visits = VisitsOf(record);
  REQUIRE(visits.size() >= 6);
  return {visits.begin() + 6, visits.end()};
}

Visits ClientVisits(const ParserFlow& flow) {
  return RestAfter(flow, [](EndRequest*) {});
}

// The visit that starts with "<operation> <name>=", or nothing.
std::string VisitNamed(const EndRequest& record, const std::string& start) {
  for (const std::string& visit : VisitsOf(record)) {
    if (visit.starts_with(start + "=")) return visit;
  }
  return "";
}

}  // namespace

TEST_CASE("a record is visited in the contract's order") {
  ParserFlow flow = Flow();
  flow.client_side = kClientIsLocal;
  EndRequest record;
  Fill(&record, &flow);
  record.AddFbsId("id", 4);
  record.key_values = std::make_unique<KeyValueList>();
  record.key_values->push_back(std::make_unique<NamedItem>("x"));
  CHECK(VisitsOf(record) == Visits{"String RequestPattern=A - IPv4 address lookup", "Int64 BytesRequest=40",
                                   "Int64 BytesResponse=200", "Int32 ResponseTime=25", "Int32 ResultCode=3",
                                   "Timestamp Timestamp=1700000000123", "Int32 ClientIPv4=1",
                                   "UInt16 Join.ClientPort=40000", "StringList StitchingIDs=[id]",
                                   "Int32List StitchingCounts=[4]", "String Item=x"});
}

TEST_CASE("an extended record is visited like any other, and then its strings") {
  ParserFlow flow = Flow();
  flow.client_side = kClientIsRemote;
  ExtendedEndRequest record;
  Fill(&record, &flow);
  record.AddFbsId("id", 4);
  record.key_values = std::make_unique<KeyValueList>();
  record.key_values->push_back(std::make_unique<NamedItem>("x"));
  record.AddString("Names", "aa.bb");
  CHECK(VisitsOf(record) == Visits{"String RequestPattern=A - IPv4 address lookup", "Int64 BytesRequest=40",
                                   "Int64 BytesResponse=200", "Int32 ResponseTime=25", "Int32 ResultCode=3",
                                   "Timestamp Timestamp=1700000000123", "Int32 ClientIPv4=2",
                                   "UInt16 Join.ClientPort=53", "StringList StitchingIDs=[id]",
                                   "Int32List StitchingCounts=[4]", "String Item=x", "String Names=aa.bb"});
}

TEST_CASE("the least that is visited") {
  const ParserFlow flow = Flow();
  EndRequest record;
  record.flow = &flow;
  record.request_pattern = "";
  record.result_code = kNoResultCode;
  CHECK(VisitsOf(record) == Visits{"String RequestPattern=", "Int64 BytesRequest=0", "Int64 BytesResponse=0",
                                   "Int32 ResponseTime=0", "Timestamp Timestamp=0"});
}

TEST_CASE("the result code that means none is not visited") {
  const ParserFlow flow = Flow();
  EndRequest record;
  Fill(&record, &flow);
  record.result_code = 2147483647;
  CHECK(VisitNamed(record, "Int32 ResultCode").empty());
}

TEST_CASE("every other result code is visited") {
  const ParserFlow flow = Flow();
  EndRequest record;
  Fill(&record, &flow);
  for (const int code : {-1, -2, 0, 15, 2147483646, -2147483647 - 1}) {
    record.result_code = code;
    CHECK(VisitNamed(record, "Int32 ResultCode") == "Int32 ResultCode=" + std::to_string(code));
  }
}

TEST_CASE("the result codes beside the response codes have fixed values") {
  CHECK(kResultTimedOut == -1);
  CHECK(kResultMalformedAnswer == -2);
  CHECK(kNoResultCode == 2147483647);
  CHECK(kDnsSpecId == 1);
}

TEST_CASE("times are visited in milliseconds, cut toward zero") {
  const ParserFlow flow = Flow();
  EndRequest record;
  Fill(&record, &flow);
  struct Row {
    int64_t microseconds;
    const char* milliseconds;
  };
  for (const Row& row : {Row{1999, "1"}, Row{-1999, "-1"}, Row{999, "0"}, Row{-999, "0"}, Row{1000, "1"},
                         Row{-1000, "-1"}, Row{0, "0"}}) {
    record.response_time.ticks = row.microseconds;
    record.start_time.ticks = row.microseconds;
    CHECK(VisitNamed(record, "Int32 ResponseTime") == std::string("Int32 ResponseTime=") + row.milliseconds);
    CHECK(VisitNamed(record, "Timestamp Timestamp") == std::string("Timestamp Timestamp=") + row.milliseconds);
  }
}

TEST_CASE("the time stamp has 64 bits and the response time 32") {
  const ParserFlow flow = Flow();
  EndRequest record;
  Fill(&record, &flow);
  record.start_time.ticks = INT64_MAX;
  CHECK(VisitNamed(record, "Timestamp Timestamp") == "Timestamp Timestamp=9223372036854775");
  record.start_time.ticks = INT64_MIN;
  CHECK(VisitNamed(record, "Timestamp Timestamp") == "Timestamp Timestamp=-9223372036854775");
  record.response_time.ticks = int64_t{4294967295} * 1000000;  // the longest time-out
  CHECK(VisitNamed(record, "Int32 ResponseTime") == "Int32 ResponseTime=-1000");
}

TEST_CASE("sizes are visited with 64 bits") {
  const ParserFlow flow = Flow();
  EndRequest record;
  Fill(&record, &flow);
  record.bytes_request = 5000000000;
  record.bytes_response = -1;
  CHECK(VisitNamed(record, "Int64 BytesRequest") == "Int64 BytesRequest=5000000000");
  CHECK(VisitNamed(record, "Int64 BytesResponse") == "Int64 BytesResponse=-1");
}

TEST_CASE("a local client is the flow's local endpoint") {
  ParserFlow flow = Flow();
  flow.client_side = 1;
  CHECK(ClientVisits(flow) == Visits{"Int32 ClientIPv4=1", "UInt16 Join.ClientPort=40000"});
}

TEST_CASE("a remote client is the flow's remote endpoint") {
  ParserFlow flow = Flow();
  flow.client_side = 2;
  CHECK(ClientVisits(flow) == Visits{"Int32 ClientIPv4=2", "UInt16 Join.ClientPort=53"});
}

TEST_CASE("an unknown client is not visited") {
  ParserFlow flow = Flow();
  for (const int side : {0, 3, -1, 257, 2147483647}) {
    flow.client_side = side;
    CHECK(ClientVisits(flow).empty());
  }
}

TEST_CASE("a client without address is visited by its port alone") {
  ParserFlow flow = Flow();
  flow.client_side = 2;
  flow.remote_ipv4 = 0;
  CHECK(ClientVisits(flow) == Visits{"UInt16 Join.ClientPort=53"});
}

TEST_CASE("a client without port is visited by its address alone") {
  ParserFlow flow = Flow();
  flow.client_side = 1;
  flow.local_port = 0;
  CHECK(ClientVisits(flow) == Visits{"Int32 ClientIPv4=1"});
}

TEST_CASE("a client with neither is not visited") {
  ParserFlow flow = Flow();
  flow.client_side = 1;
  flow.local_port = 0;
  flow.local_ipv4 = 0;
  CHECK(ClientVisits(flow).empty());
}

TEST_CASE("a client's address is visited as it lies in memory, its port without a sign") {
  ParserFlow flow = Flow();
  flow.client_side = 1;
  flow.local_ipv4 = FlowAddress(192, 0, 2, 255);
  flow.local_port = 65535;
  CHECK(ClientVisits(flow) == Visits{"Int32 ClientIPv4=" + std::to_string(static_cast<int>(flow.local_ipv4)),
                                     "UInt16 Join.ClientPort=65535"});
}

TEST_CASE("one stitching count of 0 is left out") {
  const ParserFlow flow = Flow();
  const Visits visits = RestAfter(flow, [](EndRequest* record) { record->AddFbsId("id", 0); });
  CHECK(visits == Visits{"StringList StitchingIDs=[id]"});
}

TEST_CASE("one stitching count that is not 0 is visited") {
  const ParserFlow flow = Flow();
  const Visits visits = RestAfter(flow, [](EndRequest* record) { record->AddFbsId("id", -1); });
  CHECK(visits == Visits{"StringList StitchingIDs=[id]", "Int32List StitchingCounts=[-1]"});
}

TEST_CASE("two stitching counts of 0 are visited") {
  const ParserFlow flow = Flow();
  const Visits visits = RestAfter(flow, [](EndRequest* record) {
    record->AddFbsId("id", 0);
    record->AddFbsId("id", 0);
  });
  CHECK(visits == Visits{"StringList StitchingIDs=[id][id]", "Int32List StitchingCounts=[0][0]"});
}

TEST_CASE("an emptied stitching block is visited with two empty lists") {
  const ParserFlow flow = Flow();
  const Visits visits =
      RestAfter(flow, [](EndRequest* record) { record->stitching = std::make_unique<EndRequest::Stitching>(); });
  CHECK(visits == Visits{"StringList StitchingIDs=", "Int32List StitchingCounts="});
}

TEST_CASE("stitching ids are copied and keep their order") {
  EndRequest record;
  CHECK(record.stitching == nullptr);
  std::string id = "one";
  record.AddFbsId(id, 7);
  REQUIRE(record.stitching != nullptr);
  const EndRequest::Stitching* block = record.stitching.get();
  id = "two";
  record.AddFbsId(id, 0);
  record.AddFbsId("", -5);
  record.AddFbsId("one", 7);
  CHECK(record.stitching.get() == block);
  CHECK(block->ids == std::vector<std::string>{"one", "two", "", "one"});
  CHECK(block->counts == std::vector<int>{7, 0, -5, 7});
}

TEST_CASE("extra attributes present themselves in the list's order") {
  const ParserFlow flow = Flow();
  const Visits visits = RestAfter(flow, [](EndRequest* record) {
    record->key_values = std::make_unique<KeyValueList>();
    for (const char* name : {"b", "a", "b"}) record->key_values->push_back(std::make_unique<NamedItem>(name));
  });
  CHECK(visits == Visits{"String Item=b", "String Item=a", "String Item=b"});
}

TEST_CASE("an empty place in the list of extra attributes is passed over") {
  const ParserFlow flow = Flow();
  const Visits visits = RestAfter(flow, [](EndRequest* record) {
    record->key_values = std::make_unique<KeyValueList>();
    record->key_values->push_back(nullptr);
    record->key_values->push_back(std::make_unique<NamedItem>("b"));
  });
  CHECK(visits == Visits{"String Item=b"});
}

TEST_CASE("the second list of extra attributes is not visited") {
  const ParserFlow flow = Flow();
  const Visits visits = RestAfter(flow, [](EndRequest* record) {
    record->extra_items = std::make_unique<KeyValueList>();
    record->extra_items->push_back(std::make_unique<NamedItem>("never"));
  });
  CHECK(visits.empty());
}

TEST_CASE("strings are visited in byte order of their keys, capitals first") {
  const ParserFlow flow = Flow();
  ExtendedEndRequest record;
  Fill(&record, &flow);
  record.AddString("a", "1");
  record.AddString("B", "2");
  record.AddString("\xc3\xa4", "3");
  record.AddString("", "4");
  const Visits visits = VisitsOf(record);
  REQUIRE(visits.size() == 10);
  CHECK(Visits(visits.begin() + 6, visits.end()) ==
        Visits{"String =4", "String B=2", "String a=1", "String \xc3\xa4=3"});
}

TEST_CASE("a later string replaces an earlier one of the same key") {
  const ParserFlow flow = Flow();
  ExtendedEndRequest record;
  Fill(&record, &flow);
  record.AddString("key", "1");
  record.AddString("key", "2");
  const Visits visits = VisitsOf(record);
  REQUIRE(visits.size() == 7);
  CHECK(visits.back() == "String key=2");
}

TEST_CASE("strings are stored as copies, zero bytes included") {
  ExtendedEndRequest record;
  CHECK(record.strings.empty());
  std::string value("a\0b", 3);
  record.AddString("key", value);
  value = "changed";
  CHECK(record.strings.at("key") == std::string("a\0b", 3));
}

TEST_CASE("a record counts the errors it was given") {
  EndRequest record;
  CHECK(record.GetNumErrors() == 0);
  record.num_errors = 1;
  CHECK(record.GetNumErrors() == 1);
  record.num_errors = 255;
  CHECK(record.GetNumErrors() == 255);
}

TEST_CASE("records start empty") {
  const BeginRequest begin;
  CHECK(begin.spec_id == 0);
  CHECK(begin.request_id == 0);
  CHECK(begin.key_values == nullptr);
  CHECK(begin.flow == nullptr);
  CHECK(begin.request_pattern == nullptr);
  CHECK(begin.start_time.ticks == 0);
  const ExtendedEndRequest end;
  CHECK(end.extra_items == nullptr);
  CHECK(end.stitching == nullptr);
  CHECK(end.response_time.ticks == 0);
  CHECK(end.bytes_request == 0);
  CHECK(end.bytes_response == 0);
  CHECK(end.result_code == 0);
  CHECK(end.strings.empty());
}
