#pragma once

#include <cstdint>
#include <string>

#include "host/timestamp.h"

// Which endpoint of a flow is the client. Any other value of ParserFlow::client_side means unknown.
inline constexpr int32_t kClientIsLocal = 1;
inline constexpr int32_t kClientIsRemote = 2;

// IP protocol numbers that the parser accepts as ParserFlow::transport.
inline constexpr uint8_t kTransportTcp = 6;
inline constexpr uint8_t kTransportUdp = 17;

// The host's descriptor of one flow: one UDP conversation or one TCP connection. Both directions of a
// conversation are the same flow, in the same orientation. The parser copies it whole, the host's own fields
// included, into the key of its open-query table, so nothing depends on the host's object living on.
class ParserFlow {
 public:
  virtual ~ParserFlow() = default;

  // TLS reports of other parsers; DNS has none.
  virtual void AddTlsHandshakeError() const {}
  virtual void AddTlsHandshakeSuccess(TimeDelta<1000000>, const std::string&, const std::string&) const {}

  ParserFlow() = default;
  ParserFlow(const ParserFlow&) = default;
  ParserFlow& operator=(const ParserFlow&) = default;

  uint32_t local_ipv4 = 0;   // network byte order in memory: the first octet is the lowest-addressed byte
  uint32_t remote_ipv4 = 0;  // as local_ipv4
  uint16_t local_port = 0;   // used as stored: printed with "%d", compared as a number
  uint16_t remote_port = 0;
  int32_t client_side = 0;  // kClientIsLocal, kClientIsRemote or anything else for unknown
  uint8_t transport = 0;    // IP protocol number
  uint32_t context_id = 0;  // compared with CollectorExports::get_current_context_id

  // The host's own. Copied with the flow, never read by the parser.
  uint32_t host_field_1 = 0;
  uint8_t host_field_2 = 0;
  uint32_t host_field_3 = 0;
  uint64_t host_field_4 = 0;
  uint64_t host_field_5 = 0;
};
