#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace report {

// A text as it may stand between tags and inside quoted attributes, whatever its bytes are. Valid UTF-8 stays;
// bytes that are none become "\DDD" (decimal), and so do characters that have no shape of their own but change how
// others are shown: controls, line and paragraph separators, marks of writing direction.
std::string Escaped(std::string_view text);

// Rows under headings, as HTML. Scripts sort by data-v, which numbers carry beside their text.
class Table {
 public:
  enum class Align : uint8_t { kText, kNumber };
  struct Column {
    std::string_view title;
    Align align = Align::kNumber;
    std::string_view css_class = {};  // of all its cells
  };
  struct Cell {
    std::string html;
    std::string sort_by = {};
  };

  // The caption tells people who do not see the page what the table holds.
  Table(std::string_view caption, std::vector<Column> columns_of_table)
      : columns(std::move(columns_of_table)), about(caption) {}

  // The first cell names the row. `attributes` are put into the row's tag as they are.
  void Row(const std::vector<Cell>& cells, std::string_view attributes = {});

  bool empty() const { return body.empty(); }

  // `attributes` are put into the table's tag as they are.
  std::string Html(std::string_view attributes = {}) const;

 private:
  std::vector<Column> columns;
  std::string_view about;
  std::string body;
};

// A page with the values in the places of their names in double braces. Every name of the page must have a value
// and every value a place: anything else is a mistake of ours and throws std::logic_error. Values are not searched
// for names.
std::string Filled(std::string_view page, const std::vector<std::pair<std::string_view, std::string>>& values);

}  // namespace report
