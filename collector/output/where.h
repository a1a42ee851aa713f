#pragma once

#include <regex.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "collector/output/columns.h"

namespace output {

// One condition on a record, "column operator value":
//
//   rcode=NXDOMAIN   rcode!=NOERROR   texts, without regard to the case of letters
//   bytes_query>=512 result_code<0    numbers
//   rtt>100ms        rtt_us<2s        times take the units ns, us, ms and s; without one, that of the column
//   ts_us>=1700000000s                instants are counted since 1970
//   cut=true                          true or false
//   qname~\.example$ qname!~^www\.    POSIX extended regular expressions, found anywhere in the text
//
// "rtt" stands for rtt_us. A field that is absent from a record is different from everything: only != and !~ hold.
class Condition {
 public:
  // Throws std::runtime_error that quotes what cannot be understood.
  explicit Condition(std::string_view text);

  bool Holds(const plugin::Exchange& exchange) const;
  bool LooksAtDetails() const { return column->details; }

 private:
  enum class Operator : uint8_t {
    kEqual,
    kNotEqual,
    kLess,
    kLessOrEqual,
    kGreater,
    kGreaterOrEqual,
    kMatch,
    kNoMatch
  };

  void ParseValue(std::string_view value);
  void ParsePattern(const std::string& value);
  int64_t ParseNumber(std::string_view value) const;
  bool Negated() const { return test == Operator::kNotEqual || test == Operator::kNoMatch; }
  bool NumberHolds(int64_t value) const;
  bool TextHolds(const std::string& value) const;

  std::string whole;  // as it was given, for messages
  const Column* column = nullptr;
  Operator test = Operator::kEqual;
  int64_t number = 0;
  std::string word;
  std::shared_ptr<const regex_t> pattern;
};

// Conditions that all have to hold.
class Where {
 public:
  explicit Where(const std::vector<std::string>& texts) : conditions(texts.begin(), texts.end()) {}

  bool Holds(const plugin::Exchange& exchange) const {
    for (const Condition& condition : conditions) {
      if (!condition.Holds(exchange)) return false;
    }
    return true;
  }

  bool LooksAtDetails() const { return std::ranges::any_of(conditions, &Condition::LooksAtDetails); }

 private:
  std::vector<Condition> conditions;
};

}  // namespace output
