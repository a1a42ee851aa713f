// Writes a capture with known exchanges, the same for the same seed:
//
//   make_capture FILE [exchanges=100000] [seed=1] [unanswered=3] [tcp=3] [clients=20000] [rate=150000]
//
// `unanswered` and `tcp` are percentages, `rate` is queries a second. Answers come 0.2 to 80 ms after their
// queries. Ports and identifiers do not repeat soon, so each answer belongs to one query.

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <map>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "tests/support/dns_builder.h"
#include "tests/support/packet_builder.h"
#include "tests/support/pcap_writer.h"

namespace {

using Settings = std::map<std::string, uint64_t>;

struct Frame {
  int64_t time_ns;
  uint64_t order;  // frames of one instant keep the order in which they were made
  std::string bytes;

  friend bool operator>(const Frame& one, const Frame& other) {
    return one.time_ns != other.time_ns ? one.time_ns > other.time_ns : one.order > other.order;
  }
};

class Generator {
 public:
  Generator(const Settings& given, const std::string& path)
      : settings(given), random(given.at("seed")), file(path, std::ios::binary) {
    file << test::PcapWriter().Bytes();
  }

  // False when the file could not be written.
  bool Run() {
    for (uint64_t i = 0; i < settings["exchanges"]; ++i) {
      now_ns += static_cast<int64_t>(std::exponential_distribution<>(1.0)(random) * 1e9 /
                                     static_cast<double>(settings["rate"]));
      WriteUntil(now_ns);
      Exchange(i);
    }
    WriteUntil(INT64_MAX);
    file.flush();
    return file.good();
  }

 private:
  uint64_t Below(uint64_t limit) { return random() % limit; }
  bool Chance(const char* percentage) { return Below(100) < settings[percentage]; }

  // Few names are asked for often, many once.
  std::string MakeName() {
    const uint64_t rank = uint64_t{1} << Below(18);
    const uint64_t which = rank + Below(rank);
    static const char* const kTops[] = {"com", "net", "org", "example", "co.test"};
    return std::string(1 + which % 3, 'w') + ".host" + std::to_string(which) + "." + kTops[which % 5];
  }

  void Exchange(uint64_t index) {
    const uint64_t who = Below(settings["clients"]);
    const std::string client =
        "10." + std::to_string(who >> 16) + "." + std::to_string(who >> 8 & 255) + "." + std::to_string(who & 255);
    const std::string server = "192.0.2." + std::to_string(1 + Below(8));
    const auto port = static_cast<uint16_t>(1024 + index % 64000);
    const auto id = static_cast<uint16_t>(random());
    const int64_t answer_ns = now_ns + 200'000 + static_cast<int64_t>(Below(80'000'000));
    const std::string name = MakeName();
    test::Message query = test::Query(id).Question(name, TypeOf(index));
    if (index % 10 < 6) query.Additional(test::Opt());
    const test::Message response = Answer(id, name, index);
    if (Chance("tcp")) {
      Tcp(client, server, port, query.TcpWire(), response.TcpWire(), answer_ns);
    } else {
      Add(now_ns, Udp(client, server, port, 53, query.Wire()));
      if (!Chance("unanswered")) Add(answer_ns, Udp(server, client, 53, port, response.Wire()));
    }
  }

  static uint16_t TypeOf(uint64_t index) {
    static constexpr uint16_t kTypes[] = {test::kA, test::kA,     test::kA,    test::kAaaa, test::kA,
                                          test::kA, test::kHttps, test::kAaaa, test::kMx,   test::kPtr};
    return kTypes[index % 10];
  }

  test::Message Answer(uint16_t id, const std::string& name, uint64_t index) {
    test::Message response = test::Response(id).Compressed().Question(name, TypeOf(index));
    if (Below(10) == 0) return response.Rcode(3);
    switch (TypeOf(index)) {
      case test::kA:
        response.Answer(name, test::A("198.51.100." + std::to_string(Below(256))));
        return Below(2) == 0 ? response : response.Answer(name, test::A("203.0.113.7"));
      case test::kAaaa:
        return response.Answer(name, test::Aaaa("2001:db8::" + std::to_string(Below(9999))));
      case test::kMx:
        return response.Answer(name, test::Mx(10, "mail." + name));
      case test::kPtr:
        return response.Answer(name, test::Ptr("host." + name));
      default:
        return response;
    }
  }

  static std::string Udp(const std::string& from, const std::string& to, uint16_t source, uint16_t destination,
                         const std::string& message) {
    return Text(test::Ethernet().Ipv4(from, to).Udp(source, destination).Payload(test::ToBytes(message)));
  }

  void Tcp(const std::string& client, const std::string& server, uint16_t port, const std::string& query,
           const std::string& response, int64_t answer_ns) {
    const auto segment = [](const std::string& from, const std::string& to, uint16_t source, uint16_t destination,
                            uint32_t sequence, uint8_t flags, const std::string& bytes) {
      return Text(test::Ethernet()
                      .Ipv4(from, to)
                      .Tcp(source, destination, {.sequence = sequence, .flags = flags})
                      .Payload(test::ToBytes(bytes)));
    };
    constexpr uint8_t kData = test::kPush | test::kAck;
    const auto asked = static_cast<uint32_t>(query.size());
    const auto answered = static_cast<uint32_t>(response.size());
    Add(now_ns, segment(client, server, port, 53, 0, test::kSyn, ""));
    Add(now_ns, segment(server, client, 53, port, 0, test::kSyn | test::kAck, ""));
    Add(now_ns, segment(client, server, port, 53, 1, kData, query));
    Add(answer_ns, segment(server, client, 53, port, 1, kData, response));
    Add(answer_ns, segment(client, server, port, 53, 1 + asked, test::kFin | test::kAck, ""));
    Add(answer_ns, segment(server, client, 53, port, 1 + answered, test::kFin | test::kAck, ""));
    Add(answer_ns, segment(client, server, port, 53, 2 + asked, test::kAck, ""));
  }

  template <typename Packet>
  static std::string Text(Packet&& packet) {
    const test::Bytes bytes = packet.Frame();
    return {bytes.begin(), bytes.end()};
  }

  void Add(int64_t time_ns, std::string bytes) { pending.push({time_ns, made++, std::move(bytes)}); }

  void WriteUntil(int64_t time_ns) {
    while (!pending.empty() && pending.top().time_ns <= time_ns) {
      const Frame& frame = pending.top();
      for (const uint32_t word :
           {static_cast<uint32_t>(frame.time_ns / 1'000'000'000),
            static_cast<uint32_t>(frame.time_ns / 1000 % 1'000'000), static_cast<uint32_t>(frame.bytes.size()),
            static_cast<uint32_t>(frame.bytes.size())}) {
        file.write(reinterpret_cast<const char*>(&word), sizeof word);
      }
      file << frame.bytes;
      pending.pop();
    }
  }

  Settings settings;
  std::mt19937_64 random;
  std::ofstream file;
  int64_t now_ns = 1'700'000'000'000'000'000;
  uint64_t made = 0;
  std::priority_queue<Frame, std::vector<Frame>, std::greater<>> pending;
};

// False when the argument is not KEY=NUMBER with a known key.
bool Set(Settings* settings, const std::string& argument) {
  const size_t equals = argument.find('=');
  if (equals == std::string::npos) return false;
  const auto found = settings->find(argument.substr(0, equals));
  if (found == settings->end()) return false;
  const char* end = argument.data() + argument.size();
  const auto [stop, error] = std::from_chars(argument.data() + equals + 1, end, found->second);
  return error == std::errc() && stop == end;
}

}  // namespace

int main(int argc, char** argv) {
  Settings settings{{"exchanges", 100000}, {"seed", 1},     {"unanswered", 3}, {"tcp", 3},
                    {"clients", 20000},    {"rate", 150000}};
  bool understood = argc >= 2;
  for (int i = 2; i < argc; ++i) understood = understood && Set(&settings, argv[i]);
  if (!understood || settings["clients"] == 0 || settings["rate"] == 0) {
    std::fprintf(stderr,
                 "usage: make_capture FILE [exchanges=N] [seed=N] [unanswered=PERCENT] [tcp=PERCENT] "
                 "[clients=N] [rate=N]\n");
    return 2;
  }
  if (!Generator(settings, argv[1]).Run()) {
    std::fprintf(stderr, "make_capture: %s: cannot be written\n", argv[1]);
    return 1;
  }
  return 0;
}
