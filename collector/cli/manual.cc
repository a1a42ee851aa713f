#include "collector/cli/manual.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>

#include "collector/cli/commands.h"
#include "collector/cli/help_formatter.h"

namespace cli {
namespace {

constexpr size_t kLineWidth = 72;

// A text that roff takes as it stands: no escapes, no requests, hyphens that can be copied.
std::string Plain(const std::string& text) {
  std::string plain;
  for (const char character : text) {
    if (character == '\\') {
      plain += "\\e";
    } else if (character == '-') {
      plain += "\\-";
    } else {
      if (plain.empty() && (character == '.' || character == '\'')) plain += "\\&";
      plain += character;
    }
  }
  return plain;
}

// A paragraph of such a text, in short lines.
std::string Paragraph(const std::string& text) {
  std::istringstream lines(Wrapped(text, kLineWidth));
  std::string paragraph;
  for (std::string line; std::getline(lines, line);) paragraph += Plain(line) + "\n";
  return paragraph;
}

// The same as one argument of a macro.
std::string Argument(const std::string& text) { return "\"" + Plain(text) + "\""; }

std::string Upper(std::string text) {
  for (char& character : text) character = static_cast<char>(std::toupper(static_cast<unsigned char>(character)));
  return text;
}

// One page at the time of its making.
struct Page {
  const Command* command;  // null for the program
  const CLI::App& program;
  const CLI::App& app;  // of the command, or the program
};

std::vector<const CLI::App*> CommandsOf(const Page& page) {
  return page.program.get_subcommands([](const CLI::App*) { return true; });
}

bool TakesFiles(const CLI::App& app) {
  return std::ranges::any_of(app.get_options(), [](const CLI::Option* each) { return each->get_positional(); });
}

std::string Head(const Page& page) {
  const std::string name = ManualName(page.command);
  std::string head =
      ".Dd November 21, 2026\n.Dt " + Upper(name) + " 1\n.Os\n.Sh NAME\n.Nm " + name + "\n.Nd " +
      Plain(page.command == nullptr ? "pair DNS queries with their responses" : page.command->summary) +
      "\n.Sh SYNOPSIS\n";
  if (page.command == nullptr) {
    return head +
           ".Nm dnspair\n.Ar command\n.Op Ar options\n.Ar ...\n.Nm dnspair\n.Cm help\n.Op Ar command\n"
           ".Nm dnspair\n.Fl \\-version\n";
  }
  head += ".Nm dnspair\n.Cm " + Plain(page.command->name) + "\n.Op Ar options\n";
  if (TakesFiles(page.app)) head += ".Ar FILE ...\n";
  return head + ".Op Fl \\- Ar filter\n";
}

std::string CommandList(const Page& page) {
  std::string list = ".Bl -tag -width summary\n";
  for (const CLI::App* each : CommandsOf(page)) {
    list += ".It Cm " + Plain(each->get_name()) + "\n" + Paragraph(each->get_description());
  }
  return list + ".El\n";
}

std::string OptionItem(const CLI::Option& option) {
  std::string item = ".It";
  for (const std::string& name : option.get_snames()) item += " Fl " + Plain(name) + " ,";
  for (const std::string& name : option.get_lnames()) item += " Fl " + Plain("-" + name) + " ,";
  item.resize(item.size() - 2);
  if (!option.get_type_name().empty()) item += " Ar " + Argument(option.get_type_name());
  return item + "\n" + Paragraph(option.get_description());
}

std::string OptionList(const Page& page) {
  std::string list = ".Bl -tag -width Ds\n";
  for (const CLI::Option* each : page.app.get_options()) {
    if (each->get_positional()) {
      list += ".It Ar " + Argument(each->get_name()) + "\n" + Paragraph(each->get_description());
    } else if (!each->get_group().empty()) {
      list += OptionItem(*each);
    }
  }
  return list + ".El\n";
}

// The help's examples: what is indented is a command, the rest explains.
std::string Examples(const Page& page) {
  if (page.command == nullptr) return "";
  std::istringstream lines(page.command->examples);
  std::string examples = ".Sh EXAMPLES\n";
  for (std::string line; std::getline(lines, line);) {
    if (line == "Examples:" || line.empty()) continue;
    examples += line.starts_with("  ") ? ".Dl " + Argument(line.substr(2)) + "\n" : Paragraph(line);
  }
  return examples;
}

std::string SeeAlso(const Page& page) {
  std::vector<std::string> names = {"dnspair"};
  for (const CLI::App* each : CommandsOf(page)) names.push_back("dnspair-" + each->get_name());
  std::erase(names, ManualName(page.command));
  std::sort(names.begin(), names.end());
  std::string list = ".Sh SEE ALSO\n";
  for (const std::string& name : names) list += ".Xr " + name + " 1 ,\n";
  return list + ".Xr pcap-filter 7 ,\n.Xr tcpdump 8\n";
}

std::string Documents(const Page&) { return std::string(".Pa ") + DNSPAIR_DOCUMENTS + "\n"; }

struct Placeholder {
  std::string_view line;
  std::string (*replacement)(const Page& page);
};

constexpr std::array kPlaceholders = {
    Placeholder{"@head@", Head},          Placeholder{"@commands@", CommandList},
    Placeholder{"@options@", OptionList}, Placeholder{"@examples@", Examples},
    Placeholder{"@see_also@", SeeAlso},   Placeholder{"@documents@", Documents},
};

}  // namespace

std::string ManualName(const Command* command) {
  return command == nullptr ? "dnspair" : std::string("dnspair-") + command->name;
}

std::string ManualPage(const Command* command, const std::string& text) {
  Options options;
  const std::unique_ptr<CLI::App> program = MakeApp(&options);
  const Page page{command, *program, command == nullptr ? *program : *program->get_subcommand(command->name)};
  std::istringstream lines(text);
  std::string made;
  for (std::string line; std::getline(lines, line);) {
    const auto* const found = std::ranges::find(kPlaceholders, std::string_view(line), &Placeholder::line);
    made += found == kPlaceholders.end() ? line + "\n" : found->replacement(page);
  }
  return made;
}

}  // namespace cli
