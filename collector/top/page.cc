#include "collector/top/page.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

#include "collector/output/keys.h"
#include "collector/output/question.h"
#include "collector/output/text.h"

namespace top {
namespace {

// --- texts

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Percent(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  return Fixed(100 * static_cast<double>(part) / static_cast<double>(whole), 1) + " %";
}

std::string Milliseconds(int64_t microseconds) {
  char text[32];
  return std::string(text, output::PutMilliseconds(text, microseconds));
}

std::string Left(std::string text, size_t width) {
  if (text.size() > width) {
    text.resize(width);
    if (width > 4) text.replace(width - 2, 2, "..");
  }
  text.append(width - text.size(), ' ');
  return text;
}

// A number that does not fit is cut from the right, so that at least its beginning is true; columns are made so
// that it does.
std::string Right(const std::string& text, size_t width) {
  return text.size() >= width ? text.substr(0, width) : std::string(width - text.size(), ' ') + text;
}

// --- the figures at the top

struct Figure {
  const char* label;
  std::string value;
};

constexpr size_t kFigureWidth = 19;
constexpr size_t kFiguresAbreast = 4;

std::vector<Figure> Figures(const Timeline::Sight& sight, const Surroundings& around) {
  const output::Summary::Tally& all = sight.slice.all();
  const auto time = [&all](double share) {
    return all.times_us.count() == 0 ? "-" : Milliseconds(all.times_us.Quantile(share));
  };
  return {{"queries/s", Fixed(static_cast<double>(all.Ended()) / sight.seconds, 1)},
          {"answers/s", Fixed(static_cast<double>(all.answered) / sight.seconds, 1)},
          {"failed", Percent(all.failed, all.Ended())},
          {"timed out", Percent(all.timed_out, all.Ended())},
          {"p50 ms", time(0.5)},
          {"p90 ms", time(0.9)},
          {"p99 ms", time(0.99)},
          {"max ms", all.times_us.count() == 0 ? "-" : Milliseconds(all.times_us.max())},
          {"exchanges", std::to_string(all.Ended())},
          {"seconds", Fixed(sight.seconds, 0)},
          {"packets", std::to_string(around.packets)},
          {"dropped", std::to_string(around.dropped)}};
}

std::vector<Line> FigureLines(const std::vector<Figure>& figures, size_t width) {
  const size_t abreast = std::clamp<size_t>((width + 1) / (kFigureWidth + 1), 1, kFiguresAbreast);
  const size_t gap = abreast > 1 ? std::min<size_t>((width - abreast * kFigureWidth) / (abreast - 1), 6) : 0;
  std::vector<Line> lines;
  for (size_t i = 0; i < figures.size(); ++i) {
    if (i % abreast == 0) lines.emplace_back();
    std::string& text = lines.back().text;
    if (i % abreast > 0) text.append(gap, ' ');
    const std::string label = figures[i].label;
    text += label + Right(figures[i].value, kFigureWidth - label.size());
  }
  return lines;
}

// --- the lists

struct Column {
  const char* title;
  size_t width;
  std::string (*text)(const Row& row);
};

// A number that is not known is not 0.
std::string Counted(const Row& row, uint64_t count) {
  return row.counted || count > 0 ? std::to_string(count) : "-";
}

constexpr Column kExchanges = {"EXCHANGES", 10, [](const Row& row) { return Counted(row, row.exchanges); }};
constexpr Column kFailed = {"FAILED", 8, [](const Row& row) { return Counted(row, row.failed); }};
constexpr Column kTimedOut = {"TIMEOUT", 8, [](const Row& row) { return Counted(row, row.timed_out); }};
constexpr Column kMean = {
    "MEAN MS", 11, [](const Row& row) { return row.exchanges > row.timed_out ? Milliseconds(row.mean_us) : "-"; }};
constexpr Column kSlowest = {
    "MAX MS", 11, [](const Row& row) { return row.slowest_us > 0 ? Milliseconds(row.slowest_us) : "-"; }};

// What the order is about comes first, since a narrow list has no room for the rest.
constexpr std::array<std::array<Column, 5>, kOrders> kColumns = {{
    {kExchanges, kFailed, kTimedOut, kMean, kSlowest},
    {kFailed, kTimedOut, kExchanges, kMean, kSlowest},
    {kSlowest, kMean, kExchanges, kFailed, kTimedOut},
}};

constexpr size_t kNarrowestKey = 15;    // an IPv4 address
constexpr size_t kComfortableKey = 30;  // the columns that matter less leave this much
constexpr size_t kColumnsThatMatter = 2;

std::string KeyText(Subject subject, const std::string& key) {
  return subject == Subject::kName ? output::NameText(key) : output::AddressOfKey(key);
}

// A list in a rectangle of the screen: its title, then rows.
std::vector<std::string> ListLines(const Slice& slice, const char* title, Subject subject, Order order, Size size) {
  std::vector<std::string> lines;
  if (size.height == 0) return lines;
  const auto& columns = kColumns.at(static_cast<size_t>(order));
  size_t shown = 0;
  size_t key_width = size.width;
  for (const Column& column : columns) {
    const size_t key_needs = shown < kColumnsThatMatter ? kNarrowestKey : kComfortableKey;
    if (key_width < key_needs + column.width) break;
    key_width -= column.width;
    ++shown;
  }
  std::string heading = Left(title, key_width);
  for (size_t i = 0; i < shown; ++i) heading += Right(columns.at(i).title, columns.at(i).width);
  lines.push_back(heading);
  for (const Row& row : slice.Of(subject).First(order, size.height - 1)) {
    std::string text = Left(KeyText(subject, row.key), key_width);
    for (size_t i = 0; i < shown; ++i) text += Right(columns.at(i).text(row), columns.at(i).width);
    lines.push_back(text);
  }
  return lines;
}

// The lists of the overview, in the order of their importance where there is no room for all.
struct Panel {
  const char* title;
  Subject subject;
  bool as_chosen;  // in the order that the user chose
  Order order;
};
constexpr Panel kPanels[] = {
    {"NAMES", Subject::kName, true, {}},     {"FAILING NAMES", Subject::kName, false, Order::kFailing},
    {"CLIENTS", Subject::kClient, true, {}}, {"SLOWEST NAMES", Subject::kName, false, Order::kSlowest},
    {"SERVERS", Subject::kServer, true, {}}, {"FAILING SERVERS", Subject::kServer, false, Order::kFailing},
};
constexpr size_t kTwoAbreast = 70;  // columns
constexpr size_t kLowestPanel = 3;  // lines

std::vector<std::string> PanelLines(const Slice& slice, const Panel& panel, const View& view, Size size) {
  return ListLines(slice, panel.title, panel.subject, panel.as_chosen ? view.order : panel.order, size);
}

// Left of each other, with a bar between them; the first line is the titles'.
void AddAbreast(const std::vector<std::string>& left, const std::vector<std::string>& right, size_t width,
                size_t height, std::vector<Line>* lines) {
  for (size_t i = 0; i < height; ++i) {
    std::string text = Left(i < left.size() ? left[i] : "", width) + "  " + (i < right.size() ? right[i] : "");
    lines->push_back({std::move(text), i == 0 ? Look::kTitle : Look::kPlain});
  }
}

std::vector<Line> Overview(const Slice& slice, const View& view, Size size) {
  std::vector<Line> lines;
  const bool two = size.width >= kTwoAbreast;
  const size_t abreast = two ? 2 : 1;
  const size_t rows = std::clamp<size_t>(size.height / kLowestPanel, 1, std::size(kPanels) / abreast);
  const Size panel = {two ? (size.width - 2) / 2 : size.width, 0};
  for (size_t i = 0; i < rows; ++i) {
    // What does not divide evenly goes to the first ones.
    const size_t height = size.height / rows + (i < size.height % rows ? 1 : 0);
    const Size room = {panel.width, height};
    const auto left = PanelLines(slice, kPanels[i * abreast], view, room);
    if (two) {
      AddAbreast(left, PanelLines(slice, kPanels[i * abreast + 1], view, room), panel.width, height, &lines);
    } else {
      AddAbreast(left, {}, panel.width, height, &lines);
    }
  }
  return lines;
}

constexpr std::array<const char*, kSubjects> kTitles = {"NAME", "CLIENT", "SERVER"};

std::vector<Line> OneList(const Slice& slice, const View& view, Size size) {
  const auto subject = static_cast<Subject>(static_cast<size_t>(view.lists) - 1);
  const auto texts = ListLines(slice, kTitles.at(static_cast<size_t>(subject)), subject, view.order, size);
  std::vector<Line> lines;
  AddAbreast(texts, {}, size.width, size.height, &lines);
  return lines;
}

// --- the rest

std::vector<Line> HelpLines() {
  std::vector<Line> lines = {{"KEYS", Look::kTitle}};
  for (const Key& key : AllKeys()) lines.push_back({"  " + Left(key.name, 5) + key.help});
  lines.push_back({""});
  lines.push_back({"An exchange counts when it is over: answered, or given up. FAILED are answers"});
  lines.push_back({"that are no success, TIMEOUT are queries without an answer. Counts of lists"});
  lines.push_back({"are never too high; where very many names come they may be too low."});
  return lines;
}

// Left and right text with room between them; the right one goes where there is none.
std::string Spread(const std::string& left, const std::string& right, size_t width) {
  if (left.size() + right.size() + 2 > width) return Left(left, width);
  return left + std::string(width - left.size() - right.size(), ' ') + right;
}

Line Head(const View& view, const Surroundings& around, size_t width) {
  constexpr size_t kSeconds = 19;  // "2026-01-31 12:34:56"
  const std::string left = " dnspair " + output::Printable(around.interfaces) + ": " + WindowText(view.window) +
                           ", " + OrderText(view.order);
  return {Spread(left, output::TimeText(around.time_ns).substr(0, kSeconds) + " UTC ", width), Look::kBar};
}

Line Foot(size_t width) {
  std::string text;
  for (const Key& key : AllKeys()) {
    if (*key.brief != '\0') text += std::string(" ") + key.name + " " + key.brief + "  ";
  }
  return {Left(text, width), Look::kBar};
}

}  // namespace

std::vector<Line> Page(const Timeline::Sight& sight, const View& view, const Surroundings& around, Size size) {
  std::vector<Line> lines = {Head(view, around, size.width)};
  for (Line& line : FigureLines(Figures(sight, around), size.width)) lines.push_back(std::move(line));
  if (around.dropped > 0) lines.back().look = Look::kAlarm;
  const size_t foot = size.height > 2 ? 1 : 0;
  if (lines.size() + foot < size.height) {
    const Size room = {size.width, size.height - lines.size() - foot};
    const std::vector<Line> middle = view.help                   ? HelpLines()
                                     : view.lists == Lists::kAll ? Overview(sight.slice, view, room)
                                                                 : OneList(sight.slice, view, room);
    lines.insert(lines.end(), middle.begin(), middle.end());
  }
  lines.resize(size.height - foot);
  if (foot > 0) lines.push_back(Foot(size.width));
  for (Line& line : lines) line.text.resize(std::min(line.text.size(), size.width));
  return lines;
}

}  // namespace top
