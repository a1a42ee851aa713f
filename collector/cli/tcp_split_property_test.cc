#include <doctest/doctest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "collector/cli/frames_for_tests.h"
#include "collector/cli/pipeline.h"
#include "collector/output/columns.h"
#include "collector/output/record_writer.h"
#include "collector/plugin/library.h"

// TCP through the whole host, down to the records: how a stream was cut into segments cannot be seen in them.
namespace cli {
namespace {

using test::kA;

size_t Upto(size_t most) { return *rc::gen::inRange<size_t>(0, most + 1); }

// What one side of a connection sends behind its SYN.
struct Stream {
  std::string bytes;
  uint32_t first_sequence = 0;  // the SYN's
};

struct Connection {
  Stream queries;
  Stream responses;
  bool ipv6 = false;
};

test::Name AnyName() {
  test::Name name;
  for (size_t i = 1 + Upto(2); i > 0; --i) {
    name.labels.push_back(*rc::gen::container<std::string>(1 + Upto(20), rc::gen::arbitrary<char>()));
  }
  return name;
}

// Queries, and responses to most of them in any order, some of them long.
Connection AnyConnection() {
  Connection connection;
  connection.ipv6 = Upto(1) == 1;
  connection.queries.first_sequence = *rc::gen::arbitrary<uint32_t>();
  connection.responses.first_sequence = *rc::gen::arbitrary<uint32_t>();
  std::vector<std::string> responses;
  for (unsigned id = 0, count = static_cast<unsigned>(1 + Upto(7)); id < count; ++id) {
    const test::Name name = AnyName();
    connection.queries.bytes += test::Query(id).Question(name, kA).TcpWire();
    auto response = test::Response(id).Question(name, kA);
    for (size_t i = Upto(5) == 0 ? Upto(100) : Upto(2); i > 0; --i) response.Answer(name, test::A("192.0.2.80"));
    if (Upto(5) != 0)
      responses.insert(responses.begin() + static_cast<ptrdiff_t>(Upto(responses.size())), response.TcpWire());
  }
  for (const std::string& response : responses) connection.responses.bytes += response;
  return connection;
}

using Span = std::pair<size_t, size_t>;

// Cuts anywhere, some bytes more than once, in any order.
std::vector<Span> AnySegments(size_t size) {
  std::vector<size_t> cuts(Upto(12));
  for (size_t& cut : cuts) cut = Upto(size);
  cuts.insert(cuts.end(), {0, size});
  std::sort(cuts.begin(), cuts.end());
  std::vector<Span> spans;
  for (size_t i = 1; i < cuts.size(); ++i) spans.emplace_back(cuts[i - 1], cuts[i]);
  for (size_t extra = Upto(5); extra > 0; --extra) spans.push_back(std::minmax({Upto(size), Upto(size)}));
  for (size_t i = spans.size(); i > 1; --i) std::swap(spans[i - 1], spans[Upto(i - 1)]);
  return spans;
}

test::Packet Segment(const Connection& connection, bool from_client, const test::TcpFields& fields) {
  const char* client = connection.ipv6 ? "2001:db8::1" : "192.0.2.1";
  const char* server = connection.ipv6 ? "2001:db8::53" : "192.0.2.53";
  test::Packet packet = test::Packet().Ethernet();
  const char* from = from_client ? client : server;
  const char* to = from_client ? server : client;
  connection.ipv6 ? packet.Ipv6(from, to) : packet.Ipv4(from, to);
  return from_client ? packet.Tcp(40000, 53, fields) : packet.Tcp(53, 40000, fields);
}

// One side's segments all carry one time, so that the messages do, whichever segment completes them.
void Send(const Connection& connection, bool from_client, const std::vector<Span>& segments, FrameList* frames) {
  const Stream& stream = from_client ? connection.queries : connection.responses;
  const int64_t now = from_client ? kMillisecond : 2 * kMillisecond;
  for (const auto& [from, to] : segments) {
    const uint32_t sequence = stream.first_sequence + 1 + static_cast<uint32_t>(from);
    const test::TcpFields fields{.sequence = sequence, .flags = test::kAck};
    frames->Add(
        now, Segment(connection, from_client, fields).Payload(test::ToBytes(stream.bytes.substr(from, to - from))));
  }
}

struct Writer : plugin::ExchangeListener {
  Writer() : writer(output::MakeJsonWriter(&buffer, output::EveryColumn())) {}
  void OnExchange(const plugin::Exchange& exchange) override {
    writer->Write(exchange);
    ++count;
  }

  uint64_t count = 0;
  output::Buffer buffer;
  std::unique_ptr<output::RecordWriter> writer;
};

// The records of a connection whose streams come in these segments.
std::string Records(const Connection& connection, const std::vector<Span>& queries,
                    const std::vector<Span>& responses) {
  static const plugin::Library library(DNS_PARSER);
  FrameList frames;
  for (const bool from_client : {true, false}) {
    const uint32_t sequence = from_client ? connection.queries.first_sequence : connection.responses.first_sequence;
    frames.Add(0, Segment(connection, from_client, {.sequence = sequence, .flags = test::kSyn}));
  }
  Send(connection, true, queries, &frames);
  Send(connection, false, responses, &frames);
  Writer writer;
  Pipeline pipeline({}, library, &writer);
  pipeline.Run(&frames, [] { return true; });
  pipeline.Finish();
  output::Account account = pipeline.Account();
  account.exchanges = writer.count;
  RC_ASSERT(Contradictions(account).empty());
  return std::string(writer.buffer.Held());
}

TEST_CASE("any split of a TCP stream, in any order and with repetitions, gives the records of a whole one") {
  CHECK(rc::check([] {
    const Connection connection = AnyConnection();
    const Span all_queries{0, connection.queries.bytes.size()};
    const Span all_responses{0, connection.responses.bytes.size()};
    const std::string whole = Records(connection, {all_queries}, {all_responses});
    RC_ASSERT(whole.find("\"proto\":\"tcp\"") != std::string::npos);
    RC_ASSERT(Records(connection, AnySegments(all_queries.second), AnySegments(all_responses.second)) == whole);
  }));
}

}  // namespace
}  // namespace cli
