// What is drawn from any exchanges for people: the screen of live runs, and the page of a report.

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "collector/report/report.h"
#include "collector/top/page.h"
#include "collector/top/timeline.h"
#include "collector/top/view.h"
#include "fuzz/draw.h"
#include "fuzz/drawn_exchange.h"
#include "fuzz/target.h"

namespace fuzz {
namespace {

// ---- the screen ----------------------------------------------------------------------------------------------

void CheckScreen(const std::vector<top::Line>& lines, const top::Size& size) {
  Must(lines.size() <= size.height, "a screen has no more lines than the terminal");
  for (const top::Line& line : lines) {
    Must(line.text.size() <= size.width, "a line fits the terminal");
    for (const char character : line.text) {
      Must(character >= 0x20 && character < 0x7f, "nothing but printable ASCII reaches a terminal");
    }
  }
}

// Keys as a user may press them, and what is shown behind each.
void Look(Draw* input, const top::Timeline& timeline) {
  top::View view;
  for (int key = 0; key < 8 && !input->Empty(); ++key) {
    top::Press(&view, input->U8());
    const top::Size size{input->U8(), input->U8()};
    const std::string interfaces(input->Text());
    CheckScreen(
        Page(timeline.Look(view.window), view, {interfaces, input->I64(), input->U64(), input->U64()}, size), size);
  }
}

// ---- the page ------------------------------------------------------------------------------------------------

// All that the page is made of. What a name or a title brings along would show as another one.
constexpr auto kElements = std::to_array<std::string_view>(
    {"!DOCTYPE", "a",       "body",   "button", "caption", "data",    "dd",     "details", "div",    "dl",
     "dt",       "footer",  "form",   "g",      "h1",      "h2",      "h3",     "head",    "header", "html",
     "input",    "label",   "li",     "line",   "main",    "meta",    "option", "output",  "p",      "path",
     "script",   "section", "select", "span",   "style",   "summary", "svg",    "table",   "tbody",  "td",
     "text",     "th",      "thead",  "title",  "tr",      "ul"});
constexpr auto kWithoutEnd = std::to_array<std::string_view>({"!DOCTYPE", "input", "meta"});

template <size_t size>
bool IsOneOf(const std::array<std::string_view, size>& all, std::string_view one) {
  return std::find(all.begin(), all.end(), one) != all.end();
}

// Reads the page as a browser does, as far as it has to: elements that are opened are closed in their order, and
// attributes stand in quotes.
class PageReader {
 public:
  explicit PageReader(std::string_view page) : rest(page) {}

  void Read() {
    while (!rest.empty()) {
      const std::string_view text = rest.substr(0, rest.find('<'));
      Must(text.find('>') == std::string_view::npos, "a text holds no end of a tag");
      rest.remove_prefix(text.size());
      if (!rest.empty()) ReadTag();
    }
    Must(open.empty(), "what is opened is closed");
  }

 private:
  void ReadTag() {
    rest.remove_prefix(1);
    const bool closes = rest.starts_with('/');
    if (closes) rest.remove_prefix(1);
    const std::string_view name = rest.substr(0, rest.find_first_of(" \n/>"));
    Must(IsOneOf(kElements, name), "the page is made of what we put there");
    rest.remove_prefix(name.size());
    const bool ends_itself = ReadAttributes();
    if (closes) {
      Must(!open.empty() && open.back() == name, "what was opened last is closed first");
      open.pop_back();
    } else if (!ends_itself && !IsOneOf(kWithoutEnd, name)) {
      open.push_back(name);
      if (name == "script" || name == "style") SkipTo(name == "script" ? "</script>" : "</style>");
    }
  }

  // True for a tag that ends in "/>".
  bool ReadAttributes() {
    bool slash = false;
    while (!rest.empty() && rest.front() != '>') {
      slash = rest.front() == '/';
      const bool quote = rest.front() == '"';
      Must(rest.front() != '<', "a tag ends before the next one");
      Must(!rest.starts_with(" on"), "no attribute is a script");
      rest.remove_prefix(1);
      if (!quote) continue;
      const size_t end = rest.find('"');
      Must(end != std::string_view::npos, "a quote is closed");
      rest.remove_prefix(end + 1);
    }
    Must(!rest.empty(), "a tag has an end");
    rest.remove_prefix(1);
    return slash;
  }

  void SkipTo(std::string_view end) {
    const size_t at = rest.find(end);
    Must(at != std::string_view::npos, "what is no HTML has an end");
    rest.remove_prefix(at);
  }

  std::string_view rest;
  std::vector<std::string_view> open;
};

void CheckPage(const std::string& page) {
  Must(page.starts_with("<!DOCTYPE html>"), "a page says what it is");
  for (const char character : page) {
    Must(static_cast<unsigned char>(character) >= 0x20 || character == '\n', "a page holds no controls");
  }
  PageReader(page).Read();
}

void Run(Draw* input) {
  top::Timeline timeline(0);
  const uint8_t bits = input->U8();
  const std::string title(input->Text());
  const std::string file(input->Text());
  report::Report report;
  int64_t now = 0;
  for (int i = 0; i <= bits % 8; ++i) {
    const DrawnExchange exchange(input);
    timeline.Add(exchange);
    now += int64_t{input->U16()} * 100'000'000;
    timeline.Advance(now);
    report.Add(exchange);
  }
  Look(input, timeline);
  // Large: only now and then.
  if ((bits & 0x80) != 0) CheckPage(report.Html({.title = title, .version = "1", .files = {file}, .top = 3}));
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  fuzz::Run(&input);
  return 0;
}
