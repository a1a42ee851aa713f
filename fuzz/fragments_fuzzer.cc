// IP fragments in any order, overlapping, contradicting, late. As long as they agree with each other, what is put
// together consists of the right bytes.

#include <algorithm>
#include <string>

#include "collector/packet/fragments.h"
#include "fuzz/draw.h"
#include "fuzz/target.h"

namespace fuzz {
namespace {

constexpr uint32_t kLargestPacket = 65535;

// What a packet of this number has at this place.
uint8_t TrueByte(uint32_t id, uint32_t at) { return static_cast<uint8_t>(at * 7 + at / 256 + id * 31); }

class Bench {
 public:
  explicit Bench(Draw* input) {
    limits.max_packets = 1 + input->U8() % 8;
    limits.max_pieces = 1 + input->U8() % 16;
    limits.max_bytes = 512 + input->U16();
    truthful = input->Flag();
  }

  void Run(Draw* input) {
    packet::Fragments fragments(limits);
    while (!input->Empty()) {
      const uint8_t bits = input->U8();
      now_ns += int64_t{input->U8()} * 20'000'000;
      if ((bits & 0x80) != 0) now_ns -= 1'000'000'000;
      fragments.Advance(now_ns);
      TakeAll(&fragments);
      Add(&fragments, bits, input);
      TakeAll(&fragments);
      Check(fragments);
    }
    fragments.ExpireAll();
    TakeAll(&fragments);
    Check(fragments);
    Must(fragments.Held() == 0, "nothing is held after the end");
  }

 private:
  void Add(packet::Fragments* fragments, uint8_t bits, Draw* input) {
    packet::FragmentKey key;
    key.source.version = key.destination.version = (bits & 1) != 0 ? 6 : 4;
    key.id = bits >> 1 & 3;
    key.protocol = key.source.version == 4 ? 17 : 0;
    packet::Fragment fragment;
    // Mostly small, so that fragments meet.
    const bool large = (bits & 64) != 0;
    fragment.offset = (large ? input->U16() & 0x1fffU : input->U8() & 0x0fU) * 8;
    fragment.more = (bits & 8) != 0;
    fragment.protocol = 17;
    uint32_t size = large ? input->U16() : input->U8();
    if (fragment.more) size &= ~7U;
    if (size == 0 || size > kLargestPacket - fragment.offset) return;  // never asked of the store
    const uint32_t cut = (bits & 16) != 0 ? input->U8() : 0;
    std::string bytes(size - std::min(cut, size), '\0');
    for (uint32_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<char>(TrueByte(key.id, fragment.offset + i));
    }
    if (!truthful && !bytes.empty()) {
      const uint8_t flipped = input->U8();
      char& lie = bytes[input->U8() % bytes.size()];
      lie = static_cast<char>(lie ^ flipped);
    }
    const Captured block(bytes);
    fragment.bytes = {block.data(), static_cast<uint32_t>(bytes.size()), size};
    packet::Reassembled whole;
    if (!fragments->Add(key, fragment, now_ns, &whole)) return;
    Must(whole.key == key, "a fragment completes its own packet");
    Must(!whole.open_ended, "a packet that is whole has an end");
    CheckBytes(whole);
    ++completed;
  }

  void TakeAll(packet::Fragments* fragments) {
    packet::Reassembled beginning;
    while (fragments->TakeGivenUp(&beginning)) CheckBytes(beginning);
  }

  void CheckBytes(const packet::Reassembled& packet) const {
    Must(packet.payload.captured <= packet.payload.nominal, "no more is captured than there was");
    [[maybe_unused]] const volatile uint8_t behind = packet.payload.data[packet.payload.captured];
    for (uint32_t i = 0; i < packet.payload.captured; ++i) {
      if (!truthful) continue;
      Must(packet.payload.data[i] == TrueByte(packet.key.id, i), "each byte stands where it was sent");
    }
  }

  void Check(const packet::Fragments& fragments) const {
    const packet::FragmentCounts& c = fragments.counts;
    Must(c.fragments == c.joined + c.repeated + c.inconsistent + c.expired + c.dropped + fragments.Held(),
         "every fragment is counted once");
    Must(c.reassembled == completed, "every packet that is put together is handed out");
    // The last fragment may bring nothing but the packet's end.
    Must(fragments.Held() <= limits.max_packets * (limits.max_pieces + 1), "no more is held than may be");
  }

  packet::FragmentLimits limits;
  bool truthful = false;
  int64_t now_ns = 1'700'000'000'000'000'000;
  uint64_t completed = 0;
};

}  // namespace
}  // namespace fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Draw input(data, size);
  fuzz::Bench bench(&input);
  bench.Run(&input);
  return 0;
}
