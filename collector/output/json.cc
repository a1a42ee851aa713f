#include "collector/output/record_writer.h"

namespace output {
namespace {

// Keys are made once, with the comma in front and the colon behind.
struct Field {
  Word key;
  decltype(Column::write) write;
};

class JsonWriter : public RecordWriter {
 public:
  JsonWriter(Buffer* destination, const ColumnList& columns) : buffer(destination) {
    for (const Column* column : columns)
      fields.push_back({Word(",\"" + std::string(column->name) + "\":"), column->write});
  }

  void Write(const plugin::Exchange& exchange) override {
    char* const begin = buffer->Room(RoomFor(exchange));
    char* out = begin;
    for (const Field& field : fields) {
      char* const value = field.key.Put(out);
      char* const end = field.write(value, exchange, Style::kJson);
      if (end != value) out = end;
    }
    if (out == begin) ++out;  // every field is absent
    *begin = '{';             // in place of the first comma
    buffer->Commit(PutText(out, "}\n"));
  }

 private:
  Buffer* buffer;
  std::vector<Field> fields;
};

}  // namespace

std::unique_ptr<RecordWriter> MakeJsonWriter(Buffer* buffer, const ColumnList& columns) {
  return std::make_unique<JsonWriter>(buffer, columns);
}

}  // namespace output
