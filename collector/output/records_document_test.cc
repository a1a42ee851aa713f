#include <doctest/doctest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>

#include "collector/output/columns.h"
#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/output/written_for_tests.h"

// docs/records.md and docs/records.schema.json say what the writers do.
namespace output {
namespace {

using nlohmann::json;

std::string Content(const char* path) {
  std::ifstream file(path);
  REQUIRE_MESSAGE(file, path);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

json Schema() { return json::parse(Content("docs/records.schema.json")); }

bool IsOfType(const json& value, const std::string& type) {
  if (type == "integer") return value.is_number_integer();
  if (type == "boolean") return value.is_boolean();
  return type == "string" && value.is_string();
}

// The first thing in the record that the schema does not allow, or "". Knows the keywords that the schema uses.
std::string Violation(const json& schema, const json& record) {
  for (const auto& [name, value] : record.items()) {
    if (!schema["properties"].contains(name)) return "unknown " + name;
    const json& property = schema["properties"][name];
    if (!IsOfType(value, property["type"])) return "type of " + name;
    if (property.contains("minimum") && value < property["minimum"]) return "minimum of " + name;
    if (property.contains("maximum") && value > property["maximum"]) return "maximum of " + name;
    if (property.contains("enum")) {
      const auto& allowed = property["enum"];
      if (std::find(allowed.begin(), allowed.end(), value) == allowed.end()) return "enum of " + name;
    }
    if (property.contains("pattern") &&
        !std::regex_search(value.get<std::string>(), std::regex(property["pattern"].get<std::string>()))) {
      return "pattern of " + name;
    }
  }
  for (const auto& name : schema["required"]) {
    if (!record.contains(name)) return "missing " + name.get<std::string>();
  }
  return "";
}

json Written(const plugin::Exchange& exchange) {
  return json::parse(WrittenBy([&](Buffer* buffer) { MakeJsonWriter(buffer, EveryColumn())->Write(exchange); }));
}

TEST_CASE("the schema knows each column with its type, and no other") {
  const json schema = Schema();
  std::set<std::string> required(schema["required"].begin(), schema["required"].end());
  CHECK(schema["additionalProperties"] == false);
  CHECK(schema["properties"].size() == AllColumns().size());
  for (const Column& column : AllColumns()) {
    const std::string name(column.name);
    CAPTURE(name);
    REQUIRE(schema["properties"].contains(name));
    static constexpr const char* kTypes[] = {"integer", "string", "boolean"};
    CHECK(schema["properties"][name]["type"] == kTypes[static_cast<size_t>(column.type)]);
    CHECK(required.contains(name) == column.always);
  }
}

TEST_CASE("the document lists each column, in order, and says which may be absent") {
  std::istringstream lines(Content("docs/records.md"));
  std::vector<std::string> rows;
  for (std::string line; std::getline(lines, line) && line != "## Status";) {
    if (line.starts_with("| `")) rows.push_back(line);
  }
  REQUIRE(rows.size() == AllColumns().size());
  for (size_t i = 0; i < rows.size(); ++i) {
    const Column& column = AllColumns()[i];
    static constexpr const char* kTypes[] = {"integer", "text", "true or false"};
    const std::string head =
        "| `" + std::string(column.name) + "` | " + kTypes[static_cast<size_t>(column.type)] + " |";
    CAPTURE(rows[i]);
    CHECK(rows[i].starts_with(head));
    CHECK((rows[i].find("absent") == std::string::npos) == column.always);
  }
}

TEST_CASE("records of every kind fulfil the schema") {
  const json schema = Schema();
  ExchangeForTests answered, expired, open, malformed, strange;
  expired.TimeOut();
  open.TimeOut();
  open.status = plugin::Status::kOpen;
  malformed.status = plugin::Status::kMalformed;
  malformed.result_code = -2;
  strange.Ask(Question("\033.\\.\"", 54, 77) + Question("", 65535, 65535));
  strange.question_cut = strange.cut = strange.question_mismatch = true;
  strange.answers = "\n\xff\"\\";
  strange.client_address = Ipv6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1});
  strange.query_flags = strange.response_flags = 0xffff;
  strange.rcode = 4095;
  strange.tags.vlan_count = 4;
  for (const plugin::Exchange* exchange :
       std::initializer_list<const plugin::Exchange*>{&answered, &expired, &open, &malformed, &strange}) {
    CHECK(Violation(schema, Written(*exchange)) == "");
  }
  for (int tunnel = 1; tunnel <= static_cast<int>(packet::Tunnel::kOther); ++tunnel) {
    strange.tags.tunnel = static_cast<packet::Tunnel>(tunnel);
    CHECK(Violation(schema, Written(strange)) == "");
  }
}

TEST_CASE("the schema refuses what is no record") {
  const json schema = Schema();
  const json good = Written(ExchangeForTests());
  const auto violation = [&](const char* name, const json& value) {
    json record = good;
    record[name] = value;
    return Violation(schema, record);
  };
  CHECK(violation("colour", "red") == "unknown colour");
  CHECK(violation("ts_us", "now") == "type of ts_us");
  CHECK(violation("client_port", 65536) == "maximum of client_port");
  CHECK(violation("rrsigs", -1) == "minimum of rrsigs");
  CHECK(violation("status", "lost") == "enum of status");
  CHECK(violation("qname", "a\033b") == "pattern of qname");
  CHECK(violation("flags", "rd  ad") == "pattern of flags");
  json record = good;
  record.erase("qname");
  CHECK(Violation(schema, record) == "missing qname");
}

}  // namespace
}  // namespace output
