#pragma once

#include <cstdint>
#include <cstring>
#include <string>

#include "host/parser_flow.h"

// Flows to give a parser, and flows as text that can be compared.
namespace test {

// An address as a flow holds it: its octets in the order of memory.
inline uint32_t FlowAddress(uint8_t a, uint8_t b, uint8_t c, uint8_t d) {
  const uint8_t octets[] = {a, b, c, d};
  uint32_t address;
  std::memcpy(&address, octets, sizeof address);
  return address;
}

// A flow from 192.0.2.10:40000 (local, the client) to 192.0.2.53:53 in context 1.
inline ParserFlow MakeFlow(uint8_t transport = kTransportUdp) {
  ParserFlow flow;
  flow.local_ipv4 = FlowAddress(192, 0, 2, 10);
  flow.remote_ipv4 = FlowAddress(192, 0, 2, 53);
  flow.local_port = 40000;
  flow.remote_port = 53;
  flow.client_side = kClientIsLocal;
  flow.transport = transport;
  flow.context_id = 1;
  return flow;
}

// A TCP flow from 1.2.3.4:40000 to 250.251.252.253:65535: no two octets or ports are the same.
inline ParserFlow DistinctFlow() {
  ParserFlow flow = MakeFlow(kTransportTcp);
  flow.local_ipv4 = FlowAddress(1, 2, 3, 4);
  flow.remote_ipv4 = FlowAddress(250, 251, 252, 253);
  flow.remote_port = 65535;
  return flow;
}

// Gives each field that takes no part in pairing a value of its own, which uses all of its bytes.
inline void FillOtherFields(ParserFlow* flow) {
  flow->client_side = kClientIsRemote;
  flow->context_id = 0x0a0b0c0d;
  flow->host_field_1 = 0x11121314;
  flow->host_field_2 = 0x15;
  flow->host_field_3 = 0x16171819;
  flow->host_field_4 = 0x2122232425262728;
  flow->host_field_5 = 0x3132333435363738;
}

// Every field, in the order of the structure.
inline std::string FlowText(const ParserFlow& flow) {
  std::string text;
  const auto add = [&text](const char* name, uint64_t value) {
    text += (text.empty() ? "" : " ") + std::string(name) + ":" + std::to_string(value);
  };
  add("local", flow.local_ipv4);
  add("remote", flow.remote_ipv4);
  add("local_port", flow.local_port);
  add("remote_port", flow.remote_port);
  add("client", static_cast<uint64_t>(flow.client_side));
  add("transport", flow.transport);
  add("context", flow.context_id);
  add("host1", flow.host_field_1);
  add("host2", flow.host_field_2);
  add("host3", flow.host_field_3);
  add("host4", flow.host_field_4);
  add("host5", flow.host_field_5);
  return text;
}

}  // namespace test
