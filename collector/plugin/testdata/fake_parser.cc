// A parser for the host's tests. It decodes nothing: its arguments say what it does.
//
//   "tell"    set: each call is told to the log, at level 2
//   "result"  what the data calls return instead of the nominal length
//   "begin"   set: a query begins a request, numbered from 1
//   "end"     the number of the request that each response ends, "last" for the one begun last
//   "expire"  the number of the request that each heartbeat ends
//   "health"  the health line; none without it
//   "throw"   "create", "query", "response" or "heartbeat": that call throws "fake <call>", a std::runtime_error
//             of a type that goes away with this library
//   "do"      "abort", "overflow" or "socket": what a query makes it do
//   "no"      "parser": none is made

#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>

#include "host/collector_exports.h"
#include "host/metrics.h"
#include "host/parser_flow.h"
#include "host/protocol_parser.h"
#include "host/request_visitor.h"
#include "host/requests.h"

#ifndef FAKE_VERSION
#define FAKE_VERSION kParserApiVersion
#endif

namespace {

class FakeError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Takes more stack with each call, and does not return where the first byte is 0.
int Overflow(const volatile char* from_caller) {
  volatile char block[4096];
  block[0] = *from_caller;
  return block[0] == 0 ? Overflow(block) + block[0] : 1;
}

class FakeParser : public ITimedProtocolParser {
 public:
  FakeParser(const CollectorExports* table, std::map<std::string, std::string> arguments)
      : exports(table), args(std::move(arguments)) {
    Tell("create");
    MaybeThrow("create");
  }
  ~FakeParser() override { Tell("destroy"); }

  int HandleNewStream(const ParserFlow* /*flow*/, void** stream_state) override {
    Tell("new stream");
    *stream_state = this;
    return 1;
  }

  int HandleDataClientToServer(const ParserFlow* flow, Microtime now, const char* /*data*/, int /*snap_length*/,
                               int nominal_length, long /*unused*/, void** stream_state) override {
    Tell(*stream_state == this ? "query" : "query without a stream", now.ticks);
    MaybeThrow("query");
    Misbehave();
    if (args.contains("begin")) {
      BeginRequest record;
      record.request_id = next_id++;
      record.flow = flow;
      record.request_pattern = "fake";
      record.start_time = now;
      request_sink->OnBeginRequest(&record);
    }
    return Number("result", nominal_length);
  }

  int HandleDataServerToClient(const ParserFlow* flow, Microtime now, const char* /*data*/, int /*snap_length*/,
                               int nominal_length, long /*unused*/, void** /*stream_state*/) override {
    Tell("response", now.ticks);
    MaybeThrow("response");
    if (args.contains("end")) End(flow, args.at("end") == "last" ? next_id - 1 : Number("end", 0));
    return Number("result", nominal_length);
  }

  void HandleEndOfStream(const ParserFlow* /*flow*/, void** /*stream_state*/) override { Tell("end of stream"); }

  using IProtocolParser::Heartbeat;
  void Heartbeat(Microtime now) override {
    Tell("heartbeat", now.ticks);
    MaybeThrow("heartbeat");
    if (args.contains("expire")) End(nullptr, Number("expire", 0));
  }

  const char* GetHealthEvent() override { return args.contains("health") ? args.at("health").c_str() : nullptr; }
  const RequestMetricSpecification* GetRequestMetricSpec() const override { return nullptr; }
  int GetFlags() const override { return 0; }

 private:
  // A plain record without a pattern: the least that a host can be given.
  void End(const ParserFlow* flow, int request_id) {
    EndRequest record;
    record.request_id = request_id;
    record.flow = flow;
    request_sink->OnEndRequest(&record);
  }

  int Number(const char* key, int otherwise) const {
    return args.contains(key) ? std::atoi(args.at(key).c_str()) : otherwise;
  }
  void Tell(const char* what) {
    if (args.contains("tell")) exports->log(2, "%s", what);
  }
  void Tell(const char* what, int64_t time) {
    if (args.contains("tell")) exports->log(2, "%s %lld", what, static_cast<long long>(time));
  }
  void MaybeThrow(const char* call) const {
    if (args.contains("throw") && args.at("throw") == call) throw FakeError(std::string("fake ") + call);
  }

  void Misbehave() const {
    if (!args.contains("do")) return;
    if (args.at("do") == "abort") std::abort();
    if (args.at("do") == "overflow") overflows = static_cast<char>(Overflow(&overflows));
    if (args.at("do") == "socket") close(socket(AF_INET, SOCK_DGRAM, 0));
  }

  const CollectorExports* exports;
  std::map<std::string, std::string> args;
  int next_id = 1;
  mutable volatile char overflows = 0;
};

}  // namespace

int get_api_version() { return FAKE_VERSION; }

IProtocolParser* get_parser_default(uint64_t host_handle, const CollectorExports* exports,
                                    const std::map<std::string, std::string>& args) {
  if (args.contains("no")) return nullptr;
  auto* parser = new FakeParser(exports, args);
  parser->host_handle = host_handle;
  parser->host_exports = exports;
  return parser;
}

#ifndef FAKE_WITHOUT_DESTROY
void destroy_parser_default(IProtocolParser* parser) { delete parser; }
#endif
