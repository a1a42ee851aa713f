#pragma once

#include <memory>
#include <string>

#include "collector/output/buffer.h"
#include "collector/output/columns.h"

namespace output {

enum class Format : uint8_t { kTable, kJson, kCsv };

// How the table for people looks.
struct TableSettings {
  size_t width = 0;  // of the terminal; 0 for lines of any length
  bool colours = false;
};

// Writes exchanges in one format. Lines end in "\n" and hold printable ASCII only, whatever the names in the
// packets are made of.
class RecordWriter {
 public:
  virtual ~RecordWriter() = default;

  // What comes before the first record, if anything.
  virtual void Begin() {}
  virtual void Write(const plugin::Exchange& exchange) = 0;

  // What comes behind the last record, if anything.
  virtual void Finish() {}
};

// One flat JSON object a line (RFC 8259), without the fields that are absent.
std::unique_ptr<RecordWriter> MakeJsonWriter(Buffer* buffer, const ColumnList& columns);

// A header line, then one line a record; values with commas or quotes stand in quotes (RFC 4180).
std::unique_ptr<RecordWriter> MakeCsvWriter(Buffer* buffer, const ColumnList& columns);

// One nested JSON object a line, with the field names of the Elastic Common Schema and, under "dnspair", what that
// has no name for. Fields that the exchange does not know are absent.
std::unique_ptr<RecordWriter> MakeEcsWriter(Buffer* buffer);

// The lines of Zeek's dns.log, its header and its end included: fields separated by tabs, "-" for what the exchange
// does not know, "\xHH" for bytes that are not printable ASCII.
std::unique_ptr<RecordWriter> MakeZeekWriter(Buffer* buffer);

// Columns for people. An empty list shows what people want to see first.
std::unique_ptr<RecordWriter> MakeTableWriter(Buffer* buffer, const ColumnList& columns,
                                              const TableSettings& settings);

}  // namespace output
