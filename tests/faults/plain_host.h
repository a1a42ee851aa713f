#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/collector_exports.h"
#include "host/parser_flow.h"
#include "host/protocol_parser.h"
#include "host/request_visitor.h"
#include "host/requests.h"

// A host such as anyone may write from the contract: it loads the built library and writes down what it is told.
namespace faults {

enum class Callback { kLog, kDebug, kDetails, kMapping, kContext, kBegin, kEnd };

// What a host does with a parser, one call of it.
struct Call {
  enum What { kQuery, kResponse, kHeartbeat };
  What what;
  std::string bytes;  // a message, over TCP behind its length
  int64_t time = 0;   // microseconds
  uint8_t transport = kTransportUdp;
};

using Calls = std::vector<Call>;
using Config = std::map<std::string, std::string>;

// The callbacks carry no context, so one host lives at a time.
class PlainHost : public IRequestSink {
 public:
  PlainHost();
  ~PlainHost() override;
  PlainHost(const PlainHost&) = delete;
  PlainHost& operator=(const PlainHost&) = delete;

  // Makes the host's parser; throws what the library throws.
  void Create(const Config& config = {});
  void Destroy();

  // What the parser's function returns; 0 for a heartbeat.
  int Make(const Call& call);
  void Make(const Calls& calls);
  // The same with the lengths of a capture that may have cut the message.
  int Feed(Call::What what, uint8_t transport, const char* data, size_t snap, size_t nominal, int64_t time = 0);
  const char* Health();

  // Begun and ended requests as text, the mappings, and how often each callback came.
  std::vector<std::string> records;
  std::vector<std::string> mappings;
  std::map<Callback, int> counts;
  int begun = 0;
  int ended = 0;

  int log_level = 4;                          // 5 switches the traces on, too
  std::function<void(Callback)> on_callback;  // before anything is written down

 private:
  void OnBeginRequest(const BeginRequest* request) override;
  void OnEndRequest(const EndRequest* request) override;
  static void Note(Callback callback);

  __attribute__((format(printf, 2, 3))) static void Log(int level, const char* format, ...);
  static bool IsDebugEnabled(const std::string& file);
  static bool WantDetails();
  static void Inject(const char* query_name, const char* name, uint32_t ipv4);
  static uint32_t ContextId();

  CollectorExports table{};
  ITimedProtocolParser* parser = nullptr;
};

// The flow of every call, by transport: 192.0.2.10:40000, the client, to 192.0.2.53:53.
ParserFlow FlowOf(uint8_t transport);

}  // namespace faults
