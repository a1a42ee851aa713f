#include <array>

#include "collector/output/answers.h"
#include "collector/output/iana.h"
#include "collector/output/question.h"
#include "collector/output/record_writer.h"

namespace output {
namespace {

using plugin::Exchange;
using plugin::Status;

constexpr auto kJson = Style::kJson;
constexpr uint8_t kUdp = 17;

// What everything but names and answers needs at the very most.
constexpr size_t kRoomForFixedFields = 4096;

// "2026-01-31T12:34:56.789012Z"
char* PutIsoTime(char* out, int64_t time_ns) {
  char* end = PutTime(out, time_ns);
  out[10] = 'T';  // the years that 64 bits of nanoseconds reach all have four digits
  return PutText(end, "Z");
}

char* PutNumber(char* out, std::string_view key, int64_t number) { return PutInteger(PutText(out, key), number); }

// An answer that is no success is a failure of the exchange too, and so is silence. Nobody knows what became of a
// query that was open at the end.
std::string_view Outcome(const Exchange& exchange) {
  if (exchange.status == Status::kOpen) return "unknown";
  return exchange.status == Status::kAnswered && exchange.rcode == 0 ? "success" : "failure";
}

char* PutEvent(char* out, const Exchange& e) {
  out = PutText(out, R"("event":{"kind":"event","category":["network"],"type":["protocol"],)"
                     R"("module":"dnspair","dataset":"dnspair.dns","outcome":")");
  out = PutIsoTime(PutText(PutText(out, Outcome(e)), R"(","start":")"), e.query_time_ns);
  if (e.has_response) {
    out = PutIsoTime(PutText(out, R"(","end":")"), e.response_time_ns);
    return PutText(PutNumber(out, R"(","duration":)", e.DurationNs()), "}");
  }
  return PutText(out, "\"}");
}

// RFC 6895 2.2 and RFC 8490 5.1.
char* PutOpcode(char* out, unsigned opcode) {
  static constexpr std::array<std::string_view, 7> kNames = {"QUERY",  "IQUERY", "STATUS", "",
                                                             "NOTIFY", "UPDATE", "DSO"};
  if (opcode < kNames.size() && !kNames.at(opcode).empty()) return PutText(out, kNames.at(opcode));
  return PutInteger(PutText(out, "OPCODE"), opcode);
}

// The flags that the schema knows, those of the last message that was seen.
char* PutHeaderFlags(char* out, const Exchange& e) {
  struct Flag {
    uint16_t bit;
    std::string_view text;
  };
  static constexpr Flag kFlags[] = {{0x0400, "\"AA\","}, {0x0200, "\"TC\","}, {0x0100, "\"RD\","},
                                    {0x0080, "\"RA\","}, {0x0020, "\"AD\","}, {0x0010, "\"CD\","}};
  const uint16_t flags = e.has_response ? e.response_flags : e.query_flags;
  out = PutText(out, R"(,"header_flags":[)");
  const char* const begin = out;
  for (const Flag& flag : kFlags) {
    if ((flags & flag.bit) != 0) out = PutText(out, flag.text);
  }
  if (out != begin) --out;  // the last comma
  return PutText(out, "]");
}

char* PutQuestion(char* out, const Exchange& e) {
  QuestionReader question(e.question);
  if (!question.Next()) return out;
  out = PutName(PutText(out, R"(,"question":{"name":")"), question.name(), kJson);
  out = PutType(PutText(out, R"(","type":")"), question.type());
  out = PutClass(PutText(out, R"(","class":")"), question.number_of_class());
  return PutText(out, "\"}");
}

char* PutEndpoint(char* out, std::string_view key, const packet::Address* address, uint16_t port) {
  out = PutText(out, key);
  if (address != nullptr && address->version != 0) {
    out = PutText(PutAddress(PutText(out, R"("ip":")"), *address), "\",");
  }
  return PutNumber(out, R"("port":)", port);
}

char* PutClient(char* out, std::string_view key, const Exchange& e) {
  return PutText(PutNumber(PutEndpoint(out, key, e.client, e.client_port), R"(,"bytes":)", e.bytes_query), "}");
}

char* PutServer(char* out, std::string_view key, const Exchange& e) {
  out = PutEndpoint(out, key, e.server, e.server_port);
  if (e.has_response) out = PutNumber(out, R"(,"bytes":)", e.bytes_response);
  return PutText(out, "}");
}

char* PutVlan(char* out, std::string_view key, uint16_t vlan) {
  return PutText(PutInteger(PutText(out, key), vlan), "\"}");
}

char* PutNetwork(char* out, const Exchange& e) {
  out = PutText(out, R"(,"network":{"protocol":"dns","transport":)");
  out = PutText(out, e.transport == kUdp ? "\"udp\"" : "\"tcp\"");
  if (e.client != nullptr && e.client->version != 0) {
    out = PutText(out, e.client->version == 4 ? R"(,"type":"ipv4")" : R"(,"type":"ipv6")");
  }
  out = PutNumber(out, R"(,"bytes":)", e.bytes_query + (e.has_response ? e.bytes_response : 0));
  const packet::Encapsulation* tags = e.encapsulation;
  if (tags != nullptr && tags->vlan_count > 0) out = PutVlan(out, R"(,"vlan":{"id":")", tags->vlan[0]);
  if (tags != nullptr && tags->vlan_count > 1) {
    out = PutText(PutVlan(out, R"(,"inner":{"vlan":{"id":")", tags->vlan[1]), "}");
  }
  return PutText(out, "}");
}

// What the schema has no field for.
char* PutOwn(char* out, const Exchange& e) {
  out = PutText(PutText(out, R"(,"dnspair":{"status":")"), StatusName(e.status));
  out = PutNumber(out, R"(","result_code":)", e.result_code);
  out = PutNumber(out, R"(,"retransmits":)", e.retransmits);
  out = PutText(PutText(out, R"(,"question_mismatch":)"), e.question_mismatch ? "true" : "false");
  out = PutText(PutText(out, R"(,"cut":)"), e.cut ? "true" : "false");
  if (e.question_count != 1) out = PutNumber(out, R"(,"questions":)", e.question_count);
  if (e.encapsulation != nullptr && e.encapsulation->tunnel != packet::Tunnel::kNone) {
    out = PutText(PutText(out, R"(,"tunnel":")"), TunnelName(e.encapsulation->tunnel));
    out = PutNumber(out, R"(","tunnel_id":)", e.encapsulation->tunnel_id);
  }
  return PutText(out, "}");
}

class EcsWriter : public RecordWriter {
 public:
  explicit EcsWriter(Buffer* destination) : buffer(destination) {}

  void Write(const Exchange& exchange) override {
    ReadAnswers(exchange);
    char* out = buffer->Room(kRoomForFixedFields + exchange.question.size() * kQuestionGrowth + answers.size() +
                             addresses.size());
    out = PutText(PutIsoTime(PutText(out, R"({"@timestamp":")"), exchange.query_time_ns), "\",");
    out = PutEvent(PutText(out, R"("ecs":{"version":"8.11.0"},)"), exchange);
    out = PutDns(out, exchange);
    out = PutClient(out, R"(,"client":{)", exchange);
    out = PutServer(out, R"(,"server":{)", exchange);
    out = PutClient(out, R"(,"source":{)", exchange);
    out = PutServer(out, R"(,"destination":{)", exchange);
    out = PutOwn(PutNetwork(out, exchange), exchange);
    buffer->Commit(PutText(out, "}\n"));
  }

 private:
  char* PutDns(char* out, const Exchange& e) const {
    out = PutText(out, e.has_response ? R"(,"dns":{"type":"answer","id":")" : R"(,"dns":{"type":"query","id":")");
    out = PutOpcode(PutText(PutInteger(out, e.dns_id), R"(","op_code":")"), e.query_flags >> 11 & 0xfU);
    out = PutQuestion(PutHeaderFlags(PutText(out, "\""), e), e);
    if (e.has_response) out = PutText(PutRcode(PutText(out, R"(,"response_code":")"), e.rcode), "\"");
    if (!answers.empty()) out = PutText(PutText(PutText(out, R"(,"answers":[)"), answers), "]");
    if (!addresses.empty()) out = PutText(PutText(PutText(out, R"(,"resolved_ip":[)"), addresses), "]");
    return PutText(out, "}");
  }

  void ReadAnswers(const Exchange& exchange) {
    answers.clear();
    addresses.clear();
    plugin::AnswerReader answer(exchange.response, exchange.response_records);
    for (int i = 0; i < kMostAnswers && answer.Next(); ++i) Append(answer);
  }

  void Append(const plugin::AnswerReader& answer) {
    char code[kRoomForWord];
    answers.append(answers.empty() ? R"({"name":")" : R"(,{"name":")");
    AppendOwner(answer, kJson, &answers);
    answers.append(R"(","type":")").append(code, PutType(code, answer.type()));
    answers.append(R"(","class":")").append(code, PutClass(code, answer.number_of_class()));
    answers.append(R"(","ttl":)").append(std::to_string(answer.ttl())).append(R"(,"data":")");
    AppendAnswerData(answer, kJson, &answers);
    answers.append("\"}");
    const packet::Address address = AnswerAddress(answer);
    if (address.version == 0) return;
    char text[kLongestAddress];
    addresses.append(addresses.empty() ? "\"" : ",\"").append(text, PutAddress(text, address)).append("\"");
  }

  Buffer* buffer;
  std::string answers;    // JSON objects of the exchange at hand, separated by commas
  std::string addresses;  // of these, JSON strings
};

}  // namespace

std::unique_ptr<RecordWriter> MakeEcsWriter(Buffer* buffer) { return std::make_unique<EcsWriter>(buffer); }

}  // namespace output
