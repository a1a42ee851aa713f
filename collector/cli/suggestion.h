#pragma once

#include <string>
#include <vector>

namespace cli {

// The candidate that the user most likely meant: the only one that begins with the word, or else the nearest one
// with at most one typing mistake for every three letters. "" when nothing is near.
std::string Suggestion(const std::string& word, const std::vector<std::string>& candidates);

// How many letters have to be inserted, left out, replaced or swapped with their neighbour to get from one word to
// the other.
size_t TypingMistakes(const std::string& from, const std::string& to);

}  // namespace cli
