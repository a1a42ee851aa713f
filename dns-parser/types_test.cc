#include "dns-parser/types.h"

#include <doctest/doctest.h>

#include <climits>
#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace {

struct Row {
  int code;
  std::string name;
  std::string description = {};  // empty: none
};

// What consumers of the tables see, in order.
const std::vector<Row>& Types() {
  static const std::vector<Row> rows = {
      {1, "A", "IPv4 address lookup"},
      {2, "NS", "Authoritative name server"},
      {3, "MD"},
      {4, "MF"},
      {5, "CNAME", "Alias"},
      {6, "SOA", "Start of authority"},
      {7, "MB"},
      {8, "MG"},
      {9, "MR"},
      {10, "NULL"},
      {11, "WKS"},
      {12, "PTR", "Reverse lookup"},
      {14, "HINFO"},
      {14, "MINFO"},
      {15, "MX", "Mail exchanger"},
      {16, "TXT", "Text record"},
      {17, "RP"},
      {18, "AFSDB"},
      {24, "SIG"},
      {25, "KEY"},
      {28, "AAAA", "IPv6 address lookup"},
      {29, "LOC", "Location record"},
      {33, "SRV", "Service locator"},
      {35, "NAPTR"},
      {36, "KX"},
      {37, "CERT"},
      {39, "DNAME"},
      {41, "OPT"},
      {42, "APL"},
      {43, "DS"},
      {44, "SSHFP"},
      {45, "IPSECKEY"},
      {46, "RRSIG"},
      {47, "NSEC"},
      {48, "DNSKEY"},
      {49, "DHCID"},
      {50, "NSEC3"},
      {51, "NSEC3PARAM"},
      {55, "HIP"},
      {99, "SPF", "Sender policy framework"},
      {249, "TKEY"},
      {250, "TSIG"},
      {251, "IXFR", "Incremental zone transfer"},
      {252, "AXFR", "Zone transfer"},
      {253, "MAILB"},
      {254, "MAILA"},
      {255, "ANY"},
      {32768, "TA"},
      {32769, "DLV"},
  };
  return rows;
}

const std::vector<Row>& Classes() {
  static const std::vector<Row> rows = {{1, "IN"}, {2, "CS"}, {3, "CH"}, {4, "HS"}, {254, "NONE"}, {255, "*"}};
  return rows;
}

void CheckTable(const DnsTableEntry* table, const std::vector<Row>& rows) {
  for (const Row& row : rows) {
    CAPTURE(row.name);
    CHECK(table->code == row.code);
    REQUIRE(table->name != nullptr);
    CHECK(table->name == row.name);
    CHECK((table->description == nullptr) == row.description.empty());
    if (table->description != nullptr) CHECK(table->description == row.description);
    ++table;
  }
  CHECK(table->code == 0);
  CHECK(table->name == nullptr);
  CHECK(table->description == nullptr);
}

std::string Unknown(int code) { return "UNKNOWN/" + std::to_string(code); }

// The first row of each code.
std::vector<Row> FirstRows(const std::vector<Row>& rows) {
  std::vector<Row> first;
  std::set<int> seen;
  for (const Row& row : rows) {
    if (seen.insert(row.code).second) first.push_back(row);
  }
  return first;
}

void CheckLookups(const DnsTableEntry* table, const std::vector<Row>& rows) {
  std::set<int> known;
  for (const Row& row : FirstRows(rows)) {
    CHECK(dns_lookup_name(table, row.code) == row.name);
    CHECK(dns_lookup_description(table, row.code) ==
          (row.description.empty() ? row.name : row.name + " - " + row.description));
    known.insert(row.code);
  }
  for (int code = 0; code <= 0xffff; ++code) {
    if (known.contains(code)) continue;
    if (dns_lookup_name(table, code) != Unknown(code)) FAIL("name of " << code);
    if (dns_lookup_description(table, code) != Unknown(code)) FAIL("description of " << code);
  }
}

}  // namespace

TEST_CASE("the table of types has its 49 rows in order, then the end") {
  REQUIRE(Types().size() == 49);
  REQUIRE(std::size(dns_types) == 50);
  CheckTable(dns_types, Types());
}

TEST_CASE("the table of classes has its 6 rows in order, none described, then the end") {
  REQUIRE(Classes().size() == 6);
  REQUIRE(std::size(dns_classes) == 7);
  CheckTable(dns_classes, Classes());
}

TEST_CASE("every type is looked up, every other code is UNKNOWN with its number") {
  CheckLookups(dns_types, Types());
}

TEST_CASE("every class is looked up, every other code is UNKNOWN with its number") {
  CheckLookups(dns_classes, Classes());
}

TEST_CASE("the codes that have names of their own have those names") {
  CHECK(kClassIn == 1);
  const std::vector<Row> named = {{kTypeA, "A"},      {kTypeNs, "NS"},   {kTypeCname, "CNAME"},
                                  {kTypeSoa, "SOA"},  {kTypePtr, "PTR"}, {kTypeHinfoAsTabled, "HINFO"},
                                  {kTypeMx, "MX"},    {kTypeTxt, "TXT"}, {kTypeAaaa, "AAAA"},
                                  {kTypeSrv, "SRV"},  {kTypeOpt, "OPT"}, {kTypeRrsig, "RRSIG"},
                                  {kTypeAxfr, "AXFR"}};
  for (const Row& row : named) CHECK(dns_lookup_name(dns_types, row.code) == row.name);
}

TEST_CASE("14 prints HINFO and 13 prints UNKNOWN/13 on purpose") {
  CHECK(std::string(dns_lookup_name(dns_types, 14)) == "HINFO");
  CHECK(std::string(dns_lookup_description(dns_types, 14)) == "HINFO");
  CHECK(std::string(dns_lookup_name(dns_types, 13)) == "UNKNOWN/13");
  CHECK(std::string(dns_lookup_description(dns_types, 13)) == "UNKNOWN/13");
}

TEST_CASE("no code is looked up as MINFO") {
  for (int code = 0; code <= 0xffff; ++code) {
    if (std::strcmp(dns_lookup_name(dns_types, code), "MINFO") == 0) FAIL("MINFO is " << code);
  }
}

TEST_CASE("a description is put behind the name, and a row without one is its name") {
  CHECK(std::string(dns_lookup_description(dns_types, 5)) == "CNAME - Alias");
  CHECK(std::string(dns_lookup_description(dns_types, 2)) == "NS - Authoritative name server");
  CHECK(std::string(dns_lookup_description(dns_types, 251)) == "IXFR - Incremental zone transfer");
  CHECK(std::string(dns_lookup_description(dns_types, 41)) == "OPT");
}

TEST_CASE("the end of a table is no row for code 0") {
  CHECK(std::string(dns_lookup_name(dns_classes, 0)) == "UNKNOWN/0");
  CHECK(std::string(dns_lookup_name(dns_types, 0)) == "UNKNOWN/0");
  CHECK(std::string(dns_lookup_description(dns_types, 0)) == "UNKNOWN/0");
}

TEST_CASE("a row is whatever has a name, and the end whatever has none") {
  const DnsTableEntry table[] = {{0, "ZERO", nullptr}, {5, "FIVE", "a number"}, {7, nullptr, "seven"}};
  CHECK(std::string(dns_lookup_name(table, 0)) == "ZERO");
  CHECK(std::string(dns_lookup_description(table, 0)) == "ZERO");
  CHECK(std::string(dns_lookup_name(table, 5)) == "FIVE");
  CHECK(std::string(dns_lookup_name(table, 7)) == "UNKNOWN/7");
  CHECK(std::string(dns_lookup_description(table, 7)) == "UNKNOWN/7");
}

TEST_CASE("in an empty table every code is unknown") {
  const DnsTableEntry table[] = {{0, nullptr, nullptr}};
  CHECK(std::string(dns_lookup_name(table, 1)) == "UNKNOWN/1");
  CHECK(std::string(dns_lookup_description(table, 1)) == "UNKNOWN/1");
}

TEST_CASE("the first row with a code wins, whatever the order of the codes") {
  const DnsTableEntry table[] = {
      {9, "LATE", nullptr}, {3, "FIRST", nullptr}, {3, "SECOND", "hidden"}, {0, nullptr, nullptr}};
  CHECK(std::string(dns_lookup_name(table, 3)) == "FIRST");
  CHECK(std::string(dns_lookup_description(table, 3)) == "FIRST");
  CHECK(std::string(dns_lookup_name(table, 9)) == "LATE");
}

TEST_CASE("unknown codes are shown with their sign") {
  CHECK(std::string(dns_lookup_name(dns_types, -1)) == "UNKNOWN/-1");
  CHECK(std::string(dns_lookup_name(dns_types, INT_MIN)) == "UNKNOWN/-2147483648");
  CHECK(std::string(dns_lookup_description(dns_types, INT_MIN)) == "UNKNOWN/-2147483648");
}

TEST_CASE("what needs no formatting is the table's own text") {
  CHECK(dns_lookup_name(dns_types, 1) == dns_types[0].name);
  CHECK(dns_lookup_name(dns_types, 14) == dns_types[12].name);
  CHECK(dns_lookup_description(dns_types, 3) == dns_types[2].name);
}

TEST_CASE("a second unknown name overwrites the first on purpose") {
  const char* first = dns_lookup_name(dns_classes, 4000);
  const char* second = dns_lookup_name(dns_types, 3000);
  CHECK(first == second);
  CHECK(std::string(first) == "UNKNOWN/3000");
}

TEST_CASE("a second description overwrites the first on purpose, known or not") {
  const char* known = dns_lookup_description(dns_types, 1);
  const char* unknown = dns_lookup_description(dns_types, 3000);
  CHECK(known == unknown);
  CHECK(std::string(known) == "UNKNOWN/3000");
  CHECK(dns_lookup_description(dns_types, 5) == known);
  CHECK(std::string(unknown) == "CNAME - Alias");
}

TEST_CASE("names and descriptions do not overwrite each other") {
  const char* name = dns_lookup_name(dns_types, 3000);
  const char* description = dns_lookup_description(dns_types, 4000);
  CHECK(std::string(name) == "UNKNOWN/3000");
  dns_lookup_name(dns_types, 5000);
  CHECK(std::string(description) == "UNKNOWN/4000");
}

TEST_CASE("a known name overwrites nothing") {
  const char* unknown = dns_lookup_name(dns_types, 3000);
  dns_lookup_name(dns_types, 1);
  CHECK(std::string(unknown) == "UNKNOWN/3000");
}

TEST_CASE("a description is cut at 63 characters") {
  const std::string longest(100, 'd');
  const DnsTableEntry table[] = {{1, "NAME", longest.c_str()}, {0, nullptr, nullptr}};
  CHECK(dns_lookup_description(table, 1) == "NAME - " + std::string(56, 'd'));
}
