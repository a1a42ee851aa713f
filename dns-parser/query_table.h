#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "dns-parser/entry_store.h"
#include "host/parser_flow.h"
#include "host/timestamp.h"

// What makes a query and its response one exchange: the flow's addresses, ports and transport, and the
// transaction identifier.
struct DnsQueryID {
  ParserFlow flow;   // a copy, so that nothing depends on the host's object living on
  uint16_t qid = 0;  // host byte order
};

// An open query.
struct DnsQuery {
  std::string types;              // of all questions, joined by ", ": "A - IPv4 address lookup"
  std::string names;              // as decoded, joined by ", "
  Timestamp<1000000> start_time;  // the host's time stamp of the request
  int32_t request_bytes = 0;      // nominal length of the request
  int32_t request_id = 0;         // as announced in its BeginRequest
  bool dnssec_ok = false;         // the DO bit (RFC 3225), looked for only when "enable_dnssec" is on
};

// Lexicographic by addresses, ports, transport and identifier, each as the unsigned number that is stored. The
// flow's other fields are carried in the key, but two keys that differ in nothing else are the same key.
template <>
struct std::less<DnsQueryID> {
  bool operator()(const DnsQueryID& left, const DnsQueryID& right) const {
    const uint64_t left_addresses = Addresses(left.flow);
    const uint64_t right_addresses = Addresses(right.flow);
    if (left_addresses != right_addresses) return left_addresses < right_addresses;
    return Rest(left) < Rest(right);
  }

 private:
  static uint64_t Addresses(const ParserFlow& flow) {
    return static_cast<uint64_t>(flow.local_ipv4) << 32 | flow.remote_ipv4;
  }
  static uint64_t Rest(const DnsQueryID& id) {
    return static_cast<uint64_t>(id.flow.local_port) << 40 | static_cast<uint64_t>(id.flow.remote_port) << 24 |
           static_cast<uint64_t>(id.flow.transport) << 16 | id.qid;
  }
};

// As any std::map of these, in order and in layout, but for where its entries live.
using PlainQueryTable = std::map<DnsQueryID, DnsQuery>;
using QueryTable =
    std::map<DnsQueryID, DnsQuery, PlainQueryTable::key_compare, EntryAllocator<PlainQueryTable::value_type>>;
