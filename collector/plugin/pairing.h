#pragma once

#include <cstdint>
#include <string_view>

#include "collector/flow/flow.h"
#include "collector/flow/flow_table.h"
#include "collector/plugin/exchange.h"
#include "collector/plugin/exports.h"
#include "collector/plugin/message_counts.h"
#include "collector/plugin/question.h"
#include "collector/plugin/record.h"
#include "collector/plugin/side_table.h"
#include "host/protocol_parser.h"
#include "host/request_visitor.h"

namespace plugin {

// Hands messages to the parser, receives its records, and makes exchanges of them: a record arrives while its
// packet is still in hand.
//
// The listener must not call back. What it throws comes out of the call that led to it; a response's exchange is
// then done with, an expired one stays open here as it does in the parser.
class Pairing : public IRequestSink, public MappingReceiver {
 public:
  explicit Pairing(ExchangeListener* exchange_listener) : listener(exchange_listener) {}

  void SetParser(ITimedProtocolParser* timed_parser) {
    parser = timed_parser;
    metrics = parser->GetRequestMetricSpec();
  }
  void SetFlows(flow::FlowTable* table) { flows = table; }

  void Handle(const flow::Message& message);

  // Asks the cache for what a response of this flow will need.
  void Prefetch(const flow::Flow& flow) const { side_table.Prefetch(flow); }

  // Lets the parser expire what is too old at this time; its queries are reported under the status.
  void Expire(Microtime now, Status status);

  // Reports as open what the parser never spoke of again.
  void ReportForgotten();

  const MessageCounts& counts() const { return tally; }

  void OnBeginRequest(const BeginRequest* request) override;
  void OnEndRequest(const EndRequest* request) override;
  void OnMapping(const char* query_name, const char* name, uint32_t ipv4) override;

 private:
  class CloseLater;
  struct Incoming;  // the message in hand

  static bool IsIgnored(const Incoming& in, int consumed);
  int CallParser(const flow::Message& message);
  void HandleQuery(const Incoming& in);
  void Begin(const Incoming& in);
  void Repeat(OpenQuery* open, const Questions& questions);
  void CountUnrecordedQuery(const Incoming& in, int consumed);
  void HandleResponse(const Incoming& in);
  void Answer(const Incoming& in, int consumed, OpenQuery* query);
  void CountUnusedResponse(const Incoming& in, int consumed);
  void ReportExpired(const RecordView& record, OpenQuery* query);
  void Close(OpenQuery* query);

  ExchangeListener* listener;
  ITimedProtocolParser* parser = nullptr;
  const RequestMetricSpecification* metrics = nullptr;
  flow::FlowTable* flows = nullptr;

  MessageCounts tally;
  SideTable side_table;
  QuestionReader question_reader;
  RecordReader record_reader;

  int64_t now_ns = 0;     // of the message in hand
  bool expiring = false;  // the parser was called to expire, and not with a message
  Status expiry_status = Status::kTimeout;
  bool begun = false;  // by the message in hand
  int32_t begun_id = 0;
  OpenQuery* ended = nullptr;  // by the message in hand
  KeptRecord end_record;       // delivered once the parser's verdict on the message is known
};

}  // namespace plugin
