#include "tests/faults/allocations.h"

#include <doctest/doctest.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "collector/cli/pipeline.h"
#include "collector/output/buffer.h"
#include "collector/output/record_writer.h"
#include "collector/plugin/library.h"
#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"

using namespace test;

// The host and the plug-in, from frames to lines of JSON: once traffic of a kind has been seen, more of it costs no
// allocation. Memory is then a question of how much is open at a time, and never of how long a run lasts.

namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr uint16_t kClients = 300;
const std::string kName = "a-label-too-long-for-a-short-string.example";

// Frames of one round, played again and again with later times.
class Playback final : public capture::Source {
 public:
  void Add(const Packet& packet, int64_t after_ns) {
    bytes.push_back(packet.Frame());
    bytes.back().push_back(0);  // a source's frames have a readable byte behind them
    times.push_back(after_ns);
  }

  // Plays them all once more, in a round that begins at `begin_ns`.
  void Rewind(int64_t begin_ns) {
    frames.resize(bytes.size());
    for (size_t i = 0; i < bytes.size(); ++i) {
      const auto size = static_cast<uint32_t>(bytes[i].size() - 1);
      frames[i] = {
          .time_ns = begin_ns + times[i], .data = bytes[i].data(), .captured = size, .wire = size, .link_type = 1};
    }
    at_end = false;
  }

  capture::ReadState Read(std::span<const capture::Frame>* batch) override {
    if (at_end) return capture::ReadState::kEnd;
    at_end = true;
    *batch = frames;
    return capture::ReadState::kFrames;
  }
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override { return 0; }
  uint64_t BytesTotal() const override { return 0; }

 private:
  std::vector<Bytes> bytes;
  std::vector<int64_t> times;
  std::vector<capture::Frame> frames;
  std::vector<std::string> problems;
  bool at_end = true;
};

// Writes what it is told, and counts it.
struct JsonPrinter : plugin::ExchangeListener {
  void OnExchange(const plugin::Exchange& exchange) override {
    ++(exchange.status == plugin::Status::kAnswered ? answered : others);
    writer->Write(exchange);
  }

  output::Buffer buffer{open("/dev/null", O_WRONLY | O_CLOEXEC), "/dev/null"};
  std::unique_ptr<output::RecordWriter> writer = output::MakeJsonWriter(&buffer, output::EveryColumn());
  uint64_t answered = 0;
  uint64_t others = 0;
};

// What a round costs when six like it were there before, and the exchanges that it brings.
struct Round {
  long allocations;
  uint64_t answered;
  uint64_t others;
};

Round PlayRounds(Playback* playback) {
  const plugin::Library library(DNS_PARSER);
  JsonPrinter printer;
  cli::Pipeline pipeline({}, library, &printer);
  const std::function<bool()> go_on = [] { return true; };
  int64_t now_ns = 1'700'000'000 * kSecond;
  const auto play = [&] {
    playback->Rewind(now_ns += 10 * kSecond);
    pipeline.Run(playback, go_on);
  };
  for (int round = 0; round < 6; ++round) play();
  const Round before{faults::Allocations(), printer.answered, printer.others};
  play();
  return {faults::Allocations() - before.allocations, printer.answered - before.answered,
          printer.others - before.others};
}

Packet Between(const std::string& from, const std::string& to) {
  return from.find(':') != std::string::npos ? Ethernet().Ipv6(from, to) : Ethernet().Ipv4(from, to);
}

uint16_t PortOf(uint16_t client) { return static_cast<uint16_t>(20000 + client); }

void Ask(Playback* playback, uint16_t client, const Message& query, const std::string& from,
         const std::string& to) {
  playback->Add(Between(from, to).Udp(PortOf(client), 53).Payload(ToBytes(query.Wire())), client * 1000);
}
void Answer(Playback* playback, uint16_t client, const Message& response, const std::string& from,
            const std::string& to) {
  playback->Add(Between(to, from).Udp(53, PortOf(client)).Payload(ToBytes(response.Wire())), kSecond / 2);
}

}  // namespace

TEST_CASE("once warm, exchanges over UDP allocate nothing from frame to JSON") {
  std::string client = "192.0.2.1";
  std::string server = "198.51.100.53";
  SUBCASE("IPv4") {}
  SUBCASE("IPv6") {
    client = "2001:db8::1";
    server = "2001:db8::53";
  }
  Playback playback;
  for (uint16_t i = 0; i < kClients; ++i) {
    Ask(&playback, i, Query(i).Question(kName, kA).Additional(Opt()), client, server);
  }
  for (uint16_t i = 0; i < kClients; ++i) {
    Answer(&playback, i,
           Response(i)
               .Question(kName, kA)
               .Answer(kName, Cname("target." + kName))
               .Answer("target." + kName, A("192.0.2.1"))
               .Answer("target." + kName, Aaaa("2001:db8::1"))
               .Answer(kName, Mx(5, "mail." + kName))
               .Answer(kName, Txt("a text that is too long for a short string"))
               .Additional(Opt()),
           client, server);
  }
  const Round round = PlayRounds(&playback);
  CHECK(round.allocations == 0);
  CHECK(round.answered == kClients);
  CHECK(round.others == 0);
}

TEST_CASE("once warm, errors, repeated queries and queries that time out allocate nothing") {
  const std::string client = "192.0.2.1";
  const std::string server = "198.51.100.53";
  Playback playback;
  for (uint16_t i = 0; i < kClients; ++i) {
    Ask(&playback, i, Query(i).Question(kName, kTxt), client, server);
    Ask(&playback, i, Query(i).Question(kName, kTxt), client, server);
  }
  for (uint16_t i = 0; i < kClients / 2; ++i) {
    Answer(&playback, i, Response(i).Question(kName, kTxt).Rcode(3), client, server);
  }
  const Round round = PlayRounds(&playback);
  CHECK(round.allocations == 0);
  CHECK(round.answered == kClients / 2);
  CHECK(round.others == kClients / 2);
}

TEST_CASE("once warm, a TCP connection costs one allocation, whatever is said on it") {
  const std::string client = "192.0.2.1";
  const std::string server = "198.51.100.53";
  Playback playback;
  for (uint16_t i = 0; i < kClients; ++i) {
    const Bytes query = ToBytes(Query(i).Question(kName, kA).TcpWire());
    const Bytes response = ToBytes(Response(i).Question(kName, kA).Answer(kName, A("192.0.2.1")).TcpWire());
    const auto up = [&](uint32_t sequence, uint8_t flags) {
      return Between(client, server).Tcp(PortOf(i), 53, {.sequence = sequence, .flags = flags});
    };
    const auto down = [&](uint32_t sequence, uint8_t flags) {
      return Between(server, client).Tcp(53, PortOf(i), {.sequence = sequence, .flags = flags});
    };
    const auto asked = static_cast<uint32_t>(query.size());
    const auto answered = static_cast<uint32_t>(response.size());
    playback.Add(up(0, kSyn), i * 1000);
    playback.Add(down(0, kSyn | kAck), i * 1000);
    playback.Add(up(1, kPush | kAck).Payload(query), i * 1000);
    playback.Add(down(1, kPush | kAck).Payload(response), i * 1000);
    playback.Add(up(1 + asked, kFin | kAck), i * 1000);
    playback.Add(down(1 + answered, kFin | kAck), i * 1000);
  }
  const Round round = PlayRounds(&playback);
  CHECK(round.allocations <= kClients);
  CHECK(round.answered == kClients);
  CHECK(round.others == 0);
}
