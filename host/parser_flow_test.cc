#include "host/parser_flow.h"

#include <doctest/doctest.h>

#include <string>
#include <typeinfo>

#include "tests/support/flows.h"

namespace {

using test::FlowText;

ParserFlow Filled() {
  ParserFlow flow = test::DistinctFlow();
  test::FillOtherFields(&flow);
  return flow;
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
  CHECK(FlowText(copy) == FlowText(Filled()));
}

TEST_CASE("an assigned flow carries every field, the host's own included") {
  ParserFlow copy;
  copy = Filled();
  CHECK(FlowText(copy) == FlowText(Filled()));
}

TEST_CASE("a copy of a host's flow is a plain flow with the same fields") {
  HostFlow host_flow;
  static_cast<ParserFlow&>(host_flow) = Filled();
  const ParserFlow copy = host_flow;
  CHECK(FlowText(copy) == FlowText(Filled()));
  CHECK(typeid(static_cast<const ParserFlow&>(copy)) == typeid(ParserFlow));
}

TEST_CASE("a fresh flow is empty") {
  const ParserFlow flow;
  CHECK(
      FlowText(flow) ==
      "local:0 remote:0 local_port:0 remote_port:0 client:0 transport:0 context:0 host1:0 host2:0 host3:0 host4:0 "
      "host5:0");
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
  CHECK(FlowText(flow) == FlowText(Filled()));
}

TEST_CASE("handshake reports reach the host's flow through the virtual table") {
  const HostFlow host_flow;
  const ParserFlow& flow = host_flow;
  flow.AddTlsHandshakeError();
  flow.AddTlsHandshakeSuccess(TimeDelta<1000000>{5}, "a", "b");
  CHECK(host_flow.reports == "error ab");
}
