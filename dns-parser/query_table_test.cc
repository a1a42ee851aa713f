#include "dns-parser/query_table.h"

#include <doctest/doctest.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/pairing.h"

using namespace test;

// The order of the open-query table, which heartbeats walk.

namespace {

DnsQueryID Key(const ParserFlow& flow, uint16_t qid = 7) { return {flow, qid}; }

// A key in the middle of every member's range.
DnsQueryID Middle() {
  DnsQueryID key;
  key.flow.local_ipv4 = 0x80000000;
  key.flow.remote_ipv4 = 0x80000000;
  key.flow.local_port = 0x8000;
  key.flow.remote_port = 0x8000;
  key.flow.transport = 0x80;
  key.qid = 0x8000;
  return key;
}

bool Less(const DnsQueryID& left, const DnsQueryID& right) { return std::less<DnsQueryID>()(left, right); }

// Both ways.
void CheckBefore(const DnsQueryID& left, const DnsQueryID& right) {
  CHECK(Less(left, right));
  CHECK_FALSE(Less(right, left));
}

bool SameKey(const DnsQueryID& left, const DnsQueryID& right) { return !Less(left, right) && !Less(right, left); }

// The members that order keys, most significant first: each adds to its own.
using Change = void (*)(DnsQueryID*, int);
const std::vector<Change> kMembers = {
    [](DnsQueryID* key, int by) { key->flow.local_ipv4 += static_cast<uint32_t>(by); },
    [](DnsQueryID* key, int by) { key->flow.remote_ipv4 += static_cast<uint32_t>(by); },
    [](DnsQueryID* key, int by) { key->flow.local_port = static_cast<uint16_t>(key->flow.local_port + by); },
    [](DnsQueryID* key, int by) { key->flow.remote_port = static_cast<uint16_t>(key->flow.remote_port + by); },
    [](DnsQueryID* key, int by) { key->flow.transport = static_cast<uint8_t>(key->flow.transport + by); },
    [](DnsQueryID* key, int by) { key->qid = static_cast<uint16_t>(key->qid + by); },
};

DnsQueryID Changed(size_t member, int by) {
  DnsQueryID key = Middle();
  kMembers.at(member)(&key, by);
  return key;
}

}  // namespace

TEST_CASE("each of six members orders keys") {
  for (size_t member = 0; member < kMembers.size(); ++member) {
    CAPTURE(member);
    CheckBefore(Middle(), Changed(member, 1));
    CheckBefore(Changed(member, -1), Middle());
  }
}

TEST_CASE("members are compared without a sign") {
  // From just below the middle of the range to just above it a signed number would fall.
  for (size_t member = 0; member < kMembers.size(); ++member) {
    CAPTURE(member);
    DnsQueryID highest = Middle();
    DnsQueryID lowest = Middle();
    const int half = member < 2 ? 0 : member == 4 ? 0x80 : 0x8000;
    if (half != 0) {
      kMembers.at(member)(&highest, half - 1);
      kMembers.at(member)(&lowest, -half);
    } else {
      (member == 0 ? highest.flow.local_ipv4 : highest.flow.remote_ipv4) = 0xffffffff;
      (member == 0 ? lowest.flow.local_ipv4 : lowest.flow.remote_ipv4) = 0;
    }
    CheckBefore(lowest, Middle());
    CheckBefore(Middle(), highest);
    CheckBefore(lowest, highest);
  }
}

TEST_CASE("the first member that differs decides") {
  for (size_t member = 0; member < kMembers.size(); ++member) {
    for (size_t later = member + 1; later < kMembers.size(); ++later) {
      CAPTURE(member);
      CAPTURE(later);
      DnsQueryID left = Middle();
      DnsQueryID right = Middle();
      kMembers[member](&right, 1);
      kMembers[later](&left, 1);
      CheckBefore(left, right);
    }
  }
}

TEST_CASE("all later members together do not outweigh an earlier one") {
  for (size_t member = 0; member < kMembers.size(); ++member) {
    CAPTURE(member);
    DnsQueryID left;
    DnsQueryID right;
    kMembers[member](&right, 1);
    for (size_t later = member + 1; later < kMembers.size(); ++later) kMembers[later](&left, -1);
    CheckBefore(left, right);
  }
}

TEST_CASE("addresses are compared as stored words, not octet by octet") {
  DnsQueryID left = Middle();
  DnsQueryID right = Middle();
  left.flow.local_ipv4 = FlowAddress(10, 0, 0, 1);
  right.flow.local_ipv4 = FlowAddress(9, 0, 0, 2);
  CHECK(Less(left, right) == (left.flow.local_ipv4 < right.flow.local_ipv4));
  if constexpr (std::endian::native == std::endian::little) CheckBefore(left, right);

  left = right = Middle();
  left.flow.remote_ipv4 = FlowAddress(10, 0, 0, 1);
  right.flow.remote_ipv4 = FlowAddress(9, 0, 0, 2);
  if constexpr (std::endian::native == std::endian::little) CheckBefore(left, right);
}

TEST_CASE("keys equal in the six members are the same key") {
  CHECK(SameKey(Middle(), Middle()));
  for (size_t member = 0; member < kMembers.size(); ++member) CHECK_FALSE(SameKey(Middle(), Changed(member, 1)));
}

TEST_CASE("the flow's other fields take no part") {
  DnsQueryID other = Middle();
  FillOtherFields(&other.flow);
  CHECK(SameKey(Middle(), other));
}

TEST_CASE("the sides of a flow are not interchangeable") {
  ParserFlow swapped = MakeFlow();
  std::swap(swapped.local_ipv4, swapped.remote_ipv4);
  std::swap(swapped.local_port, swapped.remote_port);
  CHECK_FALSE(SameKey(Key(MakeFlow()), Key(swapped)));
}

TEST_CASE("a query and a response pair by the six members") {
  for (size_t member = 0; member < kMembers.size(); ++member) {
    CAPTURE(member);
    Pairing bench;
    bench.Request(AQuery(7));
    DnsQueryID asked = Key(bench.flow);
    kMembers[member](&asked, 1);
    bench.flow = asked.flow;
    CHECK(bench.Response(AResponse(asked.qid)) == 1);
    CHECK(bench.parser.unsolicited_responses == 1);
    CHECK(bench.Open() == 1);
  }
}

TEST_CASE("a query and a response pair whatever the flow's other fields are") {
  Pairing bench;
  bench.Request(AQuery(7));
  FillOtherFields(&bench.flow);
  CHECK(bench.Response(AResponse(7)) == 1);
  CHECK(bench.Open() == 0);
  CHECK(bench.parser.unsolicited_responses == 0);
}

TEST_CASE("queries of one flow are told apart by their identifiers, in host byte order") {
  Pairing bench;
  for (const unsigned id : {0x0100U, 0x00ffU, 0xffffU, 0U}) bench.Request(AQuery(id));
  std::vector<unsigned> order;
  for (const auto& [key, query] : bench.parser.open_queries) order.push_back(key.qid);
  CHECK(order == std::vector<unsigned>{0, 0x00ff, 0x0100, 0xffff});
}

TEST_CASE("a key and a query that nobody filled in are empty") {
  CHECK(DnsQueryID().qid == 0);
  const DnsQuery query;
  CHECK(query.types.empty());
  CHECK(query.names.empty());
  CHECK(query.start_time.ticks == 0);
  CHECK(query.request_bytes == 0);
  CHECK(query.request_id == 0);
  CHECK_FALSE(query.dnssec_ok);
}

TEST_CASE("queries are copied member by member") {
  DnsQuery query;
  query.types = "types";
  query.names = std::string("a\0b", 3);
  query.start_time.ticks = 1;
  query.request_bytes = 2;
  query.request_id = 3;
  query.dnssec_ok = true;
  const DnsQuery copy = query;
  query.types[0] = 'x';
  CHECK(copy.types == "types");
  CHECK(copy.names == std::string("a\0b", 3));
  CHECK(copy.start_time.ticks == 1);
  CHECK(copy.request_bytes == 2);
  CHECK(copy.request_id == 3);
  CHECK(copy.dnssec_ok);
}

TEST_CASE("the table is a standard ordered map, laid out like any other") {
  using Table = decltype(DNSParser::open_queries);
  using Plain = std::map<DnsQueryID, DnsQuery>;
  static_assert(
      std::is_same_v<Table, std::map<DnsQueryID, DnsQuery, std::less<DnsQueryID>, Table::allocator_type>>);
  static_assert(std::is_empty_v<Table::allocator_type>);
  static_assert(sizeof(Table) == sizeof(Plain));
}
