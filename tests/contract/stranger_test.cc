// A host that knows the plug-in only from its contract: it shares no header with us, loads the built library and
// looks at what comes back.

#include <dlfcn.h>
#include <doctest/doctest.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/contract/strangers_view.h"

namespace {

using namespace stranger;

template <typename Symbol>
Symbol Find(const char* name) {
  static void* library = dlopen(DNS_PARSER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  REQUIRE_MESSAGE(library != nullptr, dlerror());
  void* symbol = dlsym(library, name);
  REQUIRE_MESSAGE(symbol != nullptr, name);
  return reinterpret_cast<Symbol>(symbol);
}

struct Ended {
  int request_id = 0;
  int result_code = 0;
  int num_errors = 0;
  int64_t response_time = 0;
  std::vector<std::string> visits;
};

std::vector<std::string> log_lines;
std::vector<std::string> mappings;
std::vector<std::string> debug_questions;
std::vector<std::string> begun;
std::vector<Ended> ended;
int log_level = 4;
bool debug = false;
bool details = true;
bool hang_items = false;

__attribute__((format(printf, 2, 3))) void Log(int level, const char* format, ...) {
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  log_lines.push_back(std::to_string(level) + " " + text);
}
bool Debug(const std::string& file) {
  debug_questions.push_back(file);
  return debug;
}
bool Details() { return details; }
void Inject(const char* query, const char* name, uint32_t ipv4) {
  const auto* octet = reinterpret_cast<const unsigned char*>(&ipv4);
  char text[300];
  std::snprintf(text, sizeof text, "%s %s %d.%d.%d.%d", query == nullptr ? "(null)" : query, name, octet[0],
                octet[1], octet[2], octet[3]);
  mappings.emplace_back(text);
}
uint32_t Context() { return 9; }

// Entries that the contract calls unused hold an address that cannot be called.
void* Poison() { return reinterpret_cast<void*>(0x10); }

const Table table{&log_level, Log, Debug, Poison(), Poison(), Details, Inject, Poison(), Context};

struct Writer final : Visitor {
  std::vector<std::string>* out;
  explicit Writer(std::vector<std::string>* lines) : out(lines) {}
  void Never1() override { FAIL("visitor slot 1 was called"); }
  void Never2() override { FAIL("visitor slot 2 was called"); }
  void Never9() override { FAIL("visitor slot 9 was called"); }
  void Put(const char* kind, const char* name, const std::string& value) {
    out->push_back(std::string(kind) + " " + name + "=" + value);
  }
  void VisitUInt16(const char* n, int v) override { Put("u16", n, std::to_string(v)); }
  void VisitInt32(const char* n, int v) override { Put("i32", n, std::to_string(v)); }
  void VisitInt32List(const char* n, const std::vector<int>& v) override {
    Put("list", n, std::to_string(v.size()));
  }
  void VisitInt64(const char* n, int64_t v) override { Put("i64", n, std::to_string(v)); }
  void VisitTimestamp(const char* n, int64_t v) override { Put("time", n, std::to_string(v)); }
  void VisitString(const char* n, const char* v) override { Put("text", n, v); }
  void VisitStringList(const char* n, const std::vector<std::string>& v) override { Put("texts", n, v.at(0)); }
};

int items_alive = 0;
struct CountedItem final : Item {
  CountedItem() { ++items_alive; }
  ~CountedItem() override { --items_alive; }
  void Visit(Visitor* visitor) override { visitor->VisitInt64("Item", 7); }
};

struct Collector final : Sink {
  void Never1() override { FAIL("sink slot 1 was called"); }
  void Never2() override { FAIL("sink slot 2 was called"); }
  void OnBeginRequest(const Begin* record) override {
    begun.push_back(std::to_string(record->spec_id) + " " + std::to_string(record->request_id) + " " +
                    record->request_pattern + " " + std::to_string(record->start_time) + " port " +
                    std::to_string(record->flow->local_port) + (record->key_values == nullptr ? "" : " items"));
  }
  void OnEndRequest(const End* record) override {
    if (hang_items) Hang(const_cast<End*>(record));
    Ended seen{record->request_id, record->result_code, record->num_errors, record->response_time, {}};
    CHECK(record->GetNumErrors() == record->num_errors);
    Writer writer(&seen.visits);
    record->Visit(&writer);
    ended.push_back(seen);
  }
  static void Hang(End* record) {
    record->AddFbsId("part", 3);
    record->key_values = new std::vector<Item*>{new CountedItem};
    record->extra_items = new std::vector<Item*>{new CountedItem, new CountedItem};
    CHECK(record->GetKeyValueListIfExisting() == record->key_values);
    CHECK(record->stitching->ids == std::vector<std::string>{"part"});
    CHECK(record->stitching->counts == std::vector<int>{3});
  }
};

struct IntNode final : Node {
  std::string name;
  int value = 0;
  void Never1() override {}
  void Never2() override {}
  void Never3() override {}
  void Never4() override {}
  void Never5() override {}
  void Never6() override {}
  void Never7() override {}
  void Never8() override {}
  void Never9() override {}
  void Never10() override {}
  void AddInt32(const std::string& n, int v) override {
    name = n;
    value = v;
  }
};

// One A question for aa.bb, identifier 7; a response with the answer 192.0.2.1 behind a compression pointer.
const std::string kQuery("\0\7\1\0\0\1\0\0\0\0\0\0\2aa\2bb\0\0\1\0\1", 23);
const std::string kResponse(
    "\0\7\x81\x80\0\1\0\1\0\0\0\0\2aa\2bb\0\0\1\0\1\xc0\x0c\0\1\0\1\0\0\0\x3c\0\4\xc0\0\2\1", 39);

class Session {
 public:
  explicit Session(const Args& args = {}) {
    log_lines.clear(), mappings.clear(), debug_questions.clear(), begun.clear(), ended.clear();
    log_level = 4, debug = false, details = true, hang_items = false;
    parser = Find<Parser* (*)(uint64_t, const Table*, const Args&)>("get_parser_default")(0xFEEDu, &table, args);
    REQUIRE(parser != nullptr);
    CHECK(parser->request_sink == nullptr);
    parser->request_sink = &collector;
    const unsigned char client[4] = {10, 1, 2, 3};
    const unsigned char server[4] = {10, 9, 8, 7};
    std::memcpy(&flow.local_ipv4, client, 4);
    std::memcpy(&flow.remote_ipv4, server, 4);
    flow.local_port = 40000;
    flow.remote_port = 53;
    flow.client_side = 1;
    flow.transport = 17;
    flow.context_id = 1;
  }
  ~Session() { Find<void (*)(Parser*)>("destroy_parser_default")(parser); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  int Ask(const std::string& bytes, int64_t now) {
    const int size = static_cast<int>(bytes.size());
    return parser->HandleDataClientToServer(&flow, now, bytes.data(), size, size, 0, nullptr);
  }
  int Answer(const std::string& bytes, int64_t now) {
    const int size = static_cast<int>(bytes.size());
    return parser->HandleDataServerToClient(&flow, now, bytes.data(), size, size, 0, nullptr);
  }

  Collector collector;
  Flow flow;
  Parser* parser;
};

}  // namespace

TEST_CASE("a stranger finds interface version 5") { CHECK(Find<int (*)()>("get_api_version")() == 5); }

TEST_CASE("a stranger sees one exchange from query to record") {
  Session session;
  CHECK(session.parser->host_handle == 0xFEED);
  CHECK(session.parser->host_exports == &table);
  void* state = nullptr;
  CHECK(session.parser->HandleNewStream(&session.flow, &state) == 1);
  CHECK(session.Ask(kQuery, 1'000'000) == 23);
  CHECK(begun == std::vector<std::string>{"1 1 A - IPv4 address lookup 1000000 port 40000"});
  CHECK(session.Answer(kResponse, 1'002'500) == 39);
  session.parser->HandleEndOfStream(&session.flow, &state);

  REQUIRE(ended.size() == 1);
  CHECK(ended[0].request_id == 1);
  CHECK(ended[0].response_time == 2500);
  const int address_as_stored = static_cast<int>(session.flow.local_ipv4);
  CHECK(ended[0].visits == std::vector<std::string>{"text RequestPattern=A - IPv4 address lookup",
                                                    "i64 BytesRequest=23", "i64 BytesResponse=39",
                                                    "i32 ResponseTime=2", "i32 ResultCode=0", "time Timestamp=1000",
                                                    "i32 ClientIPv4=" + std::to_string(address_as_stored),
                                                    "u16 Join.ClientPort=40000", "text Names=aa.bb",
                                                    "text Response=[aa.bb => 192.0.2.1]"});
  CHECK(mappings == std::vector<std::string>{"aa.bb aa.bb 192.0.2.1"});
}

TEST_CASE("a stranger finds the parser's members where the contract puts them") {
  Session session({{"max_open_requests", "12abc"}, {"enable_dnssec", "On"}, {"request_timeout_s", "7"}});
  const Parser& parser = *session.parser;
  CHECK(parser.args.size() == 3);
  CHECK(parser.exports == &table);
  CHECK(parser.max_open_requests == 12);
  CHECK(parser.enable_dnssec);
  CHECK_FALSE(parser.enable_axfr);
  CHECK(parser.request_timeout_us == 7'000'000);
  CHECK(parser.next_request_id == 1);
  session.Ask(kQuery, 0);
  CHECK(parser.next_request_id == 2);
  CHECK(parser.max_open_queries_seen == 1);
  for (int64_t counter : parser.counters) CHECK(counter == 0);
  session.Answer(kResponse, 0);
  session.Answer(kResponse, 0);
  CHECK(parser.counters[4] == 1);  // unsolicited
  CHECK(parser.counters[5] == 1);  // injected
}

TEST_CASE("a stranger's heartbeat expires through the last slot") {
  Session session;
  session.Ask(kQuery, 1'000'000);
  session.parser->HeartbeatAt(6'000'000);
  CHECK(ended.empty());
  session.parser->HeartbeatAt(6'000'001);
  REQUIRE(ended.size() == 1);
  CHECK(ended[0].result_code == -1);
  CHECK(ended[0].response_time == 5'000'000);
  CHECK(log_lines.back() == "4 [dns]-Dropping A - IPv4 address lookup aa.bb that is too old");
  CHECK(std::string(session.parser->GetHealthEvent()) == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:0 mor:1 or:0 rt:1");
}

TEST_CASE("a stranger's wall-clock heartbeat expires what is old by the wall clock") {
  Session session;
  session.Ask(kQuery, 1'000'000);
  session.parser->Heartbeat();
  CHECK(ended.size() == 1);
}

TEST_CASE("a stranger's items and stitching are visited and freed with the record") {
  Session session;
  hang_items = true;
  session.Ask(kQuery, 0);
  session.Answer(kResponse, 0);
  REQUIRE(ended.size() == 1);
  const std::vector<std::string>& visits = ended[0].visits;
  REQUIRE(visits.size() == 13);
  CHECK(visits[8] == "texts StitchingIDs=part");
  CHECK(visits[9] == "list StitchingCounts=1");
  CHECK(visits[10] == "i64 Item=7");
  CHECK(visits[11] == "text Names=aa.bb");
  CHECK(items_alive == 0);
}

TEST_CASE("a stranger's flow fields are copied whole for an expired query") {
  Session session;
  struct Keeper final : Sink {
    Flow copy;
    void Never1() override {}
    void Never2() override {}
    void OnBeginRequest(const Begin*) override {}
    void OnEndRequest(const End* record) override { copy = *record->flow; }
  } keeper;
  session.parser->request_sink = &keeper;
  {
    Flow gone = session.flow;
    gone.client_side = 2;
    gone.own1 = 11, gone.own2 = 12, gone.own3 = 13, gone.own4 = 14, gone.own5 = 15;
    session.parser->HandleDataClientToServer(&gone, 0, kQuery.data(), 23, 23, 0, nullptr);
  }
  session.parser->HeartbeatAt(60'000'000);
  CHECK(keeper.copy.local_ipv4 == session.flow.local_ipv4);
  CHECK(keeper.copy.remote_ipv4 == session.flow.remote_ipv4);
  CHECK(keeper.copy.local_port == 40000);
  CHECK(keeper.copy.remote_port == 53);
  CHECK(keeper.copy.client_side == 2);
  CHECK(keeper.copy.transport == 17);
  CHECK(keeper.copy.context_id == 1);
  CHECK(keeper.copy.own1 == 11);
  CHECK(keeper.copy.own2 == 12);
  CHECK(keeper.copy.own3 == 13);
  CHECK(keeper.copy.own4 == 14);
  CHECK(keeper.copy.own5 == 15);
}

TEST_CASE("a stranger groups records by result code") {
  Session one;
  Session two;
  const MetricSpec* spec = one.parser->GetRequestMetricSpec();
  CHECK(spec == two.parser->GetRequestMetricSpec());
  CHECK(spec->name == "dns");
  CHECK(spec->spec_id == 1);
  CHECK(one.parser->GetFlags() == 0);

  struct Keys final : Sink {
    const MetricSpec* spec = nullptr;
    std::vector<const Key*> made;
    void Never1() override {}
    void Never2() override {}
    void OnBeginRequest(const Begin*) override {}
    void OnEndRequest(const End* record) override { made.push_back(spec->MakeKey(record)); }
  } keys;
  keys.spec = spec;
  two.parser->request_sink = &keys;
  two.Ask(kQuery, 0);
  two.Answer(kResponse, 0);
  two.Ask(kQuery, 0);
  two.parser->HeartbeatAt(60'000'000);
  REQUIRE(keys.made.size() == 2);
  CHECK(*keys.made[1] < *keys.made[0]);
  CHECK_FALSE(*keys.made[0] < *keys.made[1]);
  IntNode node;
  keys.made[1]->Serialize(&node);
  CHECK(node.name == "ResultCode");
  CHECK(node.value == -1);
  for (const Key* key : keys.made) spec->ReleaseKey(key);
  spec->ReleaseKey(nullptr);
}

TEST_CASE("a stranger reads the exported tables") {
  const auto* types = Find<const TableRow*>("dns_types");
  const auto* classes = Find<const TableRow*>("dns_classes");
  int rows = 0;
  while (types[rows].name != nullptr) ++rows;
  CHECK(rows == 49);
  CHECK(types[0].code == 1);
  CHECK(std::string(types[0].name) == "A");
  CHECK(std::string(types[0].description) == "IPv4 address lookup");
  CHECK(types[2].description == nullptr);
  CHECK(types[49].code == 0);
  rows = 0;
  while (classes[rows].name != nullptr) ++rows;
  CHECK(rows == 6);
}

TEST_CASE("a stranger's traces carry file, line and prefix, and are asked for one by one") {
  Session session;
  CHECK(log_lines == std::vector<std::string>{"3 [dns]-parser initialized max_open_requests:65536 "
                                              "handle_dnssec:false handle_axfr:false dns_timeout:5000000"});
  log_lines.clear();
  log_level = 5;
  debug = true;
  session.Ask(kQuery, 0);
  REQUIRE(log_lines.size() == 3);
  CHECK(debug_questions.size() == 4);  // the door, the dump as a whole, and its two lines
  CHECK(log_lines[0] ==
        "5 [dns-parser.cc:153]-[dns]-DNSParser::HandleRequest: local=10.1.2.3:40000 remote=10.9.8.7:53 tport=17 "
        "snap=23 nominal=23");
  CHECK(log_lines[1].starts_with("5 [dns-parser.cc:525]-[dns]-qid=7 recursion=1 "));
  CHECK(log_lines[2] == "5 [dns-parser.cc:546]-[dns]-question[0]@12 = { name='aa.bb' qtype=A(1) qclass=IN(1) }");
  for (const std::string& file : debug_questions) CHECK(file == "dns-parser.cc");
}

TEST_CASE("a stranger that destroys nothing destroys nothing") {
  Find<void (*)(Parser*)>("destroy_parser_default")(nullptr);
}

TEST_CASE("a stranger's second parser knows nothing of the first one's queries") {
  Session one;
  Parser* other = Find<Parser* (*)(uint64_t, const Table*, const Args&)>("get_parser_default")(0, &table, {});
  other->request_sink = &one.collector;
  one.Ask(kQuery, 0);
  CHECK(other->HandleDataServerToClient(&one.flow, 0, kResponse.data(), 39, 39, 0, nullptr) == 39);
  CHECK(ended.empty());
  CHECK(std::string(other->GetHealthEvent()) == "parser:dns uop:0 zqd:0 mqd:0 ur:1 inj:0 mor:0 or:0 rt:0");
  Find<void (*)(Parser*)>("destroy_parser_default")(other);
}
