#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include "host/collector_exports.h"
#include "host/parser_flow.h"
#include "host/protocol_parser.h"
#include "host/request_visitor.h"
#include "tests/support/dns_builder.h"

// Traffic for the plug-in alone, and the plug-in behind callbacks that do nothing.
namespace bench {

struct NullSink : IRequestSink {
  void OnBeginRequest(const BeginRequest*) override {}
  void OnEndRequest(const EndRequest*) override {}
};

inline int log_level = 2;
inline void Log(int, const char*, ...) {}
inline bool IsDebugEnabled(const std::string&) { return false; }
inline bool WantDetails() { return true; }
inline void Inject(const char*, const char*, uint32_t) {}
inline uint32_t ContextId() { return 0; }
inline const CollectorExports kTable{&log_level,  Log,    IsDebugEnabled, nullptr,  nullptr,
                                     WantDetails, Inject, nullptr,        ContextId};

struct Traffic {
  ParserFlow flow;
  std::string query;
  std::string response;
};

// Exchanges of random clients with a few servers: names of 10 to 30 characters, one or two answers.
inline std::vector<Traffic> MakeTraffic(size_t count) {
  std::mt19937 random(1);
  std::vector<Traffic> traffic(count);
  for (size_t i = 0; i < count; ++i) {
    Traffic& one = traffic[i];
    one.flow.local_ipv4 = 10u | static_cast<uint32_t>(random()) << 8;
    one.flow.remote_ipv4 = 0x35020201u + (static_cast<uint32_t>(random() % 8) << 24);
    one.flow.local_port = static_cast<uint16_t>(1024 + random() % 64000);
    one.flow.remote_port = 53;
    one.flow.client_side = kClientIsLocal;
    one.flow.transport = kTransportUdp;
    one.flow.context_id = 1;
    const auto id = static_cast<uint16_t>(random());
    const std::string name =
        std::string(3 + random() % 20, 'w') + ".example" + std::to_string(random() % 1000) + ".com";
    const bool v6 = random() % 4 == 0;
    one.query = test::Query(id).Question(name, v6 ? test::kAaaa : test::kA).Wire();
    auto response = test::Response(id).Compressed().Question(name, v6 ? test::kAaaa : test::kA);
    if (v6) {
      one.response = response.Answer(name, test::Aaaa("2001:db8::1")).Wire();
    } else {
      one.response = response.Answer(name, test::A("192.0.2.1")).Answer(name, test::A("192.0.2.2")).Wire();
    }
  }
  return traffic;
}

class Parser {
 public:
  Parser() {
    library = dlopen(DNS_PARSER_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
      std::fprintf(stderr, "%s\n", dlerror());
      std::exit(1);
    }
    const auto create = reinterpret_cast<decltype(&get_parser_default)>(dlsym(library, "get_parser_default"));
    parser = static_cast<ITimedProtocolParser*>(create(0, &kTable, {{"max_open_requests", "1000000"}}));
    parser->request_sink = &sink;
  }
  ~Parser() {
    reinterpret_cast<decltype(&destroy_parser_default)>(dlsym(library, "destroy_parser_default"))(parser);
  }
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  void Ask(const Traffic& one) {
    const int size = static_cast<int>(one.query.size());
    parser->HandleDataClientToServer(&one.flow, {++now}, one.query.data(), size, size, 0, nullptr);
  }
  void Answer(const Traffic& one) {
    const int size = static_cast<int>(one.response.size());
    parser->HandleDataServerToClient(&one.flow, {++now}, one.response.data(), size, size, 0, nullptr);
  }

  NullSink sink;
  void* library;
  ITimedProtocolParser* parser;
  int64_t now = 0;
};

}  // namespace bench
