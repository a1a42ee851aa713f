#include "collector/report/html.h"

#include <algorithm>
#include <set>
#include <stdexcept>

#include "collector/output/text.h"

namespace report {
namespace {

// Characters that show nothing themselves: controls, marks of direction (UAX 9), separators, the byte order mark.
constexpr std::pair<uint32_t, uint32_t> kInvisible[] = {{0x00, 0x1f},     {0x7f, 0x9f},     {0x61c, 0x61c},
                                                        {0x200b, 0x200f}, {0x2028, 0x202e}, {0x2060, 0x206f},
                                                        {0xfeff, 0xfeff}, {0xfff0, 0xfffb}, {0xe0000, 0xe007f}};

bool IsInvisible(uint32_t character) {
  return std::any_of(std::begin(kInvisible), std::end(kInvisible),
                     [&](const auto& range) { return character >= range.first && character <= range.second; });
}

struct Character {
  uint32_t code = 0;
  size_t bytes = 0;  // 0 for what is no UTF-8
};

// The first character of a text that is not empty (RFC 3629 4).
Character Decode(std::string_view text) {
  const auto lead = static_cast<uint8_t>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const size_t bytes = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
  constexpr uint32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  if (lead < 0xc2 || lead > 0xf4 || text.size() < bytes) return {};
  uint32_t code = lead & (0x7fU >> bytes);
  for (size_t i = 1; i < bytes; ++i) {
    const auto next = static_cast<uint8_t>(text[i]);
    if ((next & 0xc0) != 0x80) return {};
    code = code << 6 | (next & 0x3f);
  }
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  return code < kLeast[bytes] || surrogate || code > 0x10ffff ? Character{} : Character{code, bytes};
}

std::string_view Entity(char character) {
  switch (character) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '"':
      return "&quot;";
    case '\'':
      return "&#39;";
    default:
      return {};
  }
}

void AppendDecimal(std::string_view bytes, std::string* out) {
  for (const char byte : bytes) {
    char text[4] = {'\\'};
    output::PutPadded(text + 1, static_cast<uint8_t>(byte), 3);
    out->append(text, sizeof text);
  }
}

}  // namespace

std::string Escaped(std::string_view text) {
  std::string html;
  while (!text.empty()) {
    const Character character = Decode(text);
    const std::string_view bytes = text.substr(0, std::max<size_t>(character.bytes, 1));
    if (character.bytes == 0 || IsInvisible(character.code)) {
      AppendDecimal(bytes, &html);
    } else {
      const std::string_view entity = Entity(bytes[0]);
      html += entity.empty() ? bytes : entity;
    }
    text.remove_prefix(bytes.size());
  }
  return html;
}

void Table::Row(const std::vector<Cell>& cells, std::string_view attributes) {
  body.append("<tr").append(attributes).append(">");
  for (size_t i = 0; i < cells.size(); ++i) {
    body += i == 0 ? "<th scope=\"row\"" : "<td";
    if (columns[i].align == Align::kNumber) {
      body += " class=\"n\"";
    } else if (!columns[i].css_class.empty()) {
      body.append(" class=\"").append(columns[i].css_class).append("\"");
    }
    if (!cells[i].sort_by.empty()) body.append(" data-v=\"").append(cells[i].sort_by).append("\"");
    body.append(">").append(cells[i].html).append(i == 0 ? "</th>" : "</td>");
  }
  body += "</tr>\n";
}

std::string Table::Html(std::string_view attributes) const {
  std::string html = "<table";
  html.append(attributes).append("><caption>").append(Escaped(about)).append("</caption><thead><tr>");
  for (const Column& column : columns) {
    html += column.align == Align::kNumber ? R"(<th scope="col" class="n">)" : R"(<th scope="col">)";
    html.append(Escaped(column.title)).append("</th>");
  }
  return html + "</tr></thead><tbody>\n" + body + "</tbody></table>";
}

std::string Filled(std::string_view page, const std::vector<std::pair<std::string_view, std::string>>& values) {
  std::string html;
  std::set<std::string_view> used;
  while (true) {
    const size_t begin = page.find("{{");
    html += page.substr(0, begin);
    if (begin == std::string_view::npos) break;
    page.remove_prefix(begin + 2);
    const size_t end = page.find("}}");
    const std::string_view name = page.substr(0, end);
    const auto value = std::find_if(values.begin(), values.end(), [&](const auto& v) { return v.first == name; });
    if (end == std::string_view::npos || value == values.end()) {
      throw std::logic_error("the page has no value for '" + std::string(name.substr(0, 40)) + "'");
    }
    html += value->second;
    used.insert(name);
    page.remove_prefix(end + 2);
  }
  for (const auto& [name, value] : values) {
    if (!used.contains(name)) throw std::logic_error("the page has no place for '" + std::string(name) + "'");
  }
  return html;
}

}  // namespace report
