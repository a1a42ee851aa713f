// Who is client and who is server, and whose conversation it is.
#include <doctest/doctest.h>

#include "tests/captures/cases.h"

using namespace test;

namespace {

const Endpoint kResolver{"192.0.2.10", 53};

test::Packet InVlan(uint16_t vlan, const Endpoint& from, const Endpoint& to, const test::Message& message) {
  return UdpPacket(test::Ethernet().Vlan(vlan), from, to, message);
}

}  // namespace

TEST_CASE("the endpoint on port 53 is the server, even when its answer comes first") {
  Capture capture;
  capture.Udp(0, kServer, kClient, Say(6))
      .Udp(kMs, kClient, kServer, Ask(7))
      .Udp(2 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["client_ip"] == kClient.address);
  CHECK(result.records.at(0)["server_ip"] == kServer.address);
}

TEST_CASE("a query that leaves port 53 is refused and turns nothing around") {
  Capture capture;
  capture.Udp(0, kServer, kClient, Ask(6))
      .Udp(kMs, kClient, kServer, Ask(7))
      .Udp(2 * kMs, kServer, kClient, Say(7));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["client_ip"] == kClient.address);
  CHECK(result.account["responses"]["refused"] == 1);
}

TEST_CASE("with both endpoints on port 53 the first message tells who asks") {
  Capture query_first;
  query_first.Udp(0, kResolver, kServer, Ask(7)).Udp(kMs, kServer, kResolver, Say(7));
  const Result asked = Read(query_first);
  CHECK(asked.Brief() == "7 answered 1000");
  CHECK(asked.records.at(0)["client_ip"] == kResolver.address);
  CHECK(asked.records.at(0)["client_port"] == 53);

  Capture answer_first;
  answer_first.Udp(0, kServer, kResolver, Say(6)).Udp(kMs, kResolver, kServer, Ask(7));
  answer_first.Udp(2 * kMs, kServer, kResolver, Say(7));
  const Result answered = Read(answer_first);
  CHECK(answered.Brief() == "7 answered 1000");
  CHECK(answered.records.at(0)["client_ip"] == kResolver.address);
  CHECK(answered.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("on port 53 at both ends, queries of the other side are refused as long as the conversation lasts") {
  Capture capture;
  capture.Udp(0, kResolver, kServer, Ask(7)).Udp(kMs, kServer, kResolver, Say(7));
  capture.Udp(2 * kMs, kServer, kResolver, Ask(8)).Udp(3 * kMs, kResolver, kServer, Say(8));
  capture.Nothing(70 * kSec)
      .Udp(71 * kSec, kServer, kResolver, Ask(9))
      .Udp(71 * kSec + kMs, kResolver, kServer, Say(9));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000, 9 answered 1000");
  CHECK(result.records.at(1)["client_ip"] == kServer.address);
  CHECK(result.account["responses"]["refused"] == 1);
  CHECK(result.account["queries"]["refused"] == 1);
  CHECK(result.account["lost"]["refused_messages"] == 2);
}

TEST_CASE("other ports are DNS when they are named") {
  const Endpoint server{"192.0.2.53", 5353};
  Capture capture;
  capture.Udp(0, kClient, server, Ask(7)).Udp(kMs, server, kClient, Say(7));
  CHECK(Read(capture).account["datagrams"]["not_dns_port"] == 2);
  CHECK(Read(capture, {"--port", "5353"}).Brief() == "7 answered 1000");
}

TEST_CASE("a conversation tagged in one direction only is one conversation") {
  Capture capture;
  capture.Packet(0, InVlan(5, kClient, kServer, Ask(7))).Udp(kMs, kServer, kClient, Say(7));
  capture.Udp(2 * kMs, kClient, kServer, Ask(8)).Packet(3 * kMs, InVlan(5, kServer, kClient, Say(8)));
  const Result together = Read(capture);
  CHECK(together.Brief() == "7 answered 1000, 8 answered 1000");
  CHECK(together.records.at(0)["vlan"] == "5");
  const Result apart = Read(capture, {"--separate-vlans"});
  CHECK(apart.Brief() == "7 open, 8 open");
  CHECK(apart.account["responses"]["unsolicited"] == 2);
}

TEST_CASE("the same addresses in two VLANs are two conversations when they are kept apart") {
  Capture capture;
  capture.Packet(0, InVlan(5, kClient, kServer, Ask(7, "five.example")));
  capture.Packet(kMs, InVlan(6, kClient, kServer, Ask(7, "six.example")));
  capture.Packet(2 * kMs, InVlan(6, kServer, kClient, Say(7, "six.example")));
  capture.Packet(3 * kMs, InVlan(5, kServer, kClient, Say(7, "five.example")));
  const Result apart = Read(capture, {"--separate-vlans"});
  CHECK(apart.Brief() == "7 answered 1000, 7 answered 3000");
  CHECK(apart.records.at(0)["vlan"] == "6");
  CHECK(apart.records.at(0)["qname"] == "six.example");
  CHECK(apart.records.at(1)["vlan"] == "5");
  CHECK(apart.records.at(1)["question_mismatch"] == false);
  const Result together = Read(capture);
  CHECK(together.Brief() == "7 answered 2000");
  CHECK(together.records.at(0)["question_mismatch"] == true);
}

TEST_CASE("a packet seen twice, with a tag and without, is counted as sent again") {
  Capture capture;
  capture.Udp(0, kClient, kServer, Ask(7)).Packet(1000, InVlan(5, kClient, kServer, Ask(7)));
  capture.Udp(kMs, kServer, kClient, Say(7)).Packet(kMs + 1000, InVlan(5, kServer, kClient, Say(7)));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000");
  CHECK(result.records.at(0)["retransmits"] == 1);
  CHECK(result.account["responses"]["unsolicited"] == 1);
}

TEST_CASE("IPv6 exchanges show their real addresses, whatever becomes of them") {
  const Endpoint second{"2001:db8::2", 40000};
  Capture capture;
  capture.Udp(0, kClient6, kServer6, Ask(7)).Udp(kMs, second, kServer6, Ask(8));
  capture.Udp(2 * kMs, kServer6, kClient6, Say(7)).Udp(8 * kSec, second, kServer6, Ask(9));
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 2000, 8 timeout, 9 open");
  const std::vector<std::string> clients = {"2001:db8::1", "2001:db8::2", "2001:db8::2"};
  for (size_t i = 0; i < clients.size(); ++i) {
    CHECK(result.records.at(i)["client_ip"] == clients[i]);
    CHECK(result.records.at(i)["server_ip"] == "2001:db8::53");
    CHECK(result.records.at(i)["ip_version"] == 6);
  }
}

TEST_CASE("IPv4 addresses of class E are shown as they are, beside IPv6 ones") {
  const Endpoint experimental{"240.0.0.1", 40000};
  const Endpoint broadcast{"255.255.255.255", 53};
  Capture capture;
  capture.Udp(0, kClient6, kServer6, Ask(7)).Udp(0, experimental, broadcast, Ask(7));
  capture.Udp(kMs, broadcast, experimental, Say(7)).Nothing(8 * kSec);
  const Result result = Read(capture);
  CHECK(result.Brief() == "7 answered 1000, 7 timeout");
  CHECK(result.records.at(0)["client_ip"] == "240.0.0.1");
  CHECK(result.records.at(0)["server_ip"] == "255.255.255.255");
  CHECK(result.records.at(1)["client_ip"] == "2001:db8::1");
}
