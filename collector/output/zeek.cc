#include <algorithm>
#include <array>
#include <chrono>
#include <limits>

#include "collector/output/answers.h"
#include "collector/output/iana.h"
#include "collector/output/question.h"
#include "collector/output/record_writer.h"
#include "collector/output/zeek_uid.h"

namespace output {
namespace {

using plugin::Exchange;

constexpr auto kHex = Style::kHex;
constexpr uint8_t kUdp = 17;
constexpr char kSeparator = '\t';
constexpr std::string_view kUnset = "-";

struct Field {
  std::string_view name;
  std::string_view type;
};
constexpr Field kFields[] = {
    {"ts", "time"},
    {"uid", "string"},
    {"id.orig_h", "addr"},
    {"id.orig_p", "port"},
    {"id.resp_h", "addr"},
    {"id.resp_p", "port"},
    {"proto", "enum"},
    {"trans_id", "count"},
    {"rtt", "interval"},
    {"query", "string"},
    {"qclass", "count"},
    {"qclass_name", "string"},
    {"qtype", "count"},
    {"qtype_name", "string"},
    {"rcode", "count"},
    {"rcode_name", "string"},
    {"AA", "bool"},
    {"TC", "bool"},
    {"RD", "bool"},
    {"RA", "bool"},
    {"Z", "count"},
    {"answers", "vector[string]"},
    {"TTLs", "vector[interval]"},
    {"rejected", "bool"},
};

// What everything but the question and the answers needs at the very most.
constexpr size_t kRoomForFixedFields = 1024;

char* PutUnset(char* out) { return PutText(out, kUnset); }

// Seconds with six decimals, cut off.
char* PutSeconds(char* out, int64_t nanoseconds) {
  constexpr int64_t kSecond = 1000000000;
  if (nanoseconds < 0) *out++ = '-';
  const uint64_t amount =
      nanoseconds < 0 ? 0 - static_cast<uint64_t>(nanoseconds) : static_cast<uint64_t>(nanoseconds);
  out = PutInteger(out, static_cast<int64_t>(amount / kSecond));
  return PutPadded(PutText(out, "."), amount % kSecond / 1000, 6);
}

// An instant is rounded down, before 1970 too.
char* PutInstant(char* out, int64_t time_ns) {
  const int64_t below = ((time_ns % 1000) + 1000) % 1000;
  const int64_t earliest = std::numeric_limits<int64_t>::min() + below;
  return PutSeconds(out, std::max(time_ns, earliest) - below);
}

char* PutHost(char* out, const packet::Address* address) {
  return address == nullptr || address->version == 0 ? PutUnset(out) : PutAddress(out, *address);
}

char* PutFlag(char* out, bool set) { return PutText(out, set ? "T" : "F"); }

char* PutNamed(char* out, std::string_view name, std::string_view prefix, unsigned number) {
  return name.empty() ? PutInteger(PutText(out, prefix), number) : PutText(out, name);
}

// The format's own names of classes; the fourth is spelled so.
char* PutClassName(char* out, uint16_t number) {
  struct Class {
    uint16_t number;
    std::string_view name;
  };
  static constexpr Class kClasses[] = {{1, "C_INTERNET"}, {2, "C_CSNET"},  {3, "C_CHAOS"},
                                       {4, "C_HESOD"},    {254, "C_NONE"}, {255, "C_ANY"}};
  for (const Class& each : kClasses) {
    if (each.number == number) return PutText(out, each.name);
  }
  return PutInteger(PutText(out, "qclass-"), number);
}

char* PutTypeName(char* out, uint16_t type) {
  constexpr uint16_t kAny = 255;
  return type == kAny ? PutText(out, "*") : PutNamed(out, TypeName(type), "query-", type);
}

// query, qclass, qclass_name, qtype, qtype_name: of the first question.
char* PutQuestion(char* out, const Exchange& e) {
  QuestionReader question(e.question);
  if (!question.Next()) return PutText(out, "-\t-\t-\t-\t-");
  char* const name = out;
  out = PutName(out, question.name(), kHex);
  if (std::string_view(name, static_cast<size_t>(out - name)) == kUnset) out = PutHexEscape(name, kUnset.front());
  out = PutText(PutInteger(PutText(out, "\t"), question.number_of_class()), "\t");
  out = PutText(PutClassName(out, question.number_of_class()), "\t");
  return PutTypeName(PutText(PutInteger(out, question.type()), "\t"), question.type());
}

// rcode, rcode_name, AA, TC, RD, RA, Z.
char* PutHeader(char* out, const Exchange& e) {
  constexpr unsigned kAa = 0x0400, kTc = 0x0200, kRd = 0x0100, kRa = 0x0080;
  const auto recursion_desired = (e.query_flags & kRd) != 0;
  const auto reserved = [](uint16_t flags) {
    return flags >> 4 & 7;
  };  // with AD and CD, which once were two of them
  if (!e.has_response) {
    out = PutText(PutFlag(PutText(out, "-\t-\t-\t-\t"), recursion_desired), "\t-\t");
    return PutInteger(out, reserved(e.query_flags));
  }
  out = PutText(PutInteger(out, e.rcode), "\t");
  out = PutText(PutNamed(out, RcodeName(e.rcode), "rcode-", e.rcode), "\t");
  out = PutText(PutFlag(out, (e.response_flags & kAa) != 0), "\t");
  out = PutText(PutFlag(out, (e.response_flags & kTc) != 0), "\t");
  out = PutText(PutFlag(out, recursion_desired), "\t");
  out = PutText(PutFlag(out, (e.response_flags & kRa) != 0), "\t");
  return PutInteger(out, reserved(e.response_flags));
}

// The server turned the query down: it sent back no record at all.
bool IsRejected(const Exchange& e) {
  plugin::Header header;
  return e.has_response && plugin::ReadHeader(e.response, &header) && header.answers == 0 &&
         header.authorities == 0 && header.additionals == 0;
}

// "2026-01-31-12-34-56"
std::string Now() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  std::string text = TimeText(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()).substr(0, 19);
  for (char& character : text) {
    if (character == ' ' || character == ':') character = '-';
  }
  return text;
}

// In a vector, commas stand between the elements.
void AppendElement(std::string_view element, std::string* vector) {
  if (!vector->empty()) *vector += ',';
  for (const char character : element) {
    char escaped[kLongestEscape];
    if (character == ',') {
      vector->append(escaped, PutHexEscape(escaped, character));
    } else {
      *vector += character;
    }
  }
}

class ZeekWriter : public RecordWriter {
 public:
  explicit ZeekWriter(Buffer* destination) : buffer(destination) {}

  void Begin() override {
    std::string names = "#fields";
    std::string types = "#types";
    for (const Field& field : kFields) {
      names.append(1, kSeparator).append(field.name);
      types.append(1, kSeparator).append(field.type);
    }
    buffer->Write(
        "#separator \\x09\n#set_separator\t,\n#empty_field\t(empty)\n#unset_field\t-\n#path\tdns\n#open\t" + Now() +
        "\n" + names + "\n" + types + "\n");
  }

  void Write(const Exchange& e) override {
    ReadAnswers(e);
    char* out =
        buffer->Room(kRoomForFixedFields + e.question.size() * kQuestionGrowth + answers.size() + ttls.size());
    out = PutText(PutInstant(out, e.query_time_ns), "\t");
    out = PutText(PutZeekUid(out, e), "\t");
    out = PutText(PutInteger(PutText(PutHost(out, e.client), "\t"), e.client_port), "\t");
    out = PutText(PutInteger(PutText(PutHost(out, e.server), "\t"), e.server_port), "\t");
    out = PutText(PutInteger(PutText(out, e.transport == kUdp ? "udp\t" : "tcp\t"), e.dns_id), "\t");
    out = e.has_response ? PutSeconds(out, e.DurationNs()) : PutUnset(out);
    out = PutText(PutQuestion(PutText(out, "\t"), e), "\t");
    out = PutText(PutHeader(out, e), "\t");
    out = PutText(PutText(PutText(PutText(out, answers), "\t"), ttls), "\t");
    buffer->Commit(PutText(PutFlag(out, IsRejected(e)), "\n"));
  }

  void Finish() override { buffer->Write("#close\t" + Now() + "\n"); }

 private:
  void ReadAnswers(const Exchange& e) {
    constexpr int64_t kSecond = 1000000000;
    answers.clear();
    ttls.clear();
    plugin::AnswerReader answer(e.response, e.response_records);
    for (int i = 0; i < kMostAnswers && answer.Next(); ++i) {
      char ttl[kLongestNumber];
      data.clear();
      AppendAnswerData(answer, kHex, &data);
      AppendElement(data, &answers);
      AppendElement({ttl, static_cast<size_t>(PutSeconds(ttl, answer.ttl() * kSecond) - ttl)}, &ttls);
    }
    if (!ttls.empty()) return;
    answers = kUnset;
    ttls = kUnset;
  }

  static constexpr size_t kLongestNumber = 32;

  Buffer* buffer;
  std::string answers;  // of the exchange at hand
  std::string ttls;
  std::string data;  // of one answer
};

}  // namespace

std::unique_ptr<RecordWriter> MakeZeekWriter(Buffer* buffer) { return std::make_unique<ZeekWriter>(buffer); }

}  // namespace output
