#include "collector/output/question.h"

#include "collector/output/iana.h"

namespace output {
namespace {

// Writes a character behind each label but the last, where the lengths of the next ones stand in the section.
void Separate(char* text, std::string_view labels, char separator) {
  for (size_t at = 1U + static_cast<uint8_t>(labels[0]); at < labels.size();
       at += 1U + static_cast<uint8_t>(labels[at])) {
    text[at - 1] = separator;
  }
}

}  // namespace

bool QuestionReader::Next() {
  size_t at = 0;
  while (at < rest.size() && rest[at] != 0) at += 1 + static_cast<size_t>(static_cast<uint8_t>(rest[at]));
  if (at + 5 > rest.size()) return false;
  labels = rest.substr(0, at);
  codes = rest.substr(at + 1, 4);
  rest.remove_prefix(at + 5);
  return true;
}

char* PutName(char* out, std::string_view labels, Style style) {
  if (labels.empty()) return PutText(out, ".");
  // A name looks in the section as it will in the text, with lengths where the dots go: one copy, unless a label
  // needs escapes.
  char* const end = PutText(out, labels.substr(1));
  Separate(out, labels, '-');
  if (IsPlainLabel({out, end})) {
    Separate(out, labels, '.');
    return end;
  }
  for (size_t at = 0; at < labels.size();) {
    const auto length = static_cast<size_t>(static_cast<uint8_t>(labels[at]));
    if (at > 0) *out++ = '.';
    out = PutLabel(out, labels.substr(at + 1, length), style);
    at += 1 + length;
  }
  return out;
}

std::string NameText(std::string_view labels) {
  std::string text(labels.size() * kLongestEscape + 1, '\0');
  text.resize(static_cast<size_t>(PutName(text.data(), labels, Style::kPlain) - text.data()));
  return text;
}

namespace {

template <typename Put>
char* PutJoined(char* out, const plugin::Exchange& exchange, Put put) {
  QuestionReader question(exchange.question);
  if (!question.Next()) return out;
  out = put(out, question);
  while (question.Next()) out = put(PutText(out, ", "), question);
  return out;
}

}  // namespace

char* PutNames(char* out, const plugin::Exchange& exchange, Style style) {
  out = PutJoined(out, exchange, [style](char* at, const QuestionReader& question) {
    return PutName(at, question.name(), style);
  });
  return exchange.question_cut ? PutText(out, ", ...") : out;
}

char* PutTypes(char* out, const plugin::Exchange& exchange) {
  return PutJoined(out, exchange,
                   [](char* at, const QuestionReader& question) { return PutType(at, question.type()); });
}

char* PutClasses(char* out, const plugin::Exchange& exchange) {
  return PutJoined(out, exchange, [](char* at, const QuestionReader& question) {
    return PutClass(at, question.number_of_class());
  });
}

}  // namespace output
