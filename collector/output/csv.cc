#include <algorithm>

#include "collector/output/record_writer.h"

namespace output {
namespace {

bool NeedsQuotes(char character) { return character == ',' || character == '"'; }

// Puts the text between `begin` and `end` in quotes, doubling those inside, where it holds a comma or a quote. The
// last character goes first to where it will be, so that none is overwritten before its turn.
char* QuoteText(char* begin, char* end) {
  if (std::none_of(begin, end, NeedsQuotes)) return end;
  char* const quoted_end = end + std::count(begin, end, '"') + 2;
  char* out = quoted_end;
  *--out = '"';
  for (const char* at = end; at != begin;) {
    *--out = *--at;
    if (*at == '"') *--out = '"';
  }
  *begin = '"';
  return quoted_end;
}

class CsvWriter : public RecordWriter {
 public:
  CsvWriter(Buffer* destination, ColumnList list) : buffer(destination), columns(std::move(list)) {}

  void Begin() override {
    std::string line;
    for (const Column* column : columns) line.append(line.empty() ? "" : ",").append(column->name);
    buffer->Write(line + "\n");
  }

  void Write(const plugin::Exchange& exchange) override {
    char* out = buffer->Room(RoomFor(exchange));
    for (const Column* column : columns) {
      char* const end = column->write(out, exchange, Style::kPlain);
      out = column->type == ColumnType::kText ? QuoteText(out, end) : end;
      *out++ = ',';
    }
    out[-1] = '\n';
    buffer->Commit(out);
  }

 private:
  Buffer* buffer;
  ColumnList columns;
};

}  // namespace

std::unique_ptr<RecordWriter> MakeCsvWriter(Buffer* buffer, const ColumnList& columns) {
  return std::make_unique<CsvWriter>(buffer, columns);
}

}  // namespace output
