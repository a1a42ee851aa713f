#include "collector/output/where.h"

#include <strings.h>

#include <charconv>
#include <cmath>
#include <stdexcept>

#include "collector/output/vocabulary.h"

namespace output {
namespace {

[[noreturn]] void Refuse(const std::string& condition, const std::string& reason) {
  throw std::runtime_error("condition '" + condition + "': " + reason);
}

struct Unit {
  std::string_view name;
  double nanoseconds;
};
constexpr Unit kUnits[] = {{"ns", 1}, {"us", 1e3}, {"ms", 1e6}, {"s", 1e9}};

// How many nanoseconds one of the column is, 0 where it is no time.
double Resolution(const Column& column) {
  if (column.name.ends_with("_us")) return 1e3;
  return column.name.ends_with("_ns") ? 1 : 0;
}

// What a column of times is compared with: response times are spans, the others are instants.
const char* TimeExample(const Column& column) {
  return column.name == "rtt_us" ? "100ms or 2s" : "1700000000s, counted since 1970";
}

}  // namespace

Condition::Condition(std::string_view text) : whole(text) {
  const size_t at = text.find_first_of("=!<>~");
  if (at == std::string_view::npos) Refuse(whole, "no operator (one of = != < <= > >= ~ !~)");
  std::string_view name = text.substr(0, at);
  if (name == "rtt") name = "rtt_us";
  column = FindColumn(name);
  if (column == nullptr) Refuse(whole, UnknownColumn(name));

  static constexpr struct {
    std::string_view sign;
    Operator test;
  } kOperators[] = {{"!=", Operator::kNotEqual}, {"!~", Operator::kNoMatch},        {"<=", Operator::kLessOrEqual},
                    {"==", Operator::kEqual},    {">=", Operator::kGreaterOrEqual}, {"=", Operator::kEqual},
                    {"<", Operator::kLess},      {">", Operator::kGreater},         {"~", Operator::kMatch}};
  for (const auto& candidate : kOperators) {
    if (!text.substr(at).starts_with(candidate.sign)) continue;
    test = candidate.test;
    ParseValue(text.substr(at + candidate.sign.size()));
    return;
  }
  Refuse(whole, "'!' is no operator (one of = != < <= > >= ~ !~)");
}

void Condition::ParseValue(std::string_view value) {
  if (test == Operator::kMatch || test == Operator::kNoMatch) {
    ParsePattern(std::string(value));
    return;
  }
  if (column->type == ColumnType::kInteger) {
    number = ParseNumber(value);
    return;
  }
  if (test != Operator::kEqual && test != Operator::kNotEqual) {
    const char* kind = column->type == ColumnType::kBoolean ? "true or false" : "a text";
    Refuse(whole, "'" + std::string(column->name) + "' is " + kind + ": only = != ~ !~ compare it");
  }
  if (column->type == ColumnType::kBoolean && value != "true" && value != "false") {
    Refuse(whole, "'" + std::string(value) + "' is neither true nor false");
  }
  const Vocabulary* const vocabulary = FindVocabulary(column->name);
  if (vocabulary != nullptr && !value.empty() && !vocabulary->has(value)) {
    Refuse(whole, "'" + std::string(value) + "' is no " + std::string(column->name) + " (" +
                      std::string(vocabulary->words) + ")");
  }
  word = value;
}

void Condition::ParsePattern(const std::string& value) {
  auto compiled = std::make_unique<regex_t>();
  const int error = regcomp(compiled.get(), value.c_str(), REG_EXTENDED | REG_ICASE | REG_NOSUB);
  if (error != 0) {
    char reason[128];
    regerror(error, compiled.get(), reason, sizeof reason);
    Refuse(whole, "'" + value + "' is no regular expression: " + reason);
  }
  pattern = std::shared_ptr<regex_t>(compiled.release(), [](regex_t* expression) {
    regfree(expression);
    delete expression;
  });
}

int64_t Condition::ParseNumber(std::string_view value) const {
  const std::string quoted = "'" + std::string(value) + "'";
  int64_t plain = 0;
  const auto whole_number = std::from_chars(value.data(), value.data() + value.size(), plain);
  if (whole_number.ec == std::errc() && whole_number.ptr == value.data() + value.size()) return plain;

  const double resolution = Resolution(*column);
  double amount = 0;
  const auto parsed = std::from_chars(value.data(), value.data() + value.size(), amount, std::chars_format::fixed);
  if (parsed.ec != std::errc()) Refuse(whole, quoted + " is no number");
  const std::string_view suffix(parsed.ptr, static_cast<size_t>(value.data() + value.size() - parsed.ptr));
  for (const Unit& unit : kUnits) {
    if (resolution == 0 || unit.name != suffix) continue;
    const double scaled = std::round(amount * unit.nanoseconds / resolution);
    if (std::fabs(scaled) < 9e18) return static_cast<int64_t>(scaled);
  }
  if (resolution == 0) Refuse(whole, quoted + " is no whole number");
  Refuse(whole, quoted + " is no time (such as " + TimeExample(*column) + ")");
}

bool Condition::Holds(const plugin::Exchange& exchange) const {
  thread_local std::string text;
  text.resize(RoomFor(exchange));
  const char* end = column->write(text.data(), exchange, Style::kPlain);
  // Texts that are absent are as empty as those that are not there: neither equals anything but "".
  const bool absent = end == text.data() && !column->always;
  text.resize(static_cast<size_t>(end - text.data()));
  if (absent) return Negated();
  if (column->type == ColumnType::kInteger && test != Operator::kMatch && test != Operator::kNoMatch) {
    int64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return NumberHolds(value);
  }
  return TextHolds(text);
}

bool Condition::NumberHolds(int64_t value) const {
  switch (test) {
    case Operator::kEqual:
      return value == number;
    case Operator::kNotEqual:
      return value != number;
    case Operator::kLess:
      return value < number;
    case Operator::kLessOrEqual:
      return value <= number;
    case Operator::kGreater:
      return value > number;
    default:
      return value >= number;
  }
}

bool Condition::TextHolds(const std::string& value) const {
  if (test == Operator::kEqual || test == Operator::kNotEqual) {
    const bool equal = value.size() == word.size() && strcasecmp(value.c_str(), word.c_str()) == 0;
    return equal != Negated();
  }
  return (regexec(pattern.get(), value.c_str(), 0, nullptr, 0) == 0) != Negated();
}

}  // namespace output
