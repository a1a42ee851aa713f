#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace cli {

// What a shell may offer for the last of the words, which follow "dnspair" and of which the last may be empty.
// Each line is one of
//   TEXT\tDESCRIPTION   the whole word with which the last one may be replaced; the description may be empty
//   :nospace            a word that is taken is not complete yet
//   :files              names of files fit here
std::vector<std::string> Completions(CLI::App& app, const std::vector<std::string>& words);

}  // namespace cli
