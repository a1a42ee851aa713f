#pragma once

// The contract as somebody would write it down who has never seen our headers: every structure, table and slot a
// second time, by hand. Nothing of ours is included here, so that a change of layout on our side shows.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace stranger {

using Args = std::map<std::string, std::string>;

struct Table {
  const int* log_level;
  void (*log)(int, const char*, ...);
  bool (*is_debug_enabled)(const std::string&);
  void* unused4;
  void* unused5;
  bool (*want_extended_details)();
  void (*inject_dns_mapping)(const char*, const char*, uint32_t);
  void* unused8;
  uint32_t (*get_current_context_id)();
};

struct Flow {
  virtual ~Flow() {}
  virtual void AddTlsHandshakeError() const {}
  virtual void AddTlsHandshakeSuccess(int64_t, const std::string&, const std::string&) const {}
  uint32_t local_ipv4 = 0;
  uint32_t remote_ipv4 = 0;
  uint16_t local_port = 0;
  uint16_t remote_port = 0;
  int32_t client_side = 0;
  uint8_t transport = 0;
  uint32_t context_id = 0;
  uint32_t own1 = 0;
  uint8_t own2 = 0;
  uint32_t own3 = 0;
  uint64_t own4 = 0;
  uint64_t own5 = 0;
};

struct Visitor {
  virtual void Never1() = 0;
  virtual void Never2() = 0;
  virtual void VisitUInt16(const char*, int) = 0;
  virtual void VisitInt32(const char*, int) = 0;
  virtual void VisitInt32List(const char*, const std::vector<int>&) = 0;
  virtual void VisitInt64(const char*, int64_t) = 0;
  virtual void VisitTimestamp(const char*, int64_t) = 0;
  virtual void VisitString(const char*, const char*) = 0;
  virtual void Never9() = 0;
  virtual void VisitStringList(const char*, const std::vector<std::string>&) = 0;

 protected:
  ~Visitor() = default;
};

struct Item {
  virtual ~Item() {}
  virtual void Visit(Visitor*) = 0;
};

struct RecordBase {
  virtual ~RecordBase() {}
  virtual std::vector<Item*>* GetKeyValueListIfExisting() = 0;
  int32_t spec_id;
  int32_t request_id;
  std::vector<Item*>* key_values;
  const Flow* flow;
};

struct Begin : RecordBase {
  const char* request_pattern;
  int64_t start_time;
};

struct Stitching {
  std::vector<std::string> ids;
  std::vector<int> counts;
};

struct End : RecordBase {
  virtual void AddFbsId(const std::string&, int) = 0;
  virtual void Visit(Visitor*) const = 0;
  virtual int GetNumErrors() const = 0;
  const char* request_pattern;
  int64_t response_time;
  int64_t start_time;
  int64_t bytes_request;
  int64_t bytes_response;
  int32_t result_code;
  uint8_t num_errors;
  std::vector<Item*>* extra_items;
  Stitching* stitching;
};

// An extended record is an End with this behind it.
struct ExtendedEnd : End {
  std::map<std::string, std::string> strings;
};

struct Sink {
  virtual void Never1() = 0;
  virtual void Never2() = 0;
  virtual void OnBeginRequest(const Begin*) = 0;
  virtual void OnEndRequest(const End*) = 0;

 protected:
  ~Sink() = default;
};

struct Node {
  virtual void Never1() = 0;
  virtual void Never2() = 0;
  virtual void Never3() = 0;
  virtual void Never4() = 0;
  virtual void Never5() = 0;
  virtual void Never6() = 0;
  virtual void Never7() = 0;
  virtual void Never8() = 0;
  virtual void Never9() = 0;
  virtual void Never10() = 0;
  virtual void AddInt32(const std::string&, int) = 0;

 protected:
  ~Node() = default;
};

struct Key {
  virtual ~Key() {}
  virtual bool operator<(const Key&) const = 0;
  virtual void Serialize(Node*) const = 0;
};

struct MetricSpec {
  virtual ~MetricSpec() {}
  virtual const Key* MakeKey(const End*) const = 0;
  virtual void ReleaseKey(const Key*) const = 0;
  std::string name;
  int32_t spec_id;
};

struct Parser {
  virtual int HandleNewStream(const Flow*, void**) = 0;
  virtual int HandleDataClientToServer(const Flow*, int64_t, const char*, int, int, long, void**) = 0;
  virtual int HandleDataServerToClient(const Flow*, int64_t, const char*, int, int, long, void**) = 0;
  virtual void HandleEndOfStream(const Flow*, void**) = 0;
  virtual ~Parser() {}
  virtual void Heartbeat() = 0;
  virtual const char* GetHealthEvent() = 0;
  virtual const MetricSpec* GetRequestMetricSpec() const = 0;
  virtual int GetFlags() const = 0;
  virtual void HeartbeatAt(int64_t) = 0;

  uint64_t host_handle;
  const Table* host_exports;
  Sink* request_sink;

  // The parser's own members, as they follow in memory.
  Args args;
  const Table* exports;
  char open_queries[48];
  int32_t max_open_requests;
  int32_t next_request_id;
  bool enable_dnssec;
  bool enable_axfr;
  int64_t counters[7];
  int32_t max_open_queries_seen;
  uint64_t request_timeout_us;
};

struct TableRow {
  int32_t code;
  const char* name;
  const char* description;
};

}  // namespace stranger
