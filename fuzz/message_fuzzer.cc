// DNS messages as requests, as responses and as both in turn, through the plug-in's entry points. Beside the parser
// runs a model of its open queries.

#include <algorithm>
#include <limits>
#include <string>
#include <string_view>

#include "fuzz/draw.h"
#include "fuzz/message_format.h"
#include "fuzz/recording_sink.h"
#include "fuzz/target.h"
#include "host/protocol_parser.h"

namespace fuzz {
namespace {

class Bench {
 public:
  explicit Bench(Draw* settings) {
    const uint8_t bits = settings->U8();
    const uint8_t host_bits = settings->U8();
    const uint8_t most = settings->U8();
    time_out_s = settings->U8();
    Host::log_level = host_bits & 7;
    Host::details = (host_bits & 8) == 0;
    Host::debug = (host_bits & 16) == 0;
    Host::context = (host_bits & 32) == 0 ? 0 : kContext;
    Host::mappings = 0;
    if (most > 0) limit = most;
    parser = static_cast<ITimedProtocolParser*>(
        get_parser_default(7, &host.table,
                           {{"enable_dnssec", (bits & 1) != 0 ? "true" : "false"},
                            {"enable_axfr", (bits & 2) != 0 ? "true" : "false"},
                            {"request_timeout_s", std::to_string(time_out_s)},
                            {"max_open_requests", std::to_string(limit)}}));
    parser->request_sink = &sink;
  }
  ~Bench() { destroy_parser_default(parser); }
  Bench(const Bench&) = delete;
  Bench& operator=(const Bench&) = delete;

  void Run(Draw* input) {
    while (!input->Empty()) Step(input);
    Heartbeat(kFarFuture);
    Must(sink.open.empty(), "every query that has begun ends");
    Must(sink.begun == sink.ended + sink.duplicates, "the account of queries adds up");
  }

 private:
  static constexpr uint32_t kContext = 1;
  static constexpr int64_t kFarFuture = std::numeric_limits<int64_t>::max();
  static constexpr int64_t kLatest = kFarFuture - 1'000'000'000'000;  // leaves room for time-outs

  void Step(Draw* input) {
    const uint8_t step = input->U8();
    MoveClock(step, input);
    switch (static_cast<MessageStep>(step & kStepMask)) {
      case MessageStep::kRequest:
        return Deliver(input, true, false);
      case MessageStep::kResponse:
        return Deliver(input, false, true);
      case MessageStep::kBoth:
        return Deliver(input, true, true);
      case MessageStep::kHeartbeat:
        return Heartbeat(now);
    }
  }

  void MoveClock(uint8_t step, Draw* input) {
    if ((step & kAnyTime) != 0) {
      now = std::min(input->I64(), kLatest);
    } else {
      now = std::clamp(now, -kLatest, kLatest) + static_cast<int16_t>(input->U16()) * int64_t{1000};
    }
  }

  void Deliver(Draw* input, bool as_request, bool as_response) {
    const ParserFlow flow = DrawFlow(input);
    const uint8_t shape = input->U8();
    const std::string_view message = OneMessage(flow, input->LongText());
    const int size = static_cast<int>(message.size());
    int snap = size;
    int nominal = size;
    if ((shape & kCut) != 0) snap = std::min<int>(size, input->U16());
    if ((shape & kOtherNominal) != 0) nominal = static_cast<int>(input->U32() & 0x7fffffff);
    const Captured bytes(message.substr(0, static_cast<size_t>(snap)));
    const auto* data = reinterpret_cast<const char*>(bytes.data());
    if (as_request) Hand(flow, data, snap, nominal, true);
    if (!as_response) return;
    // The same bytes with the other direction's bit, and as they are.
    Hand(flow, data, snap, nominal, false);
    const int flags = flow.transport == kTransportTcp ? 4 : 2;
    if (!as_request || snap <= flags) return;
    std::string answer(message.substr(0, static_cast<size_t>(snap)));
    answer[static_cast<size_t>(flags)] = static_cast<char>(answer[static_cast<size_t>(flags)] | '\x80');
    const Captured turned(answer);
    Hand(flow, reinterpret_cast<const char*>(turned.data()), snap, nominal, false);
  }

  static ParserFlow DrawFlow(Draw* input) {
    const uint8_t bits = input->U8();
    ParserFlow flow;
    flow.local_ipv4 = 0x010200c0;
    flow.remote_ipv4 = (bits & 1) != 0 ? 0x350200c0U : 0U;
    flow.local_port = (bits & 2) != 0 ? 40000 : 0;
    flow.remote_port = 53;
    flow.client_side = bits >> 2 & 3;
    flow.transport = (bits & 16) == 0 ? kTransportUdp : (bits & 32) == 0 ? kTransportTcp : bits;
    flow.context_id = kContext;
    return flow;
  }

  void Hand(const ParserFlow& flow, const char* data, int snap, int nominal, bool is_request) {
    Expect(flow, data, snap, nominal);
    const auto open_before = static_cast<int64_t>(sink.open.size());
    const auto begun_before = sink.begun;
    void* stream = nullptr;
    parser->HandleNewStream(&flow, &stream);
    const auto handle =
        is_request ? &IProtocolParser::HandleDataClientToServer : &IProtocolParser::HandleDataServerToClient;
    const int used = (parser->*handle)(&flow, {now}, data, snap, nominal, 0, &stream);
    parser->HandleEndOfStream(&flow, &stream);
    CheckUsed(flow, snap, nominal, used);
    if (is_request) {
      Must(sink.begun - begun_before <= 1, "one message begins one query at most");
      Must(static_cast<int64_t>(sink.open.size()) >= open_before, "a request ends no query");
    } else {
      Must(sink.begun == begun_before, "a response begins no query");
    }
    Must(static_cast<int64_t>(sink.open.size()) <= limit, "no more queries are open than may be");
    CheckHealth();
  }

  // Over TCP one message at a time, so that what is expected can be told from its bytes.
  static std::string_view OneMessage(const ParserFlow& flow, std::string_view bytes) {
    if (flow.transport != kTransportTcp || bytes.size() < 2) return bytes;
    return bytes.substr(0, size_t{2} + Word(bytes.data()));
  }

  void Expect(const ParserFlow& flow, const char* data, int snap, int nominal) {
    const int at = flow.transport == kTransportTcp ? 2 : 0;
    uint16_t id = 0;
    int64_t bytes = nominal;
    if (snap >= at + 2) id = Word(data + at);
    if (at > 0 && snap >= 2) bytes = Word(data);
    sink.Expect(flow, id, now, bytes);
  }

  static uint16_t Word(const char* bytes) {
    return static_cast<uint16_t>(static_cast<uint8_t>(bytes[0]) << 8 | static_cast<uint8_t>(bytes[1]));
  }

  static void CheckUsed(const ParserFlow& flow, int snap, int nominal, int used) {
    if (snap > nominal) return Must(used == -1, "more bytes than there were on the wire are refused");
    if (flow.transport == kTransportUdp) {
      return Must(used == -1 || used == nominal, "a datagram is used whole or refused");
    }
    if (flow.transport != kTransportTcp) return Must(used == -1, "an unknown transport is refused");
    Must(used >= -1, "a stream's bytes are used or refused");
    if (snap == nominal) Must(used <= nominal, "no more is used than there is");
  }

  void Heartbeat(int64_t at) {
    const int64_t time_out = int64_t{time_out_s} * 1000000;
    sink.ExpectExpiry(time_out);
    auto expected = sink.open;
    const Microtime cutoff = Microtime{at} - Microdelta{time_out};
    std::erase_if(expected, [&](const auto& entry) { return entry.second.start < cutoff.ticks; });
    parser->Heartbeat({at});
    Must(sink.open.size() == expected.size(), "a heartbeat ends what is too old, and nothing else");
    for (const auto& entry : expected) {
      Must(sink.open.contains(entry.first), "a heartbeat ends what is too old, and nothing else");
    }
    CheckHealth();
  }

  void CheckHealth() {
    const char* line = parser->GetHealthEvent();
    Must(line != nullptr, "a parser has a health line");
    const std::string text(line);
    const std::string open = " or:" + std::to_string(sink.open.size()) + " ";
    Must(text.find(open) != std::string::npos, "the health line counts the open queries");
    Must(text.find(":-") == std::string::npos, "the health line has no negative count");
  }

  Host host;
  RecordingSink sink;
  ITimedProtocolParser* parser = nullptr;
  int limit = 65536;
  int time_out_s = 5;
  int64_t now = 0;
};

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  fuzz::Bench bench(&input);
  bench.Run(&input);
  return 0;
}
