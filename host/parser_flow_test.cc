#include "host/parser_flow.h"

#include <doctest/doctest.h>

#include <string>
#include <typeinfo>

namespace {

ParserFlow Filled() {
  ParserFlow flow;
  flow.local_ipv4 = 0x01020304;
  flow.remote_ipv4 = 0x05060708;
  flow.local_port = 40001;
  flow.remote_port = 53;
  flow.client_side = kClientIsRemote;
  flow.transport = kTransportTcp;
  flow.context_id = 0x0a0b0c0d;
  flow.host_field_1 = 0x11121314;
  flow.host_field_2 = 0x15;
  flow.host_field_3 = 0x16171819;
  flow.host_field_4 = 0x2122232425262728;
  flow.host_field_5 = 0x3132333435363738;
  return flow;
}

void CheckFilled(const ParserFlow& flow) {
  CHECK(flow.local_ipv4 == 0x01020304);
  CHECK(flow.remote_ipv4 == 0x05060708);
  CHECK(flow.local_port == 40001);
  CHECK(flow.remote_port == 53);
  CHECK(flow.client_side == kClientIsRemote);
  CHECK(flow.transport == kTransportTcp);
  CHECK(flow.context_id == 0x0a0b0c0d);
  CHECK(flow.host_field_1 == 0x11121314);
  CHECK(flow.host_field_2 == 0x15);
  CHECK(flow.host_field_3 == 0x16171819);
  CHECK(flow.host_field_4 == 0x2122232425262728);
  CHECK(flow.host_field_5 == 0x3132333435363738);
}

// A host's flow, with reports of its own.
class HostFlow : public ParserFlow {
 public:
  void AddTlsHandshakeError() const override { reports += "error "; }
  void AddTlsHandshakeSuccess(TimeDelta<1000000>, const std::string& a, const std::string& b) const override {
    reports += a + b;
  }
  mutable std::string reports;
};

}  // namespace

TEST_CASE("a copied flow carries every field, the host's own included") {
  const ParserFlow flow = Filled();
  const ParserFlow copy(flow);
  CheckFilled(copy);
}

TEST_CASE("an assigned flow carries every field, the host's own included") {
  ParserFlow copy;
  copy = Filled();
  CheckFilled(copy);
}

TEST_CASE("a copy of a host's flow is a plain flow with the same fields") {
  HostFlow host_flow;
  static_cast<ParserFlow&>(host_flow) = Filled();
  const ParserFlow copy = host_flow;
  CheckFilled(copy);
  CHECK(typeid(static_cast<const ParserFlow&>(copy)) == typeid(ParserFlow));
}

TEST_CASE("a fresh flow is empty") {
  const ParserFlow flow;
  CHECK(flow.local_ipv4 == 0);
  CHECK(flow.remote_ipv4 == 0);
  CHECK(flow.local_port == 0);
  CHECK(flow.remote_port == 0);
  CHECK(flow.client_side == 0);
  CHECK(flow.transport == 0);
  CHECK(flow.context_id == 0);
  CHECK(flow.host_field_5 == 0);
}

TEST_CASE("the sides and transports have the host's numbers") {
  CHECK(kClientIsLocal == 1);
  CHECK(kClientIsRemote == 2);
  CHECK(kTransportTcp == 6);
  CHECK(kTransportUdp == 17);
}

TEST_CASE("a plain flow's handshake reports change nothing") {
  const ParserFlow flow = Filled();
  flow.AddTlsHandshakeError();
  flow.AddTlsHandshakeSuccess(TimeDelta<1000000>{5}, "a", "b");
  CheckFilled(flow);
}

TEST_CASE("handshake reports reach the host's flow through the virtual table") {
  const HostFlow host_flow;
  const ParserFlow& flow = host_flow;
  flow.AddTlsHandshakeError();
  flow.AddTlsHandshakeSuccess(TimeDelta<1000000>{5}, "a", "b");
  CHECK(host_flow.reports == "error ab");
}
