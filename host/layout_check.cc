// Host and plug-in are built apart and meet only in memory: sizes and offsets are part of the contract.

#include <cstddef>
#include <type_traits>

#include "host/collector_exports.h"
#include "host/dns_tables.h"
#include "host/metrics.h"
#include "host/parser_flow.h"
#include "host/protocol_parser.h"
#include "host/requests.h"
#include "host/timestamp.h"

// offsetof on polymorphic classes is conditionally supported; both of our compilers support it.
#pragma GCC diagnostic ignored "-Winvalid-offsetof"

static_assert(offsetof(CollectorExports, log_level) == 0);
static_assert(offsetof(CollectorExports, log) == 8);
static_assert(offsetof(CollectorExports, is_debug_enabled) == 16);
static_assert(offsetof(CollectorExports, want_extended_details) == 40);
static_assert(offsetof(CollectorExports, inject_dns_mapping) == 48);
static_assert(offsetof(CollectorExports, get_current_context_id) == 64);

static_assert(sizeof(Timestamp<1000000>) == 8 && std::is_trivially_copyable_v<Timestamp<1000000>>);
static_assert(sizeof(TimeDelta<1000000>) == 8 && std::is_trivially_copyable_v<TimeDelta<1000000>>);

static_assert(offsetof(ParserFlow, local_ipv4) == 8);
static_assert(offsetof(ParserFlow, remote_ipv4) == 12);
static_assert(offsetof(ParserFlow, local_port) == 16);
static_assert(offsetof(ParserFlow, remote_port) == 18);
static_assert(offsetof(ParserFlow, client_side) == 20);
static_assert(offsetof(ParserFlow, transport) == 24);
static_assert(offsetof(ParserFlow, context_id) == 28);
static_assert(offsetof(ParserFlow, host_field_1) == 32);
static_assert(offsetof(ParserFlow, host_field_2) == 36);
static_assert(offsetof(ParserFlow, host_field_3) == 40);
static_assert(offsetof(ParserFlow, host_field_4) == 48);
static_assert(offsetof(ParserFlow, host_field_5) == 56);
static_assert(sizeof(ParserFlow) == 64);

static_assert(offsetof(IProtocolParser, host_handle) == 8);
static_assert(offsetof(IProtocolParser, host_exports) == 16);
static_assert(offsetof(IProtocolParser, request_sink) == 24);
static_assert(sizeof(ITimedProtocolParser) == 32);

static_assert(offsetof(Request, spec_id) == 8);
static_assert(offsetof(Request, request_id) == 12);
static_assert(offsetof(Request, key_values) == 16);
static_assert(offsetof(Request, flow) == 24);
static_assert(offsetof(BeginRequest, request_pattern) == 32);
static_assert(offsetof(BeginRequest, start_time) == 40);
static_assert(sizeof(BeginRequest) == 48);
static_assert(offsetof(EndRequest, request_pattern) == 32);
static_assert(offsetof(EndRequest, response_time) == 40);
static_assert(offsetof(EndRequest, start_time) == 48);
static_assert(offsetof(EndRequest, bytes_request) == 56);
static_assert(offsetof(EndRequest, bytes_response) == 64);
static_assert(offsetof(EndRequest, result_code) == 72);
static_assert(offsetof(EndRequest, num_errors) == 76);
static_assert(offsetof(EndRequest, extra_items) == 80);
static_assert(offsetof(EndRequest, stitching) == 88);
static_assert(sizeof(EndRequest) == 96);
static_assert(offsetof(EndRequest::Stitching, ids) == 0);
static_assert(offsetof(EndRequest::Stitching, counts) == 24);
static_assert(offsetof(ExtendedEndRequest, strings) == 96);
static_assert(sizeof(ExtendedEndRequest) == 144);

static_assert(offsetof(RequestMetricSpecification, name) == 8);
static_assert(offsetof(RequestMetricSpecification, spec_id) == 40);
static_assert(sizeof(DNSRequestMetricSpecification) == 48);
static_assert(offsetof(DNSIntermediateKey, result_code) == 8);
static_assert(sizeof(DNSIntermediateKey) == 16);

static_assert(offsetof(DnsTableEntry, name) == 8);
static_assert(offsetof(DnsTableEntry, description) == 16);
static_assert(sizeof(DnsTableEntry) == 24);
