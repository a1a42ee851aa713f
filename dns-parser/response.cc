// The response side: a response is paired with its open query, measured, reported and the query forgotten.

#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "dns-parser/dns_parser.h"
#include "dns-parser/incoming.h"
#include "dns-parser/trace.h"
#include "dns-parser/types.h"
#include "host/request_visitor.h"
#include "host/requests.h"

namespace {

constexpr int kUsed = 1;
constexpr int kUnusable = 0;

uint64_t At(int offset) { return static_cast<uint64_t>(offset); }

// What every end record says of a paired query.
void Describe(EndRequest* record, const DnsQuery& query, const ParserFlow* flow, Timestamp<1000000> now,
              int nominal_len) {
  record->spec_id = kDnsSpecId;
  record->request_id = query.request_id;
  record->flow = flow;
  record->request_pattern = query.types.c_str();
  record->response_time = now - query.start_time;
  record->start_time = query.start_time;
  record->bytes_request = query.request_bytes;
  record->bytes_response = nominal_len;
}

}  // namespace

// What is found in a response before its record is made, beside the texts.
struct DNSParser::Findings {
  int rrsig_count = 0;
  bool zone_transfer = false;
};

int DNSParser::HandleResponse(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int snap_len,
                              int nominal_len) {
  DNS_TRACE_MESSAGE(kResponse, "DNSParser::HandleResponse", *flow, snap_len, nominal_len);
  const Incoming response(flow, now, data, snap_len, nominal_len);
  DnsHeader header;
  if (const Step step = CheckResponse(response, &header); step != Step::kGoOn) {
    return step == Step::kAccepted ? kUsed : kUnusable;
  }
  const auto entry = open_queries.find(DnsQueryID{*flow, header.qid});
  if (entry == open_queries.end()) {
    DNS_TRACE(kUnsolicited, "Unsolicited response: ignoring");
    ++unsolicited_responses;
    return kUsed;
  }

  Findings findings;
  const int result = ReadSections(response, header, &findings);
  if (result == kMalformed) {
    ReportMalformed(response, entry);
    return kUnusable;
  }
  Report(response, header, entry, findings);
  // A cut capture explains a message that ends early; a whole one lied about its length.
  const bool excused = result == kDecoded || response.len != response.nominal_len;
  return excused ? kUsed : kUnusable;
}

DNSParser::Step DNSParser::CheckResponse(const Incoming& response, DnsHeader* header) const {
  if (!ReadHeader(response.view, header)) {
    DNS_LOG(kLogDropped, "Packet too small");
    return response.len < response.nominal_len && response.nominal_len >= kHeaderSize ? Step::kAccepted
                                                                                      : Step::kRefused;
  }
  // Known opcodes that are no queries pass, unknown ones are refused: the asymmetry is meant, and unlike on the
  // request side no counter moves.
  if (header->opcode > kOpcodeUpdate) {
    DNS_LOG(kLogDropped, "Unknown opcode %d", header->opcode);
    return Step::kRefused;
  }
  if (header->opcode > kOpcodeInverseQuery) return Step::kAccepted;

  if (TraceEnabled(*exports)) {
    DebugDump(*header, response.view);
    response.view.ok = true;  // a dump that ran past the captured bytes must not spoil what follows
  }
  if (!header->response) {
    DNS_LOG(kLogDropped, "Expected response, got request");
    return Step::kRefused;
  }
  return Step::kGoOn;
}

// Reads the questions and, unless the response is an error or a zone transfer that nobody asked to see, the
// answers. kMalformed only for a malformed answer: a question that cannot be read is an early end (kRanOut).
int DNSParser::ReadSections(const Incoming& response, const DnsHeader& header, Findings* findings) {
  int offset = kHeaderSize;
  Recycle(&texts.query_name);
  Recycle(&texts.summary);
  if (!ReadResponseQuestions(response, header.num_questions, &offset, findings)) return kRanOut;
  if (findings->zone_transfer && !enable_axfr) return kDecoded;
  if (header.rcode != 0) return kDecoded;
  if (header.num_questions != 1 || texts.query_name.empty()) WarnUnexpectedQuestion(header, texts.query_name);
  const bool listed = exports->want_extended_details() && !findings->zone_transfer;
  const bool own_context = response.flow->context_id == exports->get_current_context_id();
  return ParseResponse(listed ? &texts.summary : nullptr, &findings->rrsig_count, response.view, offset,
                       header.num_answers, !own_context && !findings->zone_transfer, texts.query_name);
}

bool DNSParser::ReadResponseQuestions(const Incoming& response, int count, int* offset, Findings* findings) {
  for (int i = 0; i < count; ++i) {
    if (GetName(response.view, offset, &texts.query_name, 0) != kDecoded) return false;
    const int type = response.view.GetBE16(At(*offset));
    response.view.GetBE16(At(*offset + 2));  // the class matters only by being there
    if (!response.view.ok) return false;
    *offset += 4;
    if (type == kTypeAxfr) findings->zone_transfer = true;
  }
  return true;
}

void DNSParser::WarnUnexpectedQuestion(const DnsHeader& header, const std::string& name) const {
  DNS_LOG(
      kLogAnomaly,
      "dns-parser: unexpected question: qid=%u recursion=%u truncated=%u authoritative=%u opcode=%u response=%u "
      "rcode=%u rec.avail=%u #questions=%u[%s] #answers=%u #authorities=%u #resources=%u",
      header.qid, header.recursion_desired, header.truncated, header.authoritative, header.opcode, header.response,
      header.rcode, header.recursion_available, header.num_questions, name.c_str(), header.num_answers,
      header.num_authorities, header.num_resources);
}

void DNSParser::ReportMalformed(const Incoming& response, QueryTable::iterator entry) {
  EndRequest record;
  Describe(&record, entry->second, response.flow, response.time, response.nominal_len);
  record.result_code = kResultMalformedAnswer;
  record.num_errors = 1;
  request_sink->OnEndRequest(&record);
  Forget(entry);
}

void DNSParser::Report(const Incoming& response, const DnsHeader& header, QueryTable::iterator entry,
                       const Findings& findings) {
  if (findings.zone_transfer && enable_axfr && exports->want_extended_details()) {
    // A zone is summarised by its size, never listed.
    check(texts.summary.empty(), kNothingListed);
    char records[64];
    std::snprintf(records, sizeof records, "%u records", static_cast<unsigned>(header.num_answers));
    texts.summary = records;
  }
  const DnsQuery& query = entry->second;
  ExtendedEndRequest record;
  Describe(&record, query, response.flow, response.time, response.nominal_len);
  record.result_code = header.rcode;
  record.num_errors = header.rcode != 0 ? 1 : 0;
  std::optional<RecordStrings::Loan> strings;
  if (exports->want_extended_details()) {
    SetDetails(query, findings.rrsig_count);
    strings.emplace(&record_strings, &record);
  }
  request_sink->OnEndRequest(&record);
  Forget(entry);
}

void DNSParser::SetDetails(const DnsQuery& query, int rrsig_count) {
  char count[12] = "";
  // A query that asked for DNSSEC is told "0" explicitly.
  if (rrsig_count != 0 || query.dnssec_ok) std::snprintf(count, sizeof count, "%d", rrsig_count);
  record_strings.Set(RecordStrings::kNames, query.names);
  record_strings.Set(RecordStrings::kNumRrsigRecords, count);
  record_strings.Set(RecordStrings::kResponse, texts.summary);
}

void DNSParser::Forget(QueryTable::iterator entry) { Retire(open_queries.extract(entry)); }

void DNSParser::Retire(QueryTable::node_type&& entry) {
  Recycle(&entry.mapped().types);
  Recycle(&entry.mapped().names);
  spare_queries.Give(std::move(entry));
}
