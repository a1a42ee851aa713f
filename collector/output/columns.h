#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "collector/output/text.h"
#include "collector/plugin/exchange.h"

namespace output {

enum class ColumnType : uint8_t { kInteger, kText, kBoolean };

// One field of a record. docs/records.md describes them in the same order.
struct Column {
  std::string_view name;

  // Writes the value and returns its end: the plain text, or a JSON value. Returns `out` itself, having written
  // nothing, when the field is absent.
  char* (*write)(char* out, const plugin::Exchange& exchange, Style style);

  ColumnType type;
  bool always;           // present in every record
  bool details = false;  // told by the parser only if it is asked to (ExchangeListener::WantsDetails)
};

// All of them in the order of the records. Names never change and new ones come last.
std::span<const Column> AllColumns();

// Null when there is none of that name.
const Column* FindColumn(std::string_view name);

using ColumnList = std::vector<const Column*>;

// What to say of a name that FindColumn does not know; lists those that there are.
std::string UnknownColumn(std::string_view name);

// The columns of a list "a,b,c". Throws std::runtime_error that names what is no column, or is there twice.
ColumnList ParseColumns(std::string_view list);

// Every column, for writers that show all.
ColumnList EveryColumn();

// Whether one of them shows details.
bool LookAtDetails(const ColumnList& columns);

// Room that all the columns of this exchange and their names together fit in, in any style and once per column.
size_t RoomFor(const plugin::Exchange& exchange);

// The plain text of one field, "" when it is absent.
std::string FieldText(const Column& column, const plugin::Exchange& exchange);

}  // namespace output
