#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace cli {

// Help that fits a terminal of 80 columns: descriptions are wrapped, and options show their argument's name and
// nothing of how it is checked.
class HelpFormatter : public CLI::Formatter {
 public:
  HelpFormatter();

  // In the words of the manual: the command stands first, and a filter may end the line.
  std::string make_usage(const CLI::App* app, std::string name) const override;
  std::string make_subcommand(const CLI::App* command) const override;
  std::string make_option_opts(const CLI::Option* option) const override;
  std::string make_option_desc(const CLI::Option* option) const override;
};

// Breaks the text at spaces into lines of at most `width` characters; words that are longer stand alone.
std::string Wrapped(const std::string& text, size_t width);

}  // namespace cli
