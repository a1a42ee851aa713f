// The request side: a query is checked, remembered until its response comes, and announced to the host.

#include <algorithm>
#include <utility>

#include "dns-parser/dns_parser.h"
#include "dns-parser/incoming.h"
#include "dns-parser/trace.h"
#include "dns-parser/types.h"
#include "host/request_visitor.h"
#include "host/requests.h"

namespace {

constexpr uint32_t kDnssecOkBit = 0x8000;  // the DO bit in an OPT record's TTL (RFC 6891 6.1.3)

uint64_t At(int offset) { return static_cast<uint64_t>(offset); }

void AppendSeparator(std::string* list) {
  if (!list->empty()) list->append(", ");
}

}  // namespace

bool DNSParser::HandleRequest(const ParserFlow* flow, Timestamp<1000000> now, const char* data, int len,
                              int nominal_len) {
  DNS_TRACE_MESSAGE(kRequest, "DNSParser::HandleRequest", *flow, len, nominal_len);
  const Incoming request(flow, now, data, len, nominal_len);
  DnsHeader header;
  if (const Step step = CheckRequest(request, &header); step != Step::kGoOn) return step == Step::kAccepted;

  int offset = kHeaderSize;
  Step step = ReadQuestions(request, header.num_questions, &offset);
  if (step != Step::kGoOn) return step == Step::kAccepted;
  if (IsBlank(texts.types, header.num_questions)) return true;
  bool dnssec_ok = false;
  step = ReadDnssecOk(request, header, offset, &dnssec_ok);
  if (step != Step::kGoOn) return step == Step::kAccepted;

  RecordQuery(request, header.qid, dnssec_ok);
  return true;
}

DNSParser::Step DNSParser::CheckRequest(const Incoming& request, DnsHeader* header) {
  if (!ReadHeader(request.view, header)) {
    DNS_LOG(kLogDropped, "Packet too small");
    return request.len < request.nominal_len && request.nominal_len >= kHeaderSize ? Step::kAccepted
                                                                                   : Step::kRefused;
  }
  if (header->opcode > kOpcodeUpdate) {
    ++unknown_opcodes;
    DNS_LOG(kLogDropped, "Unknown opcode %d", header->opcode);
    return Step::kRefused;
  }
  if (header->opcode > kOpcodeInverseQuery) return Step::kAccepted;

  if (TraceEnabled(*exports)) {
    DebugDump(*header, request.view);
    request.view.ok = true;  // a dump that ran past the captured bytes must not spoil what follows
  }
  if (header->response) {
    DNS_LOG(kLogDropped, "Expected request, got response");
    return Step::kRefused;
  }
  if (header->num_questions == 0) {
    ++zero_qdcount_requests;
    DNS_LOG(kLogDropped, "Zero qdcount");
    return Step::kAccepted;
  }
  if (header->num_questions > 1) ++multi_qdcount_requests;

  if (max_open_requests <= static_cast<int32_t>(open_queries.size())) {
    ++table_full_drops;
    DNS_LOG(kLogAnomaly, "DNS open_queries table is full: %zd/%d", static_cast<ssize_t>(open_queries.size()),
            max_open_requests);
    return Step::kAccepted;
  }
  return Step::kGoOn;
}

// Leaves the questions' types and names in `texts`.
DNSParser::Step DNSParser::ReadQuestions(const Incoming& request, int count, int* offset) {
  const Step ran_out = request.len < request.nominal_len ? Step::kAccepted : Step::kRefused;
  Recycle(&texts.types);
  Recycle(&texts.names);
  for (int i = 0; i < count; ++i) {
    AppendSeparator(&texts.names);
    if (const int failure = AppendName(request.view, offset, &texts.names, 0)) {
      return failure == kRanOut ? ran_out : Step::kRefused;
    }
    const uint16_t type = request.view.GetBE16(At(*offset));
    const uint16_t question_class = request.view.GetBE16(At(*offset + 2));
    if (!request.view.ok) return ran_out;
    *offset += 4;
    AppendSeparator(&texts.types);
    texts.types.append(labels.Label(type, question_class));
  }
  return Step::kGoOn;
}

bool DNSParser::IsBlank(const std::string& types, int count) const {
  if (!types.empty()) return false;
  DNS_LOG(kLogAnomaly, "qdcount=%d, but query is blank", count);
  return true;
}

DNSParser::Step DNSParser::ReadDnssecOk(const Incoming& request, const DnsHeader& header, int offset,
                                        bool* dnssec_ok) const {
  *dnssec_ok = false;
  if (!enable_dnssec) return Step::kGoOn;
  switch (FindDnssecOk(request, header, offset, dnssec_ok)) {
    case kMalformed:
      return Step::kRefused;
    case kRanOut:  // expected of a cut capture, a lie in a whole message
      return request.len != request.nominal_len ? Step::kGoOn : Step::kRefused;
    default:
      return Step::kGoOn;
  }
}

// Walks the records behind the questions to the first OPT record with the DO bit. The records before the
// additional section are walked even when that section is empty.
int DNSParser::FindDnssecOk(const Incoming& request, const DnsHeader& header, int offset, bool* dnssec_ok) const {
  const IOVec& view = request.view;
  const int skipped = header.num_answers + header.num_authorities;
  std::string& owner = texts.owner;
  for (int i = 0; i < skipped + header.num_resources; ++i) {
    if (const int failure = GetName(view, &offset, &owner, 0)) return failure;
    const int type = view.GetBE16(At(offset));
    const uint32_t ttl = view.GetBE32(At(offset + 4));
    const int data_length = view.GetBE16(At(offset + 8));
    if (!view.ok) return kRanOut;
    offset += 10 + data_length;
    if (i >= skipped && type == kTypeOpt && (ttl & kDnssecOkBit) != 0) {
      *dnssec_ok = true;
      return kDecoded;
    }
  }
  return kDecoded;
}

void DNSParser::RecordQuery(const Incoming& request, uint16_t qid, bool dnssec_ok) {
  QueryTable::node_type entry = spare_queries.Take();
  entry.key() = DnsQueryID{*request.flow, qid};
  DnsQuery& query = entry.mapped();
  query.types = texts.types;
  query.names = texts.names;
  query.start_time = request.time;
  query.request_bytes = request.nominal_len;
  query.request_id = next_request_id;
  query.dnssec_ok = dnssec_ok;

  // An equal key that is open already stands, on purpose: the older query's time and text are what its response
  // is measured against. The host still hears of a begun request, whose number then matches no open query.
  auto inserted = open_queries.insert(std::move(entry));
  if (!inserted.inserted) Retire(std::move(inserted.node));
  earliest_start = std::min(earliest_start, request.time);
  const auto size = static_cast<int32_t>(open_queries.size());
  if (size > max_open_queries_seen) max_open_queries_seen = size;

  {
    BeginRequest begin;
    begin.spec_id = kDnsSpecId;
    begin.request_id = next_request_id;
    begin.flow = request.flow;
    begin.request_pattern = texts.types.c_str();  // not the table's copy, which a duplicate does not have
    begin.start_time = request.time;
    request_sink->OnBeginRequest(&begin);
  }
  // Wraps around instead of overflowing.
  next_request_id = static_cast<int32_t>(static_cast<uint32_t>(next_request_id) + 1);
}
