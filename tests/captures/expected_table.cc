#include "tests/captures/expected_table.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace test {
namespace {

// A line of the table, its values by the columns' names.
class Row {
 public:
  Row(const std::vector<std::string>& names, const std::string& line) {
    std::istringstream in(line);
    std::string value;
    for (const std::string& name : names) {
      value.clear();
      std::getline(in, value, '\t');
      values[name] = value;
    }
  }

  const std::string& Text(const std::string& column) const {
    const auto found = values.find(column);
    if (found == values.end()) throw std::runtime_error("the table has no column " + column);
    return found->second;
  }
  int Number(const std::string& column, int none = 0) const {
    const std::string& text = Text(column);
    return text.empty() ? none : std::stoi(text);
  }

 private:
  std::map<std::string, std::string> values;
};

std::vector<std::string> SplitAt(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

// "1331084278.438444000" in nanoseconds.
int64_t ParseTime(const std::string& text) {
  const size_t dot = text.find('.');
  return std::stoll(text.substr(0, dot)) * 1'000'000'000 + std::stoll(text.substr(dot + 1));
}

// The types that occur, and their mnemonics.
std::string TypeText(const std::string& number) {
  static const std::map<std::string, std::string> kNames = {
      {"1", "A"},       {"2", "NS"},     {"5", "CNAME"},  {"6", "SOA"},     {"10", "NULL"},  {"11", "WKS"},
      {"12", "PTR"},    {"13", "HINFO"}, {"15", "MX"},    {"16", "TXT"},    {"28", "AAAA"},  {"29", "LOC"},
      {"32", "NIMLOC"}, {"33", "SRV"},   {"35", "NAPTR"}, {"39", "DNAME"},  {"41", "OPT"},   {"43", "DS"},
      {"44", "SSHFP"},  {"46", "RRSIG"}, {"47", "NSEC"},  {"48", "DNSKEY"}, {"50", "NSEC3"}, {"64", "SVCB"},
      {"65", "HTTPS"},  {"249", "TKEY"}, {"251", "IXFR"}, {"252", "AXFR"},  {"255", "ANY"},  {"256", "URI"},
      {"257", "CAA"}};
  const auto found = kNames.find(number);
  return found == kNames.end() ? "TYPE" + number : found->second;
}

std::string TypeTexts(const std::string& numbers) {
  std::string texts;
  for (const std::string& number : SplitAt(numbers, ',')) texts += (texts.empty() ? "" : ", ") + TypeText(number);
  return texts;
}

ExpectedMessage MessageFrom(const Row& row) {
  ExpectedMessage message;
  message.frame = row.Number("frame");
  message.time_ns = ParseTime(row.Text("time_epoch"));
  message.source = row.Text("src");
  message.destination = row.Text("dst");
  message.source_port = row.Number("sport");
  message.destination_port = row.Number("dport");
  message.transport = row.Text("transport");
  message.id = row.Number("dns.id");
  message.response = row.Text("response") == "1";
  message.rcode = row.Number("rcode", -1);
  message.names = ComparableNames(row.Text("qry.name"));
  message.types = TypeTexts(row.Text("qry.type"));
  message.edns = row.Text("edns") == "1";
  message.answer_to = row.Number("answer_to");
  if (!row.Text("dns.time").empty()) message.after = std::stod(row.Text("dns.time"));
  return message;
}

bool IsOctal(const std::string& text, size_t at) {
  if (at + 3 > text.size()) return false;
  return std::all_of(text.begin() + static_cast<std::ptrdiff_t>(at),
                     text.begin() + static_cast<std::ptrdiff_t>(at + 3),
                     [](char c) { return c >= '0' && c <= '7'; });
}

bool IsPrintable(char c) { return c >= 0x20 && c < 0x7f; }

// Undoes what the table does to keep its lines and lists apart.
std::string Unescaped(const std::string& in_table) {
  std::string text;
  for (size_t i = 0; i < in_table.size(); ++i) {
    if (in_table[i] == ',') {
      text += ", ";  // as records join several names
    } else if (in_table[i] != '\\' || ++i == in_table.size()) {
      text += in_table[i];
    } else if (in_table[i] != 't' && in_table[i] != 'n' && in_table[i] != 'r') {
      text += in_table[i];
    }
  }
  return text;
}

}  // namespace

std::string ComparableNames(const std::string& in_table) {
  if (in_table == "<Root>") return ".";
  const std::string text = Unescaped(in_table);
  std::string names;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && IsOctal(text, i + 1)) {
      i += 3;  // a control character, as tshark writes it
    } else if (IsPrintable(text[i])) {
      names += text[i];
    }
  }
  return names;
}

std::string ComparableRecordNames(const std::string& in_record) {
  std::string names;
  for (size_t i = 0; i < in_record.size(); ++i) {
    if (in_record[i] != '\\') {
      names += in_record[i];
    } else if (++i < in_record.size() && (in_record[i] == '\\' || in_record[i] == '.')) {
      names += in_record[i];
    } else {
      i += 2;  // the rest of three digits
    }
  }
  return names;
}

int64_t ExpectedPair::ResponseTimeUs() const {
  if (response.after) return std::llround(*response.after * 1e6);
  return (response.time_ns - query.time_ns) / 1000;
}

std::vector<ExpectedMessage> ReadExpectedTable(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line)) throw std::runtime_error("cannot read " + path);
  const std::vector<std::string> names = SplitAt(line, '\t');
  std::vector<ExpectedMessage> messages;
  while (std::getline(file, line)) messages.push_back(MessageFrom(Row(names, line)));
  return messages;
}

std::vector<ExpectedPair> PairsOf(const std::vector<ExpectedMessage>& messages) {
  std::multimap<int, const ExpectedMessage*> queries;
  for (const ExpectedMessage& message : messages) {
    if (!message.response) queries.emplace(message.frame, &message);
  }
  std::vector<ExpectedPair> pairs;
  for (const ExpectedMessage& response : messages) {
    if (!response.response || response.answer_to == 0) continue;
    const auto [first, last] = queries.equal_range(response.answer_to);
    const auto query = std::find_if(first, last, [&](const auto& entry) {
      return entry.second->id == response.id && entry.second->source_port == response.destination_port;
    });
    if (query == last)
      throw std::runtime_error("the query of frame " + std::to_string(response.frame) + " is missing");
    pairs.push_back({*query->second, response});
  }
  return pairs;
}

}  // namespace test
