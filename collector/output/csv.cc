#include <algorithm>

#include "collector/output/record_writer.h"

namespace output {
namespace {

bool NeedsQuotes(char character) { return character == ',' || character == '"'; }

// Puts the field between `begin` and `end` in quotes, doubling those inside, where it holds a comma or a quote.
char* QuoteField(char* begin, char* end) {
  if (std::none_of(begin, end, NeedsQuotes)) return end;
  const std::string plain(begin, end);
  char* out = begin;
  *out++ = '"';
  for (const char character : plain) {
    if (character == '"') *out++ = '"';
    *out++ = character;
  }
  *out++ = '"';
  return out;
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
      out = QuoteField(out, column->write(out, exchange, Style::kPlain));
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
