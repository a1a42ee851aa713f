#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "collector/output/text.h"
#include "collector/plugin/exchange.h"

namespace output {

// Cuts one question after the other out of a question section: uncompressed names, types and classes (RFC 1035
// 4.1.2).
class QuestionReader {
 public:
  explicit QuestionReader(std::string_view section) : rest(section) {}

  // Moves to the next question. False when there is none, or what is left is not a whole one.
  bool Next();

  // Of the question at hand: the labels with their length octets, without the root's.
  std::string_view name() const { return labels; }
  uint16_t type() const { return Number(0); }
  uint16_t number_of_class() const { return Number(2); }

 private:
  uint16_t Number(size_t at) const {
    return static_cast<uint16_t>(static_cast<uint8_t>(codes[at]) << 8 | static_cast<uint8_t>(codes[at + 1]));
  }

  std::string_view rest;
  std::string_view labels;
  std::string_view codes;
};

// A name given as labels with length octets: "." for the root, otherwise labels joined by dots with none at the
// end.
char* PutName(char* out, std::string_view labels, Style style);
std::string NameText(std::string_view labels);

// All questions of an exchange, joined by ", ". Names end in ", ..." when there were more than are kept.
char* PutNames(char* out, const plugin::Exchange& exchange, Style style);
char* PutTypes(char* out, const plugin::Exchange& exchange);
char* PutClasses(char* out, const plugin::Exchange& exchange);

// No more characters than this come from a byte of the question section, all three texts together.
inline constexpr size_t kQuestionGrowth = 12;

}  // namespace output
