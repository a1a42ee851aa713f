// Single steps of a packet's way, each in a loop of its own: everything that a step touches is in the cache.

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "bench/plugin_traffic.h"
#include "collector/output/exchange_for_tests.h"
#include "collector/output/record_writer.h"
#include "collector/packet/decoder.h"
#include "dns-parser/dns_parser.h"
#include "tests/support/packet_builder.h"

using namespace test;

namespace {

constexpr int kHeaderBytes = 12;
const std::string kName = "www.host1234.example.com";

// A step that fails is soon done, and no measurement.
void Must(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "parts_bench: %s\n", what);
  std::exit(1);
}

IOVec ViewOf(const std::string& message) {
  const int size = static_cast<int>(message.size());
  IOVec view(message.data(), size, size);
  view.underflow_mode = IOVec::FLAG;
  return view;
}

// ---- frames

void Decode(benchmark::State& state, Packet packet) {
  Bytes bytes = packet.Udp(40000, 53).Payload(ToBytes(Query(7).Question(kName, kA).Wire())).Frame();
  const auto size = static_cast<uint32_t>(bytes.size());
  bytes.push_back(0);
  const capture::Frame frame{.data = bytes.data(), .captured = size, .wire = size, .link_type = 1};
  packet::Decoder decoder;
  packet::Datagram datagram;
  for (auto _ : state) {
    Must(decoder.Decode(frame, &datagram) == packet::Outcome::kDatagram, "a frame that cannot be decoded");
    benchmark::DoNotOptimize(datagram);
  }
}

Packet Plain() { return Ethernet().Ipv4("192.0.2.1", "192.0.2.53"); }
Packet Tunnelled() {
  Packet packet = Ethernet().Vlan(5).Ipv6("2001:db8::1", "2001:db8::2").Udp(7000, 4789).Vxlan(7);
  return packet.Ethernet().Ipv4("192.0.2.1", "192.0.2.53");
}

BENCHMARK_CAPTURE(Decode, plain, Plain());
BENCHMARK_CAPTURE(Decode, tunnelled, Tunnelled());

// ---- names and answers

void ReadName(benchmark::State& state, const Message& message, int begin) {
  const DNSParser parser(&bench::kTable, {});
  const std::string bytes = message.Wire();
  const IOVec view = ViewOf(bytes);
  std::string name;
  for (auto _ : state) {
    int offset = begin;
    name.clear();
    Must(parser.GetName(view, &offset, &name, 0) == kDecoded, "a name that cannot be read");
    benchmark::DoNotOptimize(name);
  }
  Must(name == kName, "a name that is another one");
}

Message PlainName() { return Query(7).Question(kName, kA); }
Message PointedName() {
  return Response(7).Question("host1234.example.com", kA).Bytes(Pointer(kHeaderBytes, "www").Wire());
}
int BehindQuestion() { return static_cast<int>(Query(7).Question("host1234.example.com", kA).Here()); }

BENCHMARK_CAPTURE(ReadName, plain, PlainName(), kHeaderBytes);
BENCHMARK_CAPTURE(ReadName, compressed, PointedName(), BehindQuestion());

void ReadAnswers(benchmark::State& state, const Message& question, const std::vector<Record>& answers) {
  const DNSParser parser(&bench::kTable, {});
  Message response = question;
  for (const Record& answer : answers) response.Answer(answer);
  const std::string bytes = response.Wire();
  const IOVec view = ViewOf(bytes);
  const int begin = static_cast<int>(question.Here());
  std::string summary;
  int signatures = 0;
  for (auto _ : state) {
    summary.clear();
    Must(parser.ParseResponse(&summary, &signatures, view, begin, static_cast<int>(answers.size()), true, kName) ==
             kDecoded,
         "answers that cannot be read");
    benchmark::DoNotOptimize(summary);
  }
  Must(!summary.empty(), "answers without a summary");
}

Message Asked(uint16_t type) { return Response(7).Compressed().Question(kName, type); }
std::vector<Record> Addresses(int count) {
  std::vector<Record> answers{{kName, Cname("cdn.example.net")}};
  for (int i = 0; i < count; ++i) answers.push_back({"cdn.example.net", A("192.0.2." + std::to_string(i))});
  return answers;
}
std::vector<Record> Exchangers() { return {{kName, Mx(10, "mail." + kName)}, {kName, Mx(20, "relay." + kName)}}; }
std::vector<Record> Signed() { return {{kName, Aaaa("2001:db8::1")}, {kName, Rrsig(kAaaa, "example.com")}}; }

BENCHMARK_CAPTURE(ReadAnswers, alias_and_A, Asked(kA), Addresses(1));
BENCHMARK_CAPTURE(ReadAnswers, alias_and_8_A, Asked(kA), Addresses(8));
BENCHMARK_CAPTURE(ReadAnswers, AAAA_signed, Asked(kAaaa), Signed());
BENCHMARK_CAPTURE(ReadAnswers, 2_MX, Asked(kMx), Exchangers());

// ---- lines

using WriterMaker = std::unique_ptr<output::RecordWriter> (*)(output::Buffer*, const output::ColumnList&);

void Write(benchmark::State& state, WriterMaker make) {
  output::Buffer memory;
  const std::unique_ptr<output::RecordWriter> writer = make(&memory, output::EveryColumn());
  const output::ExchangeForTests exchange;
  for (auto _ : state) {
    writer->Write(exchange);
    benchmark::DoNotOptimize(memory.Held().data());
    memory.Drop();
  }
}

BENCHMARK_CAPTURE(Write, json, output::MakeJsonWriter);
BENCHMARK_CAPTURE(Write, csv, output::MakeCsvWriter);

}  // namespace

BENCHMARK_MAIN();
