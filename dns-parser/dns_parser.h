#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>

#include "dns-parser/dns_header.h"
#include "dns-parser/labels.h"
#include "dns-parser/query_table.h"
#include "dns-parser/record_strings.h"
#include "dns-parser/recycling.h"
#include "host/metrics.h"
#include "host/protocol_parser.h"
#include "host/timestamp.h"
#include "iovec/iovec.h"

// What a decoder returns.
inline constexpr int kDecoded = 0;
inline constexpr int kMalformed = 1;  // a name with a reserved label type or a bad compression pointer
inline constexpr int kRanOut = 2;     // past the end of the captured bytes

// The DNS parser. Its members are in the order of the contract; everything is public because nothing outside
// the library can name this class, and its tests drive the decoders one by one.
class DNSParser : public ITimedProtocolParser {
 public:
  DNSParser(const CollectorExports* table, const std::map<std::string, std::string>& arguments);
  // Open queries are dropped silently: no record, no counter, no message.
  ~DNSParser() override;

  // dns_parser.cc
  int HandleNewStream(const ParserFlow* flow, void** stream_state) override;
  void HandleEndOfStream(const ParserFlow* flow, void** stream_state) override;
  const RequestMetricSpecification* GetRequestMetricSpec() const override;
  int GetFlags() const override;

  // stream.cc: cuts what the host delivers into messages.
  int HandleDataClientToServer(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                               int nominal_length, long unused, void** stream_state) override;
  int HandleDataServerToClient(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                               int nominal_length, long unused, void** stream_state) override;
  int HandleData(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                 int nominal_length, bool is_request);
  int HandleTCPStream(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                      int nominal_length, bool is_request);
  // One message behind its two-byte length (RFC 1035 4.2.2). Returns the bytes consumed, 0 when the message is
  // not complete yet, -1 when it cannot be used.
  int HandleTCPFrame(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                     int nominal_length, bool is_request);
  bool HandleMessage(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_length,
                     int nominal_length, bool is_request);

  // request.cc: one query. True when it was recorded or deliberately ignored, false when it cannot be used.
  bool HandleRequest(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int len, int nominal_len);
  // A guard: questions whose types are no text are not recorded. Says so when there are none.
  bool IsBlank(const std::string& types, int count) const;

  // response.cc: one response. 1 when it was used or deliberately ignored, 0 when it cannot be used.
  int HandleResponse(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_len,
                     int nominal_len);

  // expiry.cc
  void Heartbeat() override;
  void Heartbeat(Timestamp<1000000> now) override;
  const char* GetHealthEvent() override;

  // names.cc: decode the item at *offset and move *offset past it; on failure *offset stays where the failing
  // read was attempted. Return kDecoded, kMalformed or kRanOut.
  //
  // A domain name (RFC 1035 4.1.4): labels joined by ".", bytes as on the wire, no dot at the end; the root is
  // empty. `packet` is the whole message, for compression pointers; `depth` counts those followed so far.
  int GetName(const IOVec& packet, int* offset, std::string* name, int depth) const;
  // A character string (RFC 1035 3.3): its bytes, without the length.
  int GetString(const IOVec& packet, int* offset, std::string* text) const;

  // answers.cc: walks `count` records from `offset`. Appends a line about the answers to `summary` and counts
  // RRSIG records (either may be null); hands name-to-IPv4 mappings to the host when `inject` is set.
  int ParseResponse(std::string* summary, int* rrsig_count, const IOVec& packet, int offset, int count, bool inject,
                    const std::string& query_name) const;

  // dump.cc: traces a whole message line by line. May leave the view's ok flag down.
  void DebugDump(const DnsHeader& header, const IOVec& msg) const;
  void DumpRR(const IOVec& msg, int* offset, const char* section, int count) const;

  // The one object of the library.
  static const DNSRequestMetricSpecification requestMetricSpec;

  std::map<std::string, std::string> args;  // the configuration as given; read by the constructor only
  const CollectorExports* exports;
  QueryTable open_queries;
  int32_t max_open_requests = 0;
  int32_t next_request_id = 1;
  bool enable_dnssec = false;
  bool enable_axfr = false;

  // Since the last health report.
  int64_t unknown_opcodes = 0;         // requests with an opcode above 5
  int64_t zero_qdcount_requests = 0;   // requests without a question
  int64_t table_full_drops = 0;        // requests refused by a full table; never printed
  int64_t multi_qdcount_requests = 0;  // requests with more than one question
  int64_t unsolicited_responses = 0;
  mutable int64_t injected_mappings = 0;  // moved by the answer walk, which changes nothing else
  int64_t timed_out_requests = 0;
  int32_t max_open_queries_seen = 0;

  uint64_t request_timeout_us = 0;

  // What follows is the parser's own: memory kept from one message for the next, and a note that saves walks.

  static constexpr Timestamp<1000000> kNever{std::numeric_limits<int64_t>::max()};

  // No open query is older than this: a heartbeat whose cutoff lies before it has nothing to expire.
  Timestamp<1000000> earliest_start = kNever;

  LabelCache labels;
  EntryPool<QueryTable> spare_queries{1024};
  RecordStrings record_strings;

 private:
  struct Incoming;  // a message being handled
  struct Findings;  // what a response says
  struct Answer;    // a record being read
  struct AnswerReader;
  struct RecordDump;
  struct DataDumper;
  enum class Step { kGoOn, kAccepted, kRefused };

  // Texts of the message in hand. Their contents mean nothing to the next message, only their memory does; so the
  // const walk over the answers may use them too.
  struct Texts {
    std::string types;       // of a request's questions
    std::string names;       // of a request's questions
    std::string query_name;  // of a response's last question
    std::string summary;     // of a response's answers
    std::string owner;       // of a record
    std::string target;      // of a record
  };
  mutable Texts texts;

  int AppendName(const IOVec& packet, int* offset, std::string* name, int depth) const;
  int AppendPointedName(const IOVec& packet, int* offset, std::string* name, int depth) const;

  Step CheckRequest(const Incoming& request, DnsHeader* header);
  Step ReadQuestions(const Incoming& request, int count, int* offset);
  Step ReadDnssecOk(const Incoming& request, const DnsHeader& header, int offset, bool* dnssec_ok) const;
  int FindDnssecOk(const Incoming& request, const DnsHeader& header, int offset, bool* dnssec_ok) const;
  void RecordQuery(const Incoming& request, uint16_t qid, bool dnssec_ok);

  Step CheckResponse(const Incoming& response, DnsHeader* header) const;
  int ReadSections(const Incoming& response, const DnsHeader& header, Findings* findings);
  bool ReadResponseQuestions(const Incoming& response, int count, int* offset, Findings* findings);
  void WarnUnexpectedQuestion(const DnsHeader& header, const std::string& name) const;
  void ReportMalformed(const Incoming& response, QueryTable::iterator entry);
  void Report(const Incoming& response, const DnsHeader& header, QueryTable::iterator entry,
              const Findings& findings);
  void SetDetails(const DnsQuery& query, int rrsig_count);
  void Forget(QueryTable::iterator entry);
  void Retire(QueryTable::node_type&& entry);  // keeps its memory for another query

  void ExpireBefore(Timestamp<1000000> cutoff);
  void Expire(QueryTable::iterator entry);

  int ReadAnswer(Answer* answer) const;
  int ReadA(Answer* answer) const;
  int ReadAlias(Answer* answer) const;
  int ReadPtr(Answer* answer) const;
  int ReadMx(Answer* answer) const;
  int ReadTxt(Answer* answer) const;
  int ReadAaaa(Answer* answer) const;
  int ReadRrsig(Answer* answer) const;
  int ReadTargetName(Answer* answer, int at) const;
  void InjectReverse(const Answer& answer) const;

  bool DumpQuestions(const IOVec& msg, int* offset, int count) const;
  bool DumpRecord(const IOVec& msg, int* offset, const char* section, int index) const;
  bool DumpA(const RecordDump& record) const;
  bool DumpName(const RecordDump& record) const;
  bool DumpSoa(const RecordDump& record) const;
  bool DumpHinfo(const RecordDump& record) const;
  bool DumpMx(const RecordDump& record) const;
  bool DumpTxt(const RecordDump& record) const;
  bool DumpAaaa(const RecordDump& record) const;
  bool DumpSrv(const RecordDump& record) const;
};
