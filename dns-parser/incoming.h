#pragma once

#include "dns-parser/dns_parser.h"
#include "dns-parser/trace.h"
#include "host/parser_flow.h"
#include "util/check.h"

// One message on its way through the request or the response side.
struct DNSParser::Incoming {
  // Underflows are reported by the view's ok flag: packets never throw and never abort.
  Incoming(const ParserFlow* the_flow, Timestamp<1000000> now, const char* data, int captured, int nominal)
      : flow(the_flow), time(now), len(captured), nominal_len(nominal), view(data, captured, nominal) {
    view.underflow_mode = IOVec::FLAG;
  }

  const ParserFlow* flow;
  Timestamp<1000000> time;
  int len;          // captured bytes
  int nominal_len;  // bytes on the wire
  IOVec view;
};

// The fatal check of the response side: no answer of a zone transfer is listed. The number names the check.
inline constexpr CheckSite kNothingListed{"dns-parser.cc", 502, "response.empty()"};

// The octet of an address as ParserFlow holds it, 0 being the first.
inline int Octet(const uint32_t& address, int index) { return reinterpret_cast<const uint8_t*>(&address)[index]; }

// The trace at the door of each side; `handler` is a literal.
#define DNS_TRACE_MESSAGE(site, handler, flow, len, nominal_len)                                      \
  DNS_TRACE(site, handler ": local=%d.%d.%d.%d:%d remote=%d.%d.%d.%d:%d tport=%d snap=%d nominal=%d", \
            Octet((flow).local_ipv4, 0), Octet((flow).local_ipv4, 1), Octet((flow).local_ipv4, 2),    \
            Octet((flow).local_ipv4, 3), (flow).local_port, Octet((flow).remote_ipv4, 0),             \
            Octet((flow).remote_ipv4, 1), Octet((flow).remote_ipv4, 2), Octet((flow).remote_ipv4, 3), \
            (flow).remote_port, (flow).transport, len, nominal_len)
