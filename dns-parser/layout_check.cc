// The order of the parser's members is part of the contract, as are the structures of the open-query table.

#include <cstddef>

#include "dns-parser/dns_parser.h"

#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(offsetof(DnsQueryID, qid) == 64);
static_assert(sizeof(DnsQueryID) == 72);
static_assert(offsetof(DnsQuery, types) == 0);
static_assert(offsetof(DnsQuery, names) == 32);
static_assert(offsetof(DnsQuery, start_time) == 64);
static_assert(offsetof(DnsQuery, request_bytes) == 72);
static_assert(offsetof(DnsQuery, request_id) == 76);
static_assert(offsetof(DnsQuery, dnssec_ok) == 80);
static_assert(sizeof(DnsQuery) == 88);

static_assert(offsetof(DNSParser, args) == 32);
static_assert(offsetof(DNSParser, exports) == 80);
static_assert(offsetof(DNSParser, open_queries) == 88);
static_assert(offsetof(DNSParser, max_open_requests) == 136);
static_assert(offsetof(DNSParser, next_request_id) == 140);
static_assert(offsetof(DNSParser, enable_dnssec) == 144);
static_assert(offsetof(DNSParser, enable_axfr) == 145);
static_assert(offsetof(DNSParser, unknown_opcodes) == 152);
static_assert(offsetof(DNSParser, zero_qdcount_requests) == 160);
static_assert(offsetof(DNSParser, table_full_drops) == 168);
static_assert(offsetof(DNSParser, multi_qdcount_requests) == 176);
static_assert(offsetof(DNSParser, unsolicited_responses) == 184);
static_assert(offsetof(DNSParser, injected_mappings) == 192);
static_assert(offsetof(DNSParser, timed_out_requests) == 200);
static_assert(offsetof(DNSParser, max_open_queries_seen) == 208);
static_assert(offsetof(DNSParser, request_timeout_us) == 216);
