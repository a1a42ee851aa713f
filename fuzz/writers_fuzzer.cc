// What is written from any exchange reads back: JSON, CSV, tables, the passive DNS list, the summary and the
// account.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "collector/output/account.h"
#include "collector/output/columns.h"
#include "collector/output/passive_dns.h"
#include "collector/output/record_writer.h"
#include "collector/output/summary.h"
#include "fuzz/draw.h"
#include "fuzz/drawn_exchange.h"
#include "fuzz/target.h"

namespace fuzz {
namespace {

// What `write` puts into a small buffer, through a file in memory that is used again.
template <typename Write>
std::string WrittenBy(Write write) {
  static const int descriptor = memfd_create("fuzz", MFD_CLOEXEC);
  if (descriptor < 0 || ftruncate(descriptor, 0) != 0) throw std::runtime_error("no file in memory");
  lseek(descriptor, 0, SEEK_SET);
  output::Buffer buffer(descriptor, "fuzz", 4096);
  write(&buffer);
  buffer.Close();
  Must(buffer.Good(), "a file in memory takes everything");
  std::string written(static_cast<size_t>(lseek(descriptor, 0, SEEK_END)), '\0');
  const ssize_t got = pread(descriptor, written.data(), written.size(), 0);
  Must(got == static_cast<ssize_t>(written.size()), "what was written can be read");
  return written;
}

void CheckPrintable(std::string_view text) {
  for (const char character : text) {
    Must((character >= 0x20 && character < 0x7f) || character == '\n', "output is printable ASCII");
  }
}

std::vector<std::string> LinesOf(const std::string& text) {
  CheckPrintable(text);
  Must(text.empty() || text.back() == '\n', "the last line has an end");
  std::vector<std::string> lines;
  for (size_t at = 0; at < text.size();) {
    const size_t end = text.find('\n', at);
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

// ---- formats -------------------------------------------------------------------------------------------------

void CheckJson(const plugin::Exchange& exchange) {
  const auto lines = LinesOf(WrittenBy([&](output::Buffer* buffer) {
    const auto writer = output::MakeJsonWriter(buffer, output::EveryColumn());
    writer->Begin();
    writer->Write(exchange);
  }));
  Must(lines.size() == 1, "a record is a line");
  const nlohmann::json record = nlohmann::json::parse(lines.front());
  size_t present = 0;
  for (const output::Column& column : output::AllColumns()) {
    const auto field = record.find(std::string(column.name));
    if (field == record.end()) {
      Must(!column.always, "fields that are always there are there");
      continue;
    }
    ++present;
    const std::string plain = output::FieldText(column, exchange);
    const bool same = field->is_string() ? field->get<std::string>() == plain : field->dump() == plain;
    Must(same, "a JSON field says what the plain one says");
    Must(field->is_number_integer() == (column.type == output::ColumnType::kInteger), "numbers are numbers");
    Must(field->is_boolean() == (column.type == output::ColumnType::kBoolean), "truths are truths");
  }
  Must(present == record.size(), "there is no other field");
}

// RFC 4180, without line breaks inside fields.
std::vector<std::string> CsvFields(const std::string& line) {
  std::vector<std::string> fields(1);
  bool quoted = false;
  for (size_t at = 0; at < line.size(); ++at) {
    if (line[at] == '"' && quoted && at + 1 < line.size() && line[at + 1] == '"') {
      fields.back() += line[++at];
    } else if (line[at] == '"') {
      quoted = !quoted;
    } else if (line[at] == ',' && !quoted) {
      fields.emplace_back();
    } else {
      fields.back() += line[at];
    }
  }
  Must(!quoted, "what is opened is closed");
  return fields;
}

void CheckCsv(const plugin::Exchange& exchange) {
  const auto lines = LinesOf(WrittenBy([&](output::Buffer* buffer) {
    const auto writer = output::MakeCsvWriter(buffer, output::EveryColumn());
    writer->Begin();
    writer->Write(exchange);
  }));
  Must(lines.size() == 2, "a record is a line below the header");
  const auto names = CsvFields(lines[0]);
  const auto fields = CsvFields(lines[1]);
  const auto columns = output::AllColumns();
  Must(names.size() == columns.size() && fields.size() == columns.size(), "there is a field for each column");
  for (size_t i = 0; i < columns.size(); ++i) {
    Must(names[i] == columns[i].name, "the header names the columns");
    Must(fields[i] == output::FieldText(columns[i], exchange), "a CSV field says what the plain one says");
  }
}

void CheckEcs(const plugin::Exchange& exchange) {
  const auto lines = LinesOf(WrittenBy([&](output::Buffer* buffer) {
    const auto writer = output::MakeEcsWriter(buffer);
    writer->Begin();
    writer->Write(exchange);
    writer->Finish();
  }));
  Must(lines.size() == 1, "a record is a line");
  Must(nlohmann::json::parse(lines.front()).is_object(), "a record is an object");
}

// A header of lines with "#" in front, records, and an end with "#" in front; tabs stand between fields only.
void CheckZeek(const plugin::Exchange& exchange) {
  std::string text = WrittenBy([&](output::Buffer* buffer) {
    const auto writer = output::MakeZeekWriter(buffer);
    writer->Begin();
    writer->Write(exchange);
    writer->Finish();
  });
  std::ptrdiff_t names = -1;
  int records = 0;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    const auto tabs = std::count(line.begin(), line.end(), '\t');
    if (line.starts_with("#fields")) names = tabs;
    if (line.starts_with('#')) continue;
    ++records;
    Must(tabs + 1 == names, "there is a field for each name");
  }
  std::erase(text, '\t');
  CheckPrintable(text);
  Must(names > 0 && records == 1, "there is a record below the names");
}

void CheckTable(const plugin::Exchange& exchange, size_t width) {
  const auto lines = LinesOf(WrittenBy([&](output::Buffer* buffer) {
    for (const output::ColumnList& columns : {output::ColumnList{}, output::EveryColumn()}) {
      const auto writer = output::MakeTableWriter(buffer, columns, {width, false});
      writer->Begin();
      writer->Write(exchange);
    }
  }));
  Must(lines.size() == 4, "a record is a line below the header");
  for (const std::string& line : lines) Must(width == 0 || line.size() <= width, "a line fits the terminal");
}

void CheckPassiveDns(Draw* input) {
  output::PassiveDns list(4);
  for (int i = 0; i < 6 && !input->Empty(); ++i) {
    const std::string name(input->Text());
    const std::string question(input->Text());
    list.Add(input->Flag() ? nullptr : question.c_str(), name.c_str(), input->U32(), input->I64());
  }
  const auto lines = LinesOf(WrittenBy([&](output::Buffer* buffer) { WritePassiveDnsJson(list, buffer); }));
  Must(lines.size() == list.All().size(), "a mapping is a line");
  for (const std::string& line : lines) {
    const nlohmann::json mapping = nlohmann::json::parse(line);
    Must(mapping.contains("rrname") && mapping.contains("rdata"), "a mapping has a name and an address");
    Must(mapping["count"].get<uint64_t>() > 0, "a mapping was seen");
    Must(mapping["time_first"].get<int64_t>() <= mapping["time_last"].get<int64_t>(), "the first is not the last");
  }
  LinesOf(WrittenBy([&](output::Buffer* buffer) { WritePassiveDnsTable(list, buffer); }));
}

void CheckSummary(const output::Summary& summary) {
  LinesOf(summary.Text(10));
  const std::string json = summary.Json(10).dump();
  CheckPrintable(json);
  Must(nlohmann::json::parse(json).is_object(), "a summary is an object");
}

// The account quotes the plug-in's health line and names of interfaces.
void CheckAccountText(std::string_view health) {
  output::Account account;
  account.health = health;
  try {
    Must(nlohmann::json::parse(AccountJson(account).dump())["adds_up"] == true, "an empty account adds up");
  } catch (const nlohmann::json::type_error&) {  // a health line that is no UTF-8: the plug-in's are ASCII
  }
  CheckPrintable(AccountText(account));
}

void Run(Draw* input) {
  const size_t width = input->U8();
  CheckAccountText(input->Text());
  const uint8_t bits = input->U8();
  const int exchanges = 1 + bits % 4;
  // Large and slow to make: only now and then.
  const auto summary = (bits & 0x80) != 0 ? std::make_unique<output::Summary>() : nullptr;
  for (int i = 0; i < exchanges; ++i) {
    const DrawnExchange exchange(input);
    CheckJson(exchange);
    CheckCsv(exchange);
    CheckTable(exchange, width);
    CheckEcs(exchange);
    CheckZeek(exchange);
    if (summary != nullptr) summary->Add(exchange);
  }
  if (summary != nullptr) CheckSummary(*summary);
  CheckPassiveDns(input);
}

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  fuzz::Run(&input);
  return 0;
}
