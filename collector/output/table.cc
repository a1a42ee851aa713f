#include <algorithm>

#include "collector/output/iana.h"
#include "collector/output/question.h"
#include "collector/output/record_writer.h"

namespace output {
namespace {

using plugin::Exchange;
using plugin::Status;

std::string Endpoint(const packet::Address* address, uint16_t port) {
  if (address == nullptr) return "-";
  char text[kLongestAddress];
  std::string ip(text, PutAddress(text, *address));
  if (address->version == 6) ip = "[" + ip + "]";
  return ip + ":" + std::to_string(port);
}

std::string Client(const Exchange& exchange) { return Endpoint(exchange.client, exchange.client_port); }
std::string Server(const Exchange& exchange) { return Endpoint(exchange.server, exchange.server_port); }

std::string AddressOnly(const packet::Address* address) {
  if (address == nullptr) return "-";
  char text[kLongestAddress];
  return std::string(text, PutAddress(text, *address));
}

std::string ShortClient(const Exchange& exchange) { return AddressOnly(exchange.client); }

// Without the port that all servers have.
std::string ShortServer(const Exchange& exchange) {
  constexpr uint16_t kDnsPort = 53;
  return exchange.server_port == kDnsPort ? AddressOnly(exchange.server) : Server(exchange);
}

std::string DayAndTime(const Exchange& exchange) { return TimeText(exchange.query_time_ns); }

std::string TimeOfDay(const Exchange& exchange) {
  const std::string text = DayAndTime(exchange);
  return text.substr(text.find(' ') + 1);
}

std::string TimeInSeconds(const Exchange& exchange) {
  const std::string text = TimeOfDay(exchange);
  return text.substr(0, text.find('.'));
}

std::string Transport(const Exchange& exchange) { return exchange.transport == 17 ? "udp" : "tcp"; }

// What a person wants to know of an exchange at a glance: the response's code, or why there is none.
std::string Result(const Exchange& exchange) {
  if (exchange.status != Status::kAnswered) return StatusName(exchange.status);
  char text[kRoomForWord];
  return std::string(text, PutRcode(text, exchange.rcode));
}

std::string Milliseconds(const Exchange& exchange) {
  if (!exchange.has_response) return "-";
  char text[32];
  return std::string(text, PutMilliseconds(text, exchange.rtt_us));
}

std::string Names(const Exchange& exchange) {
  std::string text(RoomFor(exchange), '\0');
  text.resize(static_cast<size_t>(PutNames(text.data(), exchange, Style::kPlain) - text.data()));
  return text;
}

std::string Types(const Exchange& exchange) {
  std::string text(RoomFor(exchange), '\0');
  text.resize(static_cast<size_t>(PutTypes(text.data(), exchange) - text.data()));
  return text;
}

std::string Answers(const Exchange& exchange) { return Printable(exchange.answers); }

enum class Kind : uint8_t {
  kText,
  kNumber,   // to the right
  kName,     // the first to become narrower, when a line is too long
  kAddress,  // the next; loses its middle, as the end tells hosts apart
  kRest,     // what comes last and takes the room that is left
};

// One column of the table. Widths grow with what was shown, up to `most`, so that lines need not wait for others.
struct Cell {
  std::string_view title;
  size_t usual;  // the width to begin with
  size_t most;
  Kind kind;
  std::string (*text)(const Exchange&);
  const Column* column = nullptr;  // where `text` is null
  size_t width = usual;
};

constexpr Cell Name(size_t usual) { return {"NAME", usual, 48, Kind::kName, Names}; }
constexpr Cell kClient = {"CLIENT", 21, 47, Kind::kAddress, Client};
constexpr Cell kServer = {"SERVER", 18, 47, Kind::kAddress, Server};
constexpr Cell ShortClientUpTo(size_t most) { return {"CLIENT", 11, most, Kind::kAddress, ShortClient}; }
constexpr Cell ShortServerUpTo(size_t most) { return {"SERVER", 11, most, Kind::kAddress, ShortServer}; }
constexpr Cell kDayAndTime = {"TIME (UTC)", 26, 26, Kind::kText, DayAndTime};
constexpr Cell kTimeOfDay = {"TIME (UTC)", 15, 15, Kind::kText, TimeOfDay};
constexpr Cell kTimeInSeconds = {"TIME UTC", 8, 8, Kind::kText, TimeInSeconds};
constexpr Cell kTransport = {"VIA", 3, 3, Kind::kText, Transport};
constexpr Cell kType = {"TYPE", 6, 12, Kind::kText, Types};
constexpr Cell kResult = {"RESULT", 8, 10, Kind::kText, Result};
constexpr Cell kMilliseconds = {"MS", 8, 12, Kind::kNumber, Milliseconds};
constexpr Cell kAnswers = {"ANSWERS", 2, 2, Kind::kRest, Answers};  // room for ".." at least

// What people want to see first, on a terminal of `width` columns or without one (0). Each row's usual widths fit
// the narrowest terminal that it is for.
std::vector<Cell> UsualCells(size_t width) {
  struct Layout {
    size_t narrowest;
    std::vector<Cell> cells;
  };
  const Layout layouts[] = {
      {124, {kDayAndTime, kClient, kServer, kTransport, Name(24), kType, kResult, kMilliseconds, kAnswers}},
      {110, {kTimeOfDay, kClient, kServer, kTransport, Name(24), kType, kResult, kMilliseconds}},
      {98, {kTimeInSeconds, ShortClientUpTo(24), ShortServerUpTo(24), Name(14), kType, kResult, kMilliseconds}},
      {80, {kTimeInSeconds, ShortClientUpTo(15), ShortServerUpTo(21), Name(14), kType, kResult, kMilliseconds}},
      {60, {kTimeInSeconds, ShortClientUpTo(15), Name(14), kType, kResult, kMilliseconds}},
      {48, {kTimeInSeconds, Name(14), kType, kResult, kMilliseconds}},
      {30, {Name(12), kResult, kMilliseconds}},
  };
  if (width == 0) return layouts[0].cells;
  for (const Layout& layout : layouts) {
    if (width >= layout.narrowest) return layout.cells;
  }
  return {kResult, kMilliseconds};
}

std::vector<Cell> ChosenCells(const ColumnList& columns) {
  std::vector<Cell> cells;
  for (const Column* column : columns) {
    const Kind kind = column->type == ColumnType::kInteger ? Kind::kNumber : Kind::kText;
    cells.push_back({column->name, column->name.size(), 48, kind, nullptr, column});
  }
  if (!cells.empty() && cells.back().kind == Kind::kText) cells.back().kind = Kind::kRest;
  return cells;
}

constexpr std::string_view kRed = "\033[31m";
constexpr std::string_view kYellow = "\033[33m";
constexpr std::string_view kBold = "\033[1m";
constexpr std::string_view kPlain = "\033[0m";

std::string_view Colour(const Exchange& exchange) {
  constexpr uint16_t kNoError = 0, kNxDomain = 3;
  if (exchange.status == Status::kOpen) return {};
  if (exchange.status != Status::kAnswered) return kRed;
  if (exchange.rcode == kNoError) return {};
  return exchange.rcode == kNxDomain ? kYellow : kRed;
}

// Cuts the end off.
void Shorten(std::string* text, size_t most) {
  if (text->size() <= most) return;
  text->resize(most);
  for (size_t i = most - std::min<size_t>(most, 2); i < most; ++i) (*text)[i] = '.';
}

void CutMiddle(std::string* text, size_t most) {
  if (text->size() <= most) return;
  const size_t tail = (most - std::min<size_t>(most, 2)) / 2;
  const std::string end = text->substr(text->size() - tail);
  Shorten(text, most - tail);
  *text += end;
}

class TableWriter : public RecordWriter {
 public:
  TableWriter(Buffer* destination, std::vector<Cell> shown, const TableSettings& wanted)
      : buffer(destination), cells(std::move(shown)), texts(cells.size()), settings(wanted) {}

  void Begin() override {
    for (size_t i = 0; i < cells.size(); ++i) texts[i] = cells[i].title;
    WriteLine(kBold);
  }

  void Write(const Exchange& exchange) override {
    for (size_t i = 0; i < cells.size(); ++i) {
      const Cell& cell = cells[i];
      texts[i] = cell.text != nullptr ? cell.text(exchange) : FieldText(*cell.column, exchange);
    }
    WriteLine(Colour(exchange));
  }

 private:
  void WriteLine(std::string_view colour) {
    for (size_t i = 0; i < cells.size(); ++i) {
      cells[i].width = std::max(cells[i].width, std::min(texts[i].size(), cells[i].most));
    }
    if (settings.width > 0) FitWidths();
    line.clear();
    for (size_t i = 0; i < cells.size(); ++i) Append(cells[i], &texts[i]);
    if (settings.width > 0) Shorten(&line, settings.width);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    if (settings.colours && !colour.empty()) line.insert(0, colour).append(kPlain);
    buffer->Write(line + "\n");
  }

  // What is behind names and addresses stays in sight, however these have grown.
  void FitWidths() {
    Narrow(Kind::kName, 1);
    Narrow(Kind::kAddress, 1);
    Narrow(Kind::kName, 0);
  }

  // Takes what the line is too long by from the cells of a kind, servers before clients: down to their usual
  // widths, times `floor`.
  void Narrow(Kind kind, size_t floor) {
    size_t total = cells.size() - 1;
    for (const Cell& cell : cells) total += cell.width;
    for (size_t i = cells.size(); i-- > 0;) {
      Cell& cell = cells[i];
      if (cell.kind != kind || total <= settings.width) continue;
      const size_t spare = cell.width - std::min(cell.width, cell.usual * floor);
      const size_t taken = std::min(total - settings.width, spare);
      cell.width -= taken;
      total -= taken;
    }
  }

  void Append(const Cell& cell, std::string* text) {
    if (settings.width > 0 && cell.kind == Kind::kAddress) CutMiddle(text, cell.width);
    if (settings.width > 0 && cell.kind != Kind::kRest) Shorten(text, cell.width);
    const size_t padding = cell.width - std::min(cell.width, text->size());
    if (&cell != &cells.front()) line += ' ';
    if (cell.kind == Kind::kNumber) line.append(padding, ' ');
    line += *text;
    if (cell.kind != Kind::kNumber && cell.kind != Kind::kRest) line.append(padding, ' ');
  }

  Buffer* buffer;
  std::vector<Cell> cells;
  std::vector<std::string> texts;  // of the line at hand
  TableSettings settings;
  std::string line;
};

}  // namespace

std::unique_ptr<RecordWriter> MakeTableWriter(Buffer* buffer, const ColumnList& columns,
                                              const TableSettings& settings) {
  std::vector<Cell> cells = columns.empty() ? UsualCells(settings.width) : ChosenCells(columns);
  return std::make_unique<TableWriter>(buffer, std::move(cells), settings);
}

}  // namespace output
