#include "collector/cli/suggestion.h"

#include <algorithm>

namespace cli {

// Optimal string alignment: three rows of the table are enough.
size_t TypingMistakes(const std::string& from, const std::string& to) {
  std::vector<size_t> two_above(to.size() + 1);
  std::vector<size_t> above(to.size() + 1);
  std::vector<size_t> row(to.size() + 1);
  for (size_t j = 0; j <= to.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= from.size(); ++i) {
    std::swap(two_above, above);
    std::swap(above, row);
    row[0] = i;
    for (size_t j = 1; j <= to.size(); ++j) {
      const size_t replaced = above[j - 1] + (from[i - 1] == to[j - 1] ? 0 : 1);
      row[j] = std::min({replaced, above[j] + 1, row[j - 1] + 1});
      const bool swapped = i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1];
      if (swapped) row[j] = std::min(row[j], two_above[j - 2] + 1);
    }
  }
  return row[to.size()];
}

std::string Suggestion(const std::string& word, const std::vector<std::string>& candidates) {
  constexpr size_t kShortestBeginning = 2;
  constexpr size_t kLettersForAMistake = 3;
  std::vector<std::string> longer;
  std::copy_if(candidates.begin(), candidates.end(), std::back_inserter(longer),
               [&](const std::string& candidate) { return candidate.starts_with(word); });
  if (longer.size() == 1 && word.size() >= kShortestBeginning) return longer.front();

  std::string nearest;
  size_t fewest = word.size() / kLettersForAMistake + 1;
  for (const std::string& candidate : candidates) {
    const size_t mistakes = TypingMistakes(word, candidate);
    if (mistakes >= fewest) continue;
    fewest = mistakes;
    nearest = candidate;
  }
  return nearest;
}

}  // namespace cli
