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

// One column of the table. Widths grow with what was shown, up to `most`, so that lines need not wait for others.
struct Cell {
  std::string title;
  size_t width;
  size_t most;
  bool right;
  std::string (*text)(const Exchange&);
  const Column* column;  // where `text` is null
};

std::vector<Cell> UsualCells() {
  return {
      {"TIME (UTC)", 26, 26, false, [](const Exchange& e) { return TimeText(e.query_time_ns); }, nullptr},
      {"CLIENT", 21, 47, false, [](const Exchange& e) { return Endpoint(e.client, e.client_port); }, nullptr},
      {"SERVER", 18, 47, false, [](const Exchange& e) { return Endpoint(e.server, e.server_port); }, nullptr},
      {"VIA", 3, 3, false, [](const Exchange& e) { return std::string(e.transport == 17 ? "udp" : "tcp"); },
       nullptr},
      {"NAME", 24, 48, false, Names, nullptr},
      {"TYPE", 6, 12, false, Types, nullptr},
      {"RESULT", 8, 10, false, Result, nullptr},
      {"MS", 8, 12, true, Milliseconds, nullptr},
      {"ANSWERS", 0, 0, false, [](const Exchange& e) { return Printable(e.answers); }, nullptr},
  };
}

std::vector<Cell> ChosenCells(const ColumnList& columns) {
  std::vector<Cell> cells;
  for (const Column* column : columns) {
    const bool right = column->type == ColumnType::kInteger;
    cells.push_back({std::string(column->name), column->name.size(), 48, right, nullptr, column});
  }
  if (!cells.empty() && !cells.back().right) cells.back().width = 0;
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

void Shorten(std::string* text, size_t most) {
  if (text->size() <= most) return;
  text->resize(most);
  for (size_t i = most - std::min<size_t>(most, 2); i < most; ++i) (*text)[i] = '.';
}

class TableWriter : public RecordWriter {
 public:
  TableWriter(Buffer* destination, std::vector<Cell> shown, const TableSettings& wanted)
      : buffer(destination), cells(std::move(shown)), settings(wanted) {}

  void Begin() override {
    line.clear();
    for (size_t i = 0; i < cells.size(); ++i) Append(i, cells[i].title);
    End(kBold);
  }

  void Write(const Exchange& exchange) override {
    line.clear();
    for (size_t i = 0; i < cells.size(); ++i) {
      const Cell& cell = cells[i];
      Append(i, cell.text != nullptr ? cell.text(exchange) : FieldText(*cell.column, exchange));
    }
    End(Colour(exchange));
  }

 private:
  void Append(size_t index, std::string text) {
    Cell& cell = cells[index];
    const bool last = index + 1 == cells.size();
    if (settings.width > 0 && cell.most > 0 && !last) Shorten(&text, cell.most);
    cell.width = std::max(cell.width, std::min(text.size(), cell.most));
    const size_t padding = cell.width - std::min(cell.width, text.size());
    if (index > 0) line += ' ';
    if (cell.right) line.append(padding, ' ');
    line += text;
    if (!cell.right && !last) line.append(padding, ' ');
  }

  void End(std::string_view colour) {
    if (settings.width > 0) Shorten(&line, settings.width);
    while (!line.empty() && line.back() == ' ') line.pop_back();
    if (settings.colours && !colour.empty()) line.insert(0, colour).append(kPlain);
    buffer->Write(line + "\n");
  }

  Buffer* buffer;
  std::vector<Cell> cells;
  TableSettings settings;
  std::string line;
};

}  // namespace

std::unique_ptr<RecordWriter> MakeTableWriter(Buffer* buffer, const ColumnList& columns,
                                              const TableSettings& settings) {
  std::vector<Cell> cells = columns.empty() ? UsualCells() : ChosenCells(columns);
  return std::make_unique<TableWriter>(buffer, std::move(cells), settings);
}

}  // namespace output
