#pragma once

#include <string_view>

namespace output {

// What the texts of a column can be, where they are not free.
struct Vocabulary {
  std::string_view column;
  std::string_view words;              // for people: all of them, or some
  bool (*has)(std::string_view word);  // without regard to letter case
};

// Null for columns that may say anything.
const Vocabulary* FindVocabulary(std::string_view column);

}  // namespace output
