#include "collector/cli/help_formatter.h"

#include <sstream>
#include <utility>

namespace cli {
namespace {

constexpr size_t kOptionColumn = 26;
constexpr size_t kLineWidth = 80;

}  // namespace

HelpFormatter::HelpFormatter() { column_width(kOptionColumn); }

std::string HelpFormatter::make_usage(const CLI::App* app, std::string name) const {
  if (app->get_parent() == nullptr) return "Usage: " + name + " COMMAND [OPTIONS]\n";
  std::string usage = CLI::Formatter::make_usage(app, std::move(name));
  return usage.insert(usage.find_last_not_of('\n') + 1, " [-- FILTER]");
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
  std::ostringstream line;
  CLI::detail::format_help(line, command->get_name(),
                           Wrapped(command->get_description(), kLineWidth - kOptionColumn), kOptionColumn);
  return line.str();
}

std::string HelpFormatter::make_option_opts(const CLI::Option* option) const {
  const std::string name = option->get_type_size() == 0 ? "" : option->get_type_name();
  return name.empty() ? "" : " " + name;
}

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
  return Wrapped(option->get_description(), kLineWidth - kOptionColumn);
}

std::string Wrapped(const std::string& text, size_t width) {
  std::istringstream words(text);
  std::string wrapped;
  std::string word;
  size_t column = 0;
  while (words >> word) {
    const bool fits = column + 1 + word.size() <= width;
    if (column > 0) wrapped += fits ? ' ' : '\n';
    column = column > 0 && fits ? column + 1 + word.size() : word.size();
    wrapped += word;
  }
  return wrapped;
}

}  // namespace cli
