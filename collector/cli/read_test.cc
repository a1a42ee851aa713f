#include <doctest/doctest.h>

#include <algorithm>

#include "collector/cli/program_for_tests.h"
#include "tests/support/compress.h"

// dnspair read, from captures to records.
namespace cli {
namespace {

using nlohmann::json;
using test::A;
using test::ChildResult;
using test::kA;

std::vector<json> Records(const std::string& capture, std::vector<std::string> options = {}) {
  const test::TemporaryFile file(capture);
  options.insert(options.begin(), {"read", file.path});
  const ChildResult result = RunProgram(options);
  CAPTURE(result.err);
  CHECK(result.ExitCode() == 0);
  return JsonLines(result.out);
}

TEST_CASE("an answered query is a record with everything in it") {
  const auto records = Records(SmallCapture().Bytes());
  REQUIRE(records.size() == 4);
  CHECK(records[0].dump() == json({{"ts_us", kStart / 1000},
                                   {"client_ip", "192.0.2.1"},
                                   {"client_port", 40000},
                                   {"server_ip", "198.51.100.53"},
                                   {"server_port", 53},
                                   {"proto", "udp"},
                                   {"qname", "www.example"},
                                   {"qtype", "A"},
                                   {"qclass", "IN"},
                                   {"pattern", "A - IPv4 address lookup"},
                                   {"status", "answered"},
                                   {"rcode", "NOERROR"},
                                   {"result_code", 0},
                                   {"rtt_us", 2000},
                                   {"bytes_query", 29},
                                   {"bytes_response", 56},
                                   {"answers", "[www.example => 192.0.2.80]"},
                                   {"rrsigs", 0},
                                   {"dns_id", 1},
                                   {"flags", "rd"},
                                   {"response_flags", "qr rd ra"},
                                   {"query_ns", kStart},
                                   {"response_ns", kStart + 2 * kMillisecond},
                                   {"retransmits", 0},
                                   {"question_mismatch", false},
                                   {"cut", false},
                                   {"ip_version", 4}})
                                 .dump());
}

TEST_CASE("exchanges come in the order in which they end") {
  const auto records = Records(SmallCapture().Bytes());
  REQUIRE(records.size() == 4);
  CHECK(records[1]["rcode"] == "NXDOMAIN");
  CHECK(records[1]["rtt_us"] == 200000);
  CHECK(records[2]["qname"] == "silent.example");
  CHECK(records[2]["status"] == "timeout");
  CHECK(records[2]["result_code"] == -1);
  CHECK_FALSE(records[2].contains("rtt_us"));
  CHECK(records[3]["qname"] == "late.example");
  CHECK(records[3]["status"] == "open");
}

TEST_CASE("a configuration key reaches the plug-in") {
  CaptureForTests capture;
  capture.Query(0, test::Query(1).Question("a.example", kA));
  capture.Nothing(3 * kSecond);
  CHECK(Records(capture.Bytes())[0]["status"] == "open");
  CHECK(Records(capture.Bytes(), {"--set", "request_timeout_s=1"})[0]["status"] == "timeout");
}

TEST_CASE("other ports are other traffic until they are named") {
  CaptureForTests capture;
  const auto frame = [](uint16_t from, uint16_t to, const test::Message& message) {
    return test::Packet()
        .Ethernet()
        .Ipv4("192.0.2.1", "192.0.2.1")
        .Udp(from, to)
        .Payload(test::ToBytes(message.Wire()));
  };
  capture.Frame(0, frame(40000, 5353, test::Query(1).Question("a.example", kA)));
  capture.Frame(1, frame(5353, 40000, test::Response(1).Question("a.example", kA)));
  CHECK(Records(capture.Bytes()).empty());
  CHECK(Records(capture.Bytes(), {"--port", "53,5353"}).size() == 1);
  CHECK(Records(capture.Bytes(), {"--port", "53", "--port", "5353"}).size() == 1);
  CHECK(Records(SmallCapture().Bytes(), {"--port", "5353"}).empty());
}

TEST_CASE("conditions choose records") {
  CHECK(Records(SmallCapture().Bytes(), {"--where", "rcode=NXDOMAIN"}).size() == 1);
  CHECK(Records(SmallCapture().Bytes(), {"--where", "rtt>100ms"}).size() == 1);
  CHECK(Records(SmallCapture().Bytes(), {"--where", "status=timeout", "--where", "rtt>100ms"}).empty());
  CHECK(Records(SmallCapture().Bytes(), {"--where", "qname~\\.EXAMPLE$"}).size() == 4);
}

TEST_CASE("a filter expression chooses packets") {
  CaptureForTests capture = SmallCapture();
  capture.Query(10 * kSecond, test::Query(9).Question("other.example", kA), 41111);
  CHECK(Records(capture.Bytes(), {"--", "port", "41111"}).size() == 1);
  CHECK(Records(capture.Bytes(), {"--", "port 40000"}).size() == 4);
}

TEST_CASE("columns are written in the order they are asked for") {
  const auto capture = SmallCapture();
  const test::TemporaryFile file(capture.Bytes());
  const ChildResult result = RunProgram({"read", file.path, "--columns", "qname,rtt_us", "--format", "csv"});
  CHECK(result.out == "qname,rtt_us\nwww.example,2000\nnothing.example,200000\nsilent.example,\nlate.example,\n");
}

// A response of two addresses and two signatures among the exchanges of a small capture.
std::string SignedCapture() {
  return SmallCapture()
      .Query(10 * kSecond, test::Query(5).Question("signed.example", kA))
      .Response(10 * kSecond + kMillisecond, test::Response(5)
                                                 .Question("signed.example", kA)
                                                 .Answer("signed.example", A("192.0.2.81"))
                                                 .Answer("signed.example", test::Rrsig(kA, "example"))
                                                 .Answer("signed.example", test::Rrsig(kA, "example")))
      .Bytes();
}

TEST_CASE("a column says the same whichever others are shown") {
  const std::string capture = SignedCapture();
  const auto whole = Records(capture);
  REQUIRE(whole.size() == 5);
  REQUIRE(whole[3]["rrsigs"] == 2);
  for (const auto& [column, value] : whole[3].items()) {
    const auto alone = Records(capture, {"--columns", column});
    REQUIRE(alone.size() == whole.size());
    for (size_t i = 0; i < whole.size(); ++i) {
      json expected = json::object();
      if (whole[i].contains(column)) expected[column] = whole[i][column];
      CHECK(alone[i] == expected);
    }
  }
}

TEST_CASE("a condition holds whether or not its column is shown") {
  const std::string capture = SignedCapture();
  for (const char* condition : {"answers~192\\.0\\.2\\.81", "rrsigs=2"}) {
    const auto found = Records(capture, {"--columns", "dns_id", "--where", condition});
    REQUIRE(found.size() == 1);
    CHECK(found[0]["dns_id"] == 5);
    for (const char* format : {"ecs", "zeek", "csv"}) {
      const test::TemporaryFile file(capture);
      const ChildResult result = RunProgram({"read", file.path, "--format", format, "--where", condition});
      CHECK(result.out.find("signed.example") != std::string::npos);
      CHECK(result.out.find("www.example") == std::string::npos);
    }
  }
}

TEST_CASE("standard input, a file, its halves and its compressed form give the same bytes") {
  const std::string capture = SmallCapture().Bytes();
  const test::TemporaryFile file(capture), gzip(test::Gzip(capture)), zstd(test::Zstd(capture));
  const std::string expected = RunProgram({"read", file.path}).out;
  REQUIRE(Lines(expected).size() == 4);
  CHECK(RunProgram({"read", "-"}, capture).out == expected);
  CHECK(RunProgram({"read", gzip.path}).out == expected);
  CHECK(RunProgram({"read", zstd.path}).out == expected);
  CHECK(RunProgram({"read", "-"}, test::Gzip(capture)).out == expected);

  // The capture begins with 24 bytes of header; the first record ends behind its 16 and its frame.
  const size_t first = 24 + 16 + 14 + 20 + 8 + 29;
  const test::TemporaryFile begin(capture.substr(0, first)), rest(capture.substr(0, 24) + capture.substr(first));
  CHECK(RunProgram({"read", begin.path, rest.path}).out == expected);
  CHECK(RunProgram({"read", rest.path, begin.path}).out == expected);
}

TEST_CASE("names that are not text stay on their line") {
  CaptureForTests capture;
  capture.Query(0, test::Query(1).Question("a\\.b\\010\\255\\\\.example", kA));
  const test::TemporaryFile file(capture.Bytes());
  for (const char* format : {"json", "csv", "table"}) {
    const ChildResult result = RunProgram({"read", file.path, "--format", format});
    for (const char character : result.out) CHECK((character == '\n' || (character >= 0x20 && character < 0x7f)));
    if (std::string(format) == "json") CHECK(JsonLines(result.out)[0]["qname"] == "a\\.b\\010\\255\\\\.example");
    CHECK(Lines(result.out).size() == (std::string(format) == "json" ? 1 : 2));
  }
}

TEST_CASE("tags and tunnels are in the record, and apart only on request") {
  CaptureForTests capture;
  const auto query = test::ToBytes(test::Query(1).Question("a.example", kA).Wire());
  const auto response = test::ToBytes(test::Response(1).Question("a.example", kA).Wire());
  const auto tagged = test::Packet().Ethernet().Vlan(100).Vlan(200);
  capture.Frame(0, test::Packet(tagged).Ipv4("192.0.2.1", "192.0.2.2").Udp(40000, 53).Payload(query));
  capture.Frame(1, test::Packet().Ethernet().Ipv4("192.0.2.2", "192.0.2.1").Udp(53, 40000).Payload(response));
  const auto records = Records(capture.Bytes());
  REQUIRE(records.size() == 1);
  CHECK(records[0]["vlan"] == "100,200");
  CHECK(records[0]["status"] == "answered");
  CHECK(Records(capture.Bytes(), {"--separate-vlans"})[0]["status"] == "open");
}

TEST_CASE("the table is for people") {
  const auto capture = SmallCapture();
  const test::TemporaryFile file(capture.Bytes());
  const auto lines = Lines(RunProgram({"read", file.path, "--format", "table"}).out);
  REQUIRE(lines.size() == 5);
  CHECK(lines[0].starts_with("TIME (UTC)"));
  CHECK(lines[1] ==
        "2023-11-14 22:13:20.000000 192.0.2.1:40000       198.51.100.53:53   udp www.example              A      "
        "NOERROR     2.000 [www.example => 192.0.2.80]");
}

TEST_CASE("the schema of others can be had for the same exchanges") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto records = JsonLines(RunProgram({"read", file.path, "--format", "ecs"}).out);
  REQUIRE(records.size() == 4);
  CHECK(records[0]["dns"]["answers"][0]["data"] == "192.0.2.80");
  CHECK(records[1]["dns"]["response_code"] == "NXDOMAIN");
  CHECK(records[2]["dnspair"]["status"] == "timeout");
  CHECK(records[3]["event"]["outcome"] == "unknown");
}

TEST_CASE("a dns.log is whole: header, records, end") {
  const test::TemporaryFile file(SmallCapture().Bytes());
  const auto lines = Lines(RunProgram({"read", file.path, "--format", "zeek"}).out);
  REQUIRE(lines.size() == 8 + 4 + 1);
  CHECK(lines[0] == "#separator \\x09");
  CHECK(lines[8].starts_with("1700000000.000000\tC"));
  CHECK(lines[8].ends_with(
      "\twww.example\t1\tC_INTERNET\t1\tA\t0\tNOERROR\tF\tF\tT\tT\t0\t192.0.2.80\t300.000000\tF"));
  CHECK(lines[12].starts_with("#close\t"));
}

TEST_CASE("answers are read from TCP and from cut packets too") {
  CaptureForTests capture;
  const auto response = test::Response(1)
                            .Question("www.example", kA)
                            .Answer("www.example", A("192.0.2.80"))
                            .Answer("www.example", A("192.0.2.81"));
  const auto frame = [](const char* from, const char* to, uint16_t port, uint16_t to_port,
                        const std::string& bytes) {
    return test::Packet().Ethernet().Ipv4(from, to).Tcp(port, to_port).Payload(test::ToBytes(bytes));
  };
  capture.Frame(0,
                frame("192.0.2.1", "192.0.2.2", 40000, 53, test::Query(1).Question("www.example", kA).TcpWire()));
  capture.Frame(1, frame("192.0.2.2", "192.0.2.1", 53, 40000, response.TcpWire()));
  const auto records = Records(capture.Bytes(), {"--format", "ecs"});
  REQUIRE(records.size() == 1);
  CHECK(records[0]["dns"]["resolved_ip"] == json({"192.0.2.80", "192.0.2.81"}));
}

TEST_CASE("the health line and the account stand on standard error") {
  const auto capture = SmallCapture();
  const test::TemporaryFile file(capture.Bytes());
  const auto lines = Lines(RunProgram({"read", file.path}).err);
  REQUIRE(lines.size() == 9);
  CHECK(lines[0] == "parser:dns uop:0 zqd:0 mqd:0 ur:0 inj:1 mor:1 or:1 rt:1");
  CHECK(lines[1] == "packets    7 = 6 datagram + 1 not_ip");
  CHECK(lines[2] == "datagrams  6 = 6 udp_message");
  CHECK(lines[3] == "messages   6 = 6 udp");
  CHECK(lines[4] == "queries    4 = 4 begun");
  CHECK(lines[5] == "responses  2 = 2 answered");
  CHECK(lines[6] == "exchanges  4 = 2 answered + 1 timeout + 1 open");
  CHECK(lines[8] == "lost       nothing");
  CHECK(RunProgram({"read", file.path, "-q"}).err == "");
}

TEST_CASE("the plug-in's log shows on request, without control characters") {
  CaptureForTests capture;
  capture.Query(0, test::Query(1).Question("a\\027.example", kA)).Nothing(8 * kSecond);
  const test::TemporaryFile file(capture.Bytes());
  CHECK(RunProgram({"read", file.path, "-q"}).err == "");
  const std::string log = RunProgram({"read", file.path, "-q", "-v"}).err;
  CHECK(log.find("Dropping A - IPv4 address lookup") != std::string::npos);
  CHECK(log.find('\033') == std::string::npos);
  const std::string traces = RunProgram({"read", file.path, "-q", "-vv"}).err;
  CHECK(traces.find("[dns-parser.cc:") != std::string::npos);
  CHECK(log.find("[dns-parser.cc:") == std::string::npos);
}

}  // namespace
}  // namespace cli
