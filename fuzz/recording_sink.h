#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <tuple>

#include "fuzz/target.h"
#include "host/collector_exports.h"
#include "host/parser_flow.h"
#include "host/request_visitor.h"
#include "host/requests.h"

namespace fuzz {

// The callbacks that a parser is given. They carry no context, so what they answer is static.
struct Host {
  Host() {
    table.log_level = &log_level;
    table.log = Log;
    table.is_debug_enabled = [](const std::string&) { return debug; };
    table.want_extended_details = [] { return details; };
    table.inject_dns_mapping = Inject;
    table.get_current_context_id = [] { return context; };
  }

  static inline int log_level = 0;
  static inline bool debug = true;
  static inline bool details = true;
  static inline uint32_t context = 0;
  static inline int64_t mappings = 0;
  static inline int64_t lines = 0;

  CollectorExports table{};

 private:
  __attribute__((format(printf, 2, 3))) static void Log(int level, const char* format, ...) {
    static char line[4096];
    Must(level >= 2 && level <= log_level, "a line is only logged at a level that was asked for");
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    Must(length >= 0, "every logged line can be formatted");
    ++lines;
  }
  static void Inject(const char* query_name, const char* name, uint32_t) {
    Must(name != nullptr, "a mapping has a name");
    // Reading both to their ends is what a host does.
    if (query_name != nullptr) (void)std::string(query_name);
    (void)std::string(name);
    ++mappings;
  }
};

// Reads every attribute of a record to its end.
class ReadingVisitor : public RequestVisitor {
 public:
  void VisitUInt16(const char* name, int value) override {
    Must(value >= 0 && value <= 65535, "a 16-bit attribute has a 16-bit value");
    Read(name);
  }
  void VisitInt32(const char* name, int) override { Read(name); }
  void VisitInt32List(const char* name, const std::vector<int>&) override { Read(name); }
  void VisitInt64(const char* name, int64_t value) override {
    Must(value >= 0, "no record has a negative count");
    Read(name);
  }
  void VisitTimestamp(const char* name, int64_t) override { Read(name); }
  void VisitString(const char* name, const char* value) override {
    Must(value != nullptr, "a text attribute has a text");
    Read(name);
    Read(value);
  }
  void Reserved9() override { Must(false, "records do not call the unused slot"); }
  void VisitStringList(const char* name, const std::vector<std::string>&) override { Read(name); }

 private:
  void Read(const char* text) { length += std::string(text).size(); }
  size_t length = 0;
};

// A model of the open queries beside the parser's own: what begins ends once, and only what has begun ends.
class RecordingSink : public IRequestSink {
 public:
  // What makes two queries the same one.
  using Key = std::tuple<uint32_t, uint32_t, uint16_t, uint16_t, uint8_t, uint16_t>;
  struct Open {
    Key key;
    int64_t start;
    int64_t bytes;
  };

  static Key KeyOf(const ParserFlow& flow, uint16_t id) {
    return {flow.local_ipv4, flow.remote_ipv4, flow.local_port, flow.remote_port, flow.transport, id};
  }

  // The message whose handling may begin a query or end one.
  void Expect(const ParserFlow& flow, uint16_t id, int64_t now, int64_t nominal) {
    message_key = KeyOf(flow, id);
    message_time = now;
    message_bytes = nominal;
    ended_by_message = 0;
    expiring = false;
  }
  void ExpectExpiry(int64_t time_out) {
    expiring = true;
    time_out_us = time_out;
  }

  void OnBeginRequest(const BeginRequest* request) override {
    Must(!expiring, "no query begins in a heartbeat");
    Must(request->spec_id == kDnsSpecId, "a record names the DNS specification");
    Must(request->request_id == next_id, "queries are numbered one after the other");
    next_id = static_cast<int32_t>(static_cast<uint32_t>(next_id) + 1);
    Must(request->start_time.ticks == message_time, "a query begins at its message's time");
    Must(request->request_pattern != nullptr && *request->request_pattern != '\0', "a query has a pattern");
    ++begun;
    if (keys.contains(message_key)) {
      ++duplicates;  // the older one stands
      return;
    }
    keys.insert(message_key);
    open[request->request_id] = {message_key, message_time, message_bytes};
  }

  void OnEndRequest(const EndRequest* request) override {
    const auto found = open.find(request->request_id);
    Must(found != open.end(), "only an open query ends, and only once");
    const Open& query = found->second;
    Must(request->spec_id == kDnsSpecId, "a record names the DNS specification");
    Must(request->start_time.ticks == query.start, "an end record tells when its query began");
    Must(request->bytes_request == query.bytes && request->bytes_request >= 0, "the query's size is its own");
    Must(request->bytes_response >= 0, "no record has a negative count");
    Must(request->request_pattern != nullptr && *request->request_pattern != '\0', "a query has a pattern");
    Must(request->flow != nullptr, "a record has a flow");
    if (expiring) {
      Must(request->result_code == kResultTimedOut, "what a heartbeat ends has timed out");
      Must(request->bytes_response == 0, "what timed out has no response");
      Must(request->response_time.ticks == time_out_us, "what timed out took the configured time");
    } else {
      Must(query.key == message_key, "a response ends the query of its own flow and identifier");
      Must(++ended_by_message == 1, "a response ends one query");
      Must(request->bytes_response == message_bytes, "the response's size is its own");
      Must(request->result_code >= kResultMalformedAnswer && request->result_code <= 15 &&
               request->result_code != kResultTimedOut,
           "a response has a response code, or is malformed");
    }
    Must(request->GetNumErrors() == (request->result_code == 0 ? 0 : 1), "an error is counted where there is one");
    ReadingVisitor visitor;
    request->Visit(&visitor);
    keys.erase(query.key);
    open.erase(found);
    ++ended;
  }

  std::map<int32_t, Open> open;
  int64_t begun = 0;
  int64_t duplicates = 0;
  int64_t ended = 0;

 private:
  std::set<Key> keys;
  int32_t next_id = 1;
  Key message_key;
  int64_t message_time = 0;
  int64_t message_bytes = 0;
  int ended_by_message = 0;
  bool expiring = false;
  int64_t time_out_us = 0;
};

}  // namespace fuzz
