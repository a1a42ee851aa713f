#pragma once

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/requests.h"
#include "tests/support/decoding.h"
#include "tests/support/dns_builder.h"
#include "tests/support/recording_host.h"

// What the tests of pairing share: a configured parser, its counters and its host's calls as text that can be
// compared, and exchanges that need no explanation.
namespace test {

using Config = std::map<std::string, std::string>;
inline Config With(const std::string& key, const std::string& value) { return {{key, value}}; }

// A parser with a configuration, on a host that has forgotten the line the parser starts with.
struct Pairing : Bench {
  explicit Pairing(const Config& config = {}, int level = 4) : Bench(config) {
    host.level = level;
    Forget();
  }

  // What the host has seen so far.
  void Forget() {
    host.lines.clear();
    host.calls.clear();
    host.debug_files.clear();
    host.records.clear();
    host.mappings.clear();
  }

  // The first `captured` bytes of a message of `nominal` bytes, alone in memory: a read behind them is a stray one.
  bool RequestCut(const std::string& message, size_t captured, size_t nominal, int64_t now = 0) {
    const auto bytes = Alone(message, captured);
    return parser.HandleRequest(&flow, {now}, bytes.get(), static_cast<int>(captured), static_cast<int>(nominal));
  }
  int ResponseCut(const std::string& message, size_t captured, size_t nominal, int64_t now = 0) {
    const auto bytes = Alone(message, captured);
    return parser.HandleResponse(&flow, {now}, bytes.get(), static_cast<int>(captured), static_cast<int>(nominal));
  }

  // The data callbacks; lengths default to a wholly captured chunk.
  int Up(const std::string& chunk, int snap = -1, int nominal = -1) {
    const int size = static_cast<int>(chunk.size());
    return parser.HandleDataClientToServer(&flow, {0}, chunk.data(), snap < 0 ? size : snap,
                                           nominal < 0 ? size : nominal, 0, nullptr);
  }
  int Down(const std::string& chunk, int snap = -1, int nominal = -1) {
    const int size = static_cast<int>(chunk.size());
    return parser.HandleDataServerToClient(&flow, {0}, chunk.data(), snap < 0 ? size : snap,
                                           nominal < 0 ? size : nominal, 0, nullptr);
  }

  const DnsQuery& OnlyQuery() const {
    if (parser.open_queries.size() != 1) throw std::logic_error("not exactly one open query");
    return parser.open_queries.begin()->second;
  }
  size_t Open() const { return parser.open_queries.size(); }

 private:
  static std::unique_ptr<char[]> Alone(const std::string& message, size_t count) {
    auto bytes = std::make_unique<char[]>(count);
    std::copy_n(message.begin(), count, bytes.get());
    return bytes;
  }
};

// The counters that are not 0, by the keys of the health line ("full" for the one that is never printed), in the
// order of the contract: "uop:1 mor:2".
inline std::string Counters(const DNSParser& parser) {
  const std::pair<const char*, int64_t> counters[] = {
      {"uop", parser.unknown_opcodes},      {"zqd", parser.zero_qdcount_requests},
      {"full", parser.table_full_drops},    {"mqd", parser.multi_qdcount_requests},
      {"ur", parser.unsolicited_responses}, {"inj", parser.injected_mappings},
      {"rt", parser.timed_out_requests},    {"mor", parser.max_open_queries_seen},
  };
  std::string text;
  for (const auto& [key, value] : counters) {
    if (value != 0) text += (text.empty() ? "" : " ") + std::string(key) + ":" + std::to_string(value);
  }
  return text;
}

// What the host was called for, in order: "log details? context? inject end".
inline std::string Calls(const RecordingHost& host) {
  std::string text;
  for (const std::string& call : host.calls) text += (text.empty() ? "" : " ") + call;
  return text;
}

// Queries and responses about the address of aa.bb.
inline std::string AQuery(unsigned id) { return Query(id).Question("aa.bb", kA).Wire(); }
inline std::string AResponse(unsigned id) {
  return Response(id).Question("aa.bb", kA).Answer("aa.bb", A("192.0.2.1")).Wire();
}

// The bytes of a message's only question, about an address: a name that follows as many compression pointers as
// given, each to the next one behind the question, and the last to the name "x".
inline std::string ChainedQuestion(int pointers) {
  unsigned next = 12 + 2 + 4;  // behind the header, the question's own pointer, its type and class
  std::string bytes = U16(0xc000U | next) + U16(kA) + U16(kIn);
  for (int i = 1; i < pointers; ++i) bytes += U16(0xc000U | (next += 2));
  return bytes + "\x01x" + U8(0);
}

// A message behind its two-byte length (RFC 1035 4.2.2).
inline std::string Framed(const std::string& message) {
  return U16(static_cast<unsigned>(message.size())) + message;
}

// The door traces of the handlers tell what was handed on: "request snap=20 nominal=30", one a message.
inline std::vector<std::string> HandedOn(const RecordingHost& host) {
  std::vector<std::string> handed;
  for (const RecordingHost::Line& line : host.lines) {
    const bool request = line.format.starts_with("[%s:%d]-%sDNSParser::HandleRequest:");
    if (!request && !line.format.starts_with("[%s:%d]-%sDNSParser::HandleResponse:")) continue;
    handed.push_back((request ? "request " : "response ") + line.text.substr(line.text.find("snap=")));
  }
  return handed;
}

// Runs `watch` with the text of each line that a host's table of callbacks is told to log. One lives at a time.
class LogWatch {
 public:
  LogWatch(CollectorExports* table, std::function<void(const std::string&)> on_line) : watched(table) {
    watch = std::move(on_line);
    former = table->log;
    table->log = Log;
  }
  ~LogWatch() { watched->log = former; }
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;

 private:
  __attribute__((format(printf, 2, 3))) static void Log(int /*level*/, const char* format, ...) {
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    watch(text);
  }

  CollectorExports* watched;
  void (*former)(int, const char*, ...);
  static inline std::function<void(const std::string&)> watch;
};

// An extra attribute that a host hangs on a record to learn when the record is destroyed.
class LastWord : public KeyValueItem {
 public:
  explicit LastWord(std::function<void()> last) : word(std::move(last)) {}
  LastWord(const LastWord&) = delete;
  LastWord& operator=(const LastWord&) = delete;
  ~LastWord() override { word(); }
  void Visit(RequestVisitor*) override {}

 private:
  std::function<void()> word;
};

// A sink that runs `on_destruction` when the record it is given is destroyed.
class WatchingSink : public IRequestSink {
 public:
  explicit WatchingSink(std::function<void()> on_destruction) : word(std::move(on_destruction)) {}

  void OnBeginRequest(const BeginRequest* request) override { Watch(request); }
  void OnEndRequest(const EndRequest* request) override { Watch(request); }

 private:
  void Watch(const Request* request) {
    // The host may fill a record's lists during the call.
    auto* record = const_cast<Request*>(request);
    record->key_values = std::make_unique<KeyValueList>();
    record->key_values->push_back(std::make_unique<LastWord>(word));
  }

  std::function<void()> word;
};

}  // namespace test
