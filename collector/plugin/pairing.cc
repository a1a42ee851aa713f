#include "collector/plugin/pairing.h"

#include <algorithm>

#include "collector/plugin/packet_clock.h"

namespace plugin {
namespace {

constexpr int kTcpPrefix = 2;

bool IsTcp(const flow::Message& message) { return message.flow->descriptor.transport == kTransportTcp; }

bool IsCut(const flow::Message& message) { return message.snap_length < message.nominal_length; }

// The captured bytes of the DNS message itself.
std::string_view Body(const flow::Message& message) {
  const std::string_view bytes(reinterpret_cast<const char*>(message.data),
                               static_cast<size_t>(message.snap_length));
  return bytes.substr(std::min<size_t>(bytes.size(), IsTcp(message) ? kTcpPrefix : 0));
}

Exchange Describe(const OpenQuery& query) {
  const flow::Flow& flow = *query.flow;
  const Questions questions = query.Question();
  Exchange exchange;
  exchange.status = Status::kOpen;
  exchange.query_time_ns = query.time_ns;
  exchange.client = &flow.client;
  exchange.server = &flow.server;
  exchange.client_port = flow.descriptor.local_port;
  exchange.server_port = flow.descriptor.remote_port;
  exchange.transport = flow.descriptor.transport;
  exchange.question = questions.bytes;
  exchange.question_count = questions.count;
  exchange.question_cut = !questions.complete;
  exchange.result_code = kResultTimedOut;
  exchange.dns_id = query.dns_id;
  exchange.query_flags = query.flags;
  exchange.bytes_query = query.bytes;
  exchange.retransmits = query.retransmits;
  exchange.cut = query.cut;
  exchange.encapsulation = &flow.encapsulation;
  exchange.request_id = query.request_id;
  return exchange;
}

void AddRecord(const RecordView& record, Exchange* exchange) {
  exchange->rtt_us = record.response_time_us;
  exchange->pattern = record.pattern;
  exchange->result_code = record.result_code;
  exchange->bytes_query = record.bytes_query;
  exchange->bytes_response = record.bytes_response;
  exchange->answers = record.answers;
  exchange->rrsigs = record.rrsigs;
  exchange->rrsigs_known = record.rrsigs_known;
}

}  // namespace

struct Pairing::Incoming {
  explicit Incoming(const flow::Message& handed) : message(handed), body(Body(handed)) {
    has_header = ReadHeader(body, &header);
  }

  const flow::Message& message;
  std::string_view body;
  Header header;
  bool has_header = false;
};

// Accepted without a look at what it says: cut before the end of its header, or a status, notify or update message.
bool Pairing::IsIgnored(const Incoming& in, int consumed) {
  return consumed == 0 || !in.has_header || (in.header.Opcode() >= 2 && in.header.Opcode() <= 5);
}

// Closes a query that the parser has closed already, even when the listener throws.
class Pairing::CloseLater {
 public:
  CloseLater(Pairing* owner, OpenQuery* open) : pairing(owner), query(open) {}
  ~CloseLater() { pairing->Close(query); }
  CloseLater(const CloseLater&) = delete;
  CloseLater& operator=(const CloseLater&) = delete;

 private:
  Pairing* pairing;
  OpenQuery* query;
};

void Pairing::Handle(const flow::Message& message) {
  now_ns = message.time_ns;
  const Incoming in(message);
  message.from_client ? HandleQuery(in) : HandleResponse(in);
}

int Pairing::CallParser(const flow::Message& message) {
  expiring = false;
  begun = false;
  ended = nullptr;
  flow::Flow& flow = *message.flow;
  const auto* data = reinterpret_cast<const char*>(message.data);
  const Microtime now = ToMicrotime(message.time_ns);
  return message.from_client ? parser->HandleDataClientToServer(&flow.descriptor, now, data, message.snap_length,
                                                                message.nominal_length, 0, &flow.stream_state)
                             : parser->HandleDataServerToClient(&flow.descriptor, now, data, message.snap_length,
                                                                message.nominal_length, 0, &flow.stream_state);
}

void Pairing::HandleQuery(const Incoming& in) {
  const int consumed = CallParser(in.message);
  if (begun) {
    Begin(in);
  } else {
    CountUnrecordedQuery(in, consumed);
  }
  ++tally.queries;
  if (IsCut(in.message)) ++tally.cut;
}

void Pairing::Begin(const Incoming& in) {
  const flow::Message& message = in.message;
  const Questions questions = question_reader.Read(in.body, in.header);
  if (OpenQuery* open = side_table.FindOpen(message.flow, in.header.id)) {
    Repeat(open, questions);
    return;
  }
  OpenQuery* query = side_table.Add(message.flow, in.header.id, begun_id);
  query->time_ns = message.time_ns;
  query->bytes = message.nominal_length - (IsTcp(message) ? kTcpPrefix : 0);
  query->flags = in.header.flags;
  query->cut = IsCut(message);
  side_table.SetQuestion(query, questions);
  ++tally.begun;
}

// The parser announces a repeated query under a number that never ends: the older query stands.
void Pairing::Repeat(OpenQuery* open, const Questions& questions) {
  ++tally.duplicates;
  if (!SameQuestions(open->Question(), questions)) return;
  ++open->retransmits;
  ++tally.retransmits;
}

// The parser accepts a query without recording it for a reason that is in the message, or because its table is
// full.
void Pairing::CountUnrecordedQuery(const Incoming& in, int consumed) {
  const auto cut_too_short = [&] {
    return IsCut(in.message) && !question_reader.Read(in.body, in.header).complete;
  };
  if (consumed < 0) {
    ++tally.query_refused;
  } else if (IsIgnored(in, consumed) || in.header.questions == 0 || cut_too_short()) {
    ++tally.query_ignored;
  } else {
    ++tally.table_full;
  }
}

void Pairing::HandleResponse(const Incoming& in) {
  const int consumed = CallParser(in.message);
  ++tally.responses;
  if (IsCut(in.message)) ++tally.cut;
  if (ended != nullptr) {
    Answer(in, consumed, ended);
  } else {
    CountUnusedResponse(in, consumed);
  }
}

void Pairing::Answer(const Incoming& in, int consumed, OpenQuery* query) {
  const CloseLater closing(this, query);
  const RecordView& record = end_record.view();
  const Questions questions = question_reader.Read(in.body, in.header);
  const bool refused = consumed < 0 && !IsCut(in.message);
  Exchange exchange = Describe(*query);
  AddRecord(record, &exchange);
  exchange.status =
      refused || record.result_code == kResultMalformedAnswer ? Status::kMalformed : Status::kAnswered;
  exchange.has_response = true;
  exchange.response_time_ns = in.message.time_ns;
  exchange.response_flags = in.header.flags;
  exchange.response = in.body;
  exchange.response_records = questions.end;
  exchange.rcode = ExtendedRcode(in.body, in.header, questions.end);
  exchange.question_mismatch = in.header.questions != 0 && !SameQuestions(query->Question(), questions);
  exchange.cut = query->cut || IsCut(in.message);
  ++tally.answered;
  if (exchange.status == Status::kMalformed) ++tally.malformed;
  if (exchange.question_mismatch) ++tally.question_mismatches;
  listener->OnExchange(exchange);
}

void Pairing::CountUnusedResponse(const Incoming& in, int consumed) {
  if (consumed < 0) {
    ++tally.response_refused;
  } else if (IsIgnored(in, consumed)) {
    ++tally.response_ignored;
  } else {
    ++tally.unsolicited;
  }
}

void Pairing::Expire(Microtime now, Status status) {
  expiring = true;
  expiry_status = status;
  parser->Heartbeat(now);
}

// Delivered before it is closed: the parser keeps a query whose report threw, and reports it again.
void Pairing::ReportExpired(const RecordView& record, OpenQuery* query) {
  Exchange exchange = Describe(*query);
  AddRecord(record, &exchange);
  exchange.status = expiry_status;
  listener->OnExchange(exchange);
  ++(expiry_status == Status::kTimeout ? tally.timed_out : tally.open_at_end);
  Close(query);
}

void Pairing::ReportForgotten() {
  for (OpenQuery* query : side_table.All()) {
    listener->OnExchange(Describe(*query));
    ++tally.open_at_end;
    Close(query);
  }
}

void Pairing::Close(OpenQuery* query) {
  flow::Flow* flow = query->flow;
  side_table.Erase(query);
  if (flows != nullptr) flows->Release(flow);
}

void Pairing::OnBeginRequest(const BeginRequest* request) {
  begun = true;
  begun_id = request->request_id;
}

void Pairing::OnEndRequest(const EndRequest* request) {
  const RecordView record = record_reader.Read(*request);
  OpenQuery* query = side_table.Find(record.request_id);
  if (query == nullptr) return;
  listener->OnRecord(*request, metrics);
  if (expiring) {
    ReportExpired(record, query);
  } else {
    end_record.Keep(record);
    ended = query;
  }
}

void Pairing::OnMapping(const char* query_name, const char* name, uint32_t ipv4) {
  ++tally.mappings;
  listener->OnMapping(query_name, name, ipv4, now_ns);
}

}  // namespace plugin
