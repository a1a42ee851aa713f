#include <doctest/doctest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/guarded_bytes.h"
#include "tests/support/pairing.h"
#include "util/ipv6.h"

using namespace test;

// What holds for any message that a builder can make.

namespace {

size_t Upto(size_t most) { return *rc::gen::inRange<size_t>(0, most + 1); }

std::string AnyBytes(size_t least, size_t most) {
  return *rc::gen::container<std::string>(least + Upto(most - least), rc::gen::arbitrary<char>());
}

// One to five labels of any bytes; few different ones, so that compression finds something to point at.
Name AnyName() {
  static const std::vector<std::string> kCommon = {"example", "net", "www", "a"};
  Name name;
  for (size_t i = 1 + Upto(4); i > 0; --i) {
    name.labels.push_back(Upto(2) == 0 ? AnyBytes(1, 63) : kCommon[Upto(kCommon.size() - 1)]);
  }
  return name;
}

// As records show it: labels joined by dots, without escapes.
std::string Text(const Name& name) {
  std::string text;
  for (const std::string& label : name.labels) text.append(text.empty() ? "" : ".").append(label);
  return text;
}

// What a response with these answers must come to.
struct Expected {
  std::string summary;
  std::vector<std::pair<std::string, std::string>> addresses;  // owner as far as a C string holds it, address
  int signatures = 0;

  void Separate() {
    if (!summary.empty()) summary.append(", ");
  }
  void Entry(const std::string& head, const Name& owner, const std::string& data) {
    summary.append(head).append("[").append(Text(owner)).append(" => ").append(data).append("]");
  }
};

std::string CText(const Name& name) { return Text(name).c_str(); }

// Adds a record of any kind to the message and to what is expected of it.
void AddAnyAnswer(Message* message, Expected* expected) {
  const Name owner = AnyName();
  const Name target = AnyName();
  switch (Upto(8)) {
    case 0: {
      const std::string address = "192.0.2." + std::to_string(Upto(255));
      message->Answer(owner, A(address));
      expected->Separate();
      expected->Entry("", owner, address);
      expected->addresses.emplace_back(CText(owner), address);
      return;
    }
    case 1:
      message->Answer(owner, Cname(target));
      expected->Separate();
      return expected->Entry("CNAME", owner, Text(target));
    case 2:
      message->Answer(owner, Ptr(target));
      expected->Separate();
      return expected->Entry("PTR", owner, Text(target));
    case 3:
      message->Answer(owner, Mx(static_cast<unsigned>(Upto(65535)), target));
      expected->Separate();
      return expected->Entry("MX", owner, Text(target));
    case 4: {
      const std::string text = AnyBytes(0, 255);
      message->Answer(owner, Txt(text, "second"));
      return expected->Entry("TXT", owner, text);
    }
    case 5: {
      const std::string address = AnyBytes(16, 16);
      message->Answer(owner, Rdata(kAaaa, address));
      return expected->Entry("", owner, format_ipv6(address.data()));
    }
    case 6:
      message->Answer(owner, Rrsig(kA, target));
      ++expected->signatures;
      return;
    case 7:  // another class is nobody's
      message->Answer(owner, A("192.0.2.1"), 300, kChaos);
      return;
    default:
      message->Answer(owner, Rdata(static_cast<uint16_t>(300 + Upto(60000)), AnyBytes(0, 40)));
  }
}

struct AnyExchange {
  AnyExchange() : query(Query(7)), response(Response(7)) {
    if (Upto(3) != 0) response.Compressed();
    query.Question(name, kA);
    response.Question(name, kA);
    for (size_t i = Upto(6); i > 0; --i) AddAnyAnswer(&response, &expected);
    if (Upto(1) == 0) response.Authority(AnyName(), Ns(AnyName()));
    if (Upto(1) == 0) response.Additional(Opt());
  }

  Name name = AnyName();
  Message query;
  Message response;
  Expected expected;
};

// A reverse name would be a mapping too; random labels do not make one.
std::vector<std::pair<std::string, std::string>> Addresses(const RecordingHost& host) {
  std::vector<std::pair<std::string, std::string>> all;
  for (const RecordingHost::Mapping& mapping : host.mappings) all.emplace_back(mapping.name, mapping.address);
  return all;
}

// What a sink is told, as text.
struct TextSink : IRequestSink {
  void OnBeginRequest(const BeginRequest* request) override {
    told.push_back("begin " + std::to_string(request->request_id) + request->request_pattern);
  }
  void OnEndRequest(const EndRequest* request) override {
    told.push_back("end " + std::to_string(request->request_id) + request->request_pattern);
    const auto* extended = dynamic_cast<const ExtendedEndRequest*>(request);
    if (extended == nullptr) return;
    for (const auto& [key, value] : extended->strings) told.push_back(std::string(key).append(value));
  }
  std::vector<std::string> told;
};

}  // namespace

TEST_CASE("whatever names, types and compression a response is built of, the record says the same") {
  CHECK(rc::check([] {
    const AnyExchange exchange;
    Pairing bench;
    RC_ASSERT(bench.Request(exchange.query.Wire()));
    RC_ASSERT(bench.Response(exchange.response.Wire()) == 1);
    const auto& strings = bench.host.Last().strings;
    const auto text = [&](const char* key) { return strings.contains(key) ? strings.at(key) : ""; };
    RC_ASSERT(text("Names") == Text(exchange.name));
    RC_ASSERT(text("Response") == exchange.expected.summary);
    const int signatures = exchange.expected.signatures;
    RC_ASSERT(text("NumRRSIGRecords") == (signatures == 0 ? "" : std::to_string(signatures)));
    RC_ASSERT(Addresses(bench.host) == exchange.expected.addresses);
  }));
}

TEST_CASE("however a message is cut, no byte behind the cut is read, and no more is said than is there") {
  CHECK(rc::check([] {
    const AnyExchange exchange;
    const std::string wire = exchange.response.Wire();
    const GuardedBytes cut(wire.substr(0, Upto(wire.size())));
    const int nominal = static_cast<int>(wire.size());
    Pairing bench({}, *rc::gen::element(4, 5));
    bench.Request(exchange.query.Wire());
    bench.Forget();
    const bool whole = cut.length() == nominal;
    RC_ASSERT(bench.parser.HandleResponse(&bench.flow, {0}, cut.data(), cut.length(), nominal) == 1);
    if (cut.length() < 12) {
      RC_ASSERT(bench.host.records.empty());
      return;
    }
    const auto& strings = bench.host.Last().strings;
    const std::string said = strings.contains("Response") ? strings.at("Response") : "";
    RC_ASSERT(exchange.expected.summary.starts_with(said));
    if (whole) RC_ASSERT(said == exchange.expected.summary);
    RC_ASSERT(bench.host.mappings.size() <= exchange.expected.addresses.size());
  }));
}

TEST_CASE("no message to one parser changes what another one says") {
  CHECK(rc::check([] {
    RecordingHost host;
    host.level = *rc::gen::element(1, 5);
    TextSink quiet_sink;
    TextSink watched_sink;
    TextSink other_sink;
    DNSParser quiet(&host.table, {});
    DNSParser watched(&host.table, {});
    DNSParser other(&host.table, {{"enable_dnssec", "1"}, {"enable_axfr", "1"}});
    quiet.request_sink = &quiet_sink;
    watched.request_sink = &watched_sink;
    other.request_sink = &other_sink;
    const ParserFlow flow = MakeFlow();
    const auto feed = [&flow](DNSParser* parser, std::string bytes, bool query, int64_t now) {
      const int size = static_cast<int>(bytes.size());
      query ? parser->HandleDataClientToServer(&flow, {now}, bytes.data(), size, size, 0, nullptr)
            : parser->HandleDataServerToClient(&flow, {now}, bytes.data(), size, size, 0, nullptr);
    };
    for (int64_t now = 0; now < 4; ++now) {
      const AnyExchange exchange;
      const AnyExchange foreign;
      for (const bool query : {true, false}) {
        const std::string bytes = (query ? exchange.query : exchange.response).Wire();
        feed(&other, (query ? foreign.query : foreign.response).Wire(), query, now);
        feed(&quiet, bytes, query, now);
        std::string broken = bytes;
        broken[Upto(broken.size() - 1)] = *rc::gen::arbitrary<char>();
        feed(&other, broken, Upto(1) == 0, now);
        feed(&watched, bytes, query, now);
        other.Heartbeat({now + static_cast<int64_t>(Upto(10000000))});
      }
    }
    RC_ASSERT(watched_sink.told == quiet_sink.told);
    RC_ASSERT(std::string(watched.GetHealthEvent()) == std::string(quiet.GetHealthEvent()));
  }));
}
