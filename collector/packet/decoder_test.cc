#include "collector/packet/decoder.h"

#include <doctest/doctest.h>

#include <cstdlib>
#include <filesystem>
#include <set>

#include "collector/capture/open.h"
#include "tests/support/decode_frame.h"

using namespace test;
using packet::Outcome;

namespace {

struct Rich {
  uint16_t link_type;
  Bytes frame;
};

// Frames that between them go through every decoder.
std::vector<Rich> RichFrames() {
  const auto outer = [] { return Ethernet().Ipv4(kTunnel4From, kTunnel4To); };
  Packet vxlan = Ethernet().Vlan(5).Ipv4(kTunnel4From, kTunnel4To).Udp(50000, 4789).Vxlan(7).Ethernet();
  Packet geneve = Ethernet().Ipv6(kTunnel6From, kTunnel6To).Udp(50000, 6081).Geneve(7, 8).Ethernet().Vlan(9);
  const Bytes gtp_extension{0, 9, 0, 0x85, 1, 0xaa, 0xbb, 0};
  Packet gtp = outer().Udp(50000, 2152).Gtp(1).Set8(0, 0x36).Payload(gtp_extension);
  const GreFields gre{.checksum = true, .has_key = true, .key = 3, .has_sequence = true};
  Packet extensions = Ethernet().Ipv6(kClient6, kServer6).HopByHop().DestinationOptions(16).Routing();
  Bytes pktap(108);
  pktap[0] = 108;
  pktap[4] = pktap[8] = 1;
  return {
      {1, Query4(Ethernet().Snap()).Frame()},
      {1, Query6(Ethernet().Pppoe(9)).Frame()},
      {1, Query4(Ethernet().Mpls(16).Mpls(17).ControlWord().Ethernet()).Frame()},
      {1, Query4(vxlan).Frame()},
      {1, Query6(geneve).Frame()},
      {1, Query6(gtp).Frame()},
      {1, Query6(outer().Udp(50000, 3544).Payload(Bytes{0, 0, 1, 2, 3, 4, 5, 6})).Frame()},
      {1, Query4(outer().Gre(gre).Ethernet()).Frame()},
      {1, Query4(outer().GreWithPpp(7).Ppp(true)).Frame()},
      {1, Query4(outer().Gre({.has_sequence = true}).Erspan3(true).Ethernet()).Frame()},
      {1, Query6(outer()).Frame()},
      {1, extensions.Authentication().FragmentHeader(1, 0, false).Udp(40000, 53).Text("query").Frame()},
      {1,
       Ethernet().Ipv4(kClient4, kServer4, Bytes(8, 1)).Tcp(1, 53, {.options = Bytes(12, 1)}).Text("ab").Frame()},
      {0, Query6(Null()).Frame()},
      {9, Query4(Ppp()).Frame()},
      {105, Query4(Wifi({.from_ds = true, .qos = true, .order = true}).Snap()).Frame()},
      {113, Query4(LinuxCooked().Vlan(3)).Frame()},
      {127, Query6(Radiotap(0, 2).Wifi({.qos = true}).Snap()).Frame()},
      {192, Query4(RawIp().Payload(Bytes{0, 0, 8, 0, 1, 0, 0, 0}).Ethernet()).Frame()},
      {239, Query4(Nflog(2)).Frame()},
      {258, Query4(RawIp().Payload(pktap).Ethernet()).Frame()},
      {276, Query6(LinuxCooked2()).Frame()},
  };
}

// Payloads lie within what the decoder holds: the checks of a sanitizer look at each byte.
void CheckDatagram(const Decoded& decoded) {
  if (decoded.outcome != Outcome::kDatagram) return;
  CHECK(decoded.datagram.captured <= decoded.datagram.nominal);
  CHECK((decoded.datagram.source.version == 4 || decoded.datagram.source.version == 6));
  CHECK((decoded.datagram.transport == 6 || decoded.datagram.transport == 17));
}

}  // namespace

TEST_CASE("rich frames are datagrams") {
  for (const Rich& rich : RichFrames()) {
    CAPTURE(rich.link_type);
    CHECK(Decode(rich.frame, {.link_type = rich.link_type}).outcome == Outcome::kDatagram);
  }
}

TEST_CASE("each prefix of a rich frame is a cut datagram or truncated, never malformed") {
  for (const Rich& rich : RichFrames()) {
    const auto size = static_cast<uint32_t>(rich.frame.size());
    for (uint32_t cut = 1; cut <= size; ++cut) {
      CAPTURE(rich.link_type);
      CAPTURE(size - cut);
      const Decoded decoded = Decode(rich.frame, {.link_type = rich.link_type, .cut = cut});
      CheckDatagram(decoded);
      CHECK(decoded.outcome != Outcome::kMalformed);
      CHECK(decoded.outcome != Outcome::kTooDeep);
      if (decoded.outcome == Outcome::kDatagram) CHECK(decoded.datagram.captured < decoded.datagram.nominal);
    }
  }
}

TEST_CASE("each rich frame that ends early on the wire has an outcome") {
  for (const Rich& rich : RichFrames()) {
    for (size_t size = 0; size < rich.frame.size(); ++size) {
      const Bytes prefix(rich.frame.begin(), rich.frame.begin() + static_cast<std::ptrdiff_t>(size));
      const Decoded decoded = Decode(prefix, {.link_type = rich.link_type});
      CHECK(decoded.outcome < Outcome::kCount);
      CheckDatagram(decoded);
    }
  }
}

TEST_CASE("no change of a single byte of a rich frame does harm") {
  for (const Rich& rich : RichFrames()) {
    for (size_t at = 0; at < rich.frame.size(); ++at) {
      Bytes frame = rich.frame;
      for (int value = 0; value < 256; ++value) {
        frame[at] = static_cast<uint8_t>(value);
        const Decoded decoded = Decode(frame, {.link_type = rich.link_type});
        if (decoded.outcome >= Outcome::kCount) FAIL("no outcome");
        if (decoded.datagram.captured > decoded.datagram.nominal) FAIL("more captured than there is");
      }
    }
  }
}

TEST_CASE("a frame leaves nothing behind for the next one") {
  packet::Decoder decoder;
  packet::Datagram datagram;
  const auto decode = [&](const Bytes& frame) {
    const auto size = static_cast<uint32_t>(frame.size());
    return decoder.Decode({.data = frame.data(), .captured = size, .wire = size, .link_type = 1}, &datagram);
  };
  const char* const full = "2001:1db8:3333:4444:5555:6666:7777:8888";
  const Bytes rich =
      Ethernet().Vlan(5).Ipv4(kTunnel4From, kTunnel4To).Gre().Ipv6(full, full).Udp(40000, 53).Text("query").Frame();
  const Bytes plain = Query4(Ethernet()).Frame();
  REQUIRE(decode(rich) == Outcome::kDatagram);
  REQUIRE(decode(plain) == Outcome::kDatagram);
  CHECK(datagram.encapsulation == packet::Encapsulation{});
  CHECK(ToText(datagram.source) == kClient4);
  CHECK(std::all_of(datagram.source.octets.begin() + 4, datagram.source.octets.end(),
                    [](uint8_t octet) { return octet == 0; }));
}

TEST_CASE("captures of the corpus decode to their ends") {
  const char* corpus = std::getenv("DNSPAIR_CORPUS");  // NOLINT(concurrency-mt-unsafe): one thread
  if (corpus == nullptr) {
    MESSAGE("skipped: DNSPAIR_CORPUS is not set");
    return;
  }
  size_t datagrams = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(corpus)) {
    if (!entry.is_regular_file() || entry.path().extension() == ".tsv" || entry.path().extension() == ".md")
      continue;
    const auto source = capture::OpenFile(entry.path(), 0);
    packet::Decoder decoder;
    std::span<const capture::Frame> frames;
    uint64_t fragments = 0;
    while (source->Read(&frames) == capture::ReadState::kFrames) {
      for (const capture::Frame& frame : frames) {
        const Bytes bytes(frame.data, frame.data + frame.captured);
        const Decoded decoded =
            DecodeWith(&decoder, bytes, {.link_type = frame.link_type, .time_ns = frame.time_ns});
        CheckDatagram(decoded);
        datagrams += decoded.outcome == Outcome::kDatagram ? 1 : 0;
        fragments += decoded.outcome == Outcome::kFragment ? 1 : 0;
      }
    }
    decoder.Flush();
    CHECK(decoder.fragments().fragments >= fragments);
  }
  CHECK(datagrams > 0);
}
