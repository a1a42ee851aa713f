#include "collector/output/zeek_uid.h"

#include <string_view>

namespace output {
namespace {

// Two lanes of FNV-1a, a word at a time, each stirred so that high bits reach the low ones.
class Hash {
 public:
  void Add(uint64_t word) {
    for (Lane* lane : {&first, &second}) {
      lane->state = (lane->state ^ word) * lane->factor;
      lane->state ^= lane->state >> 32;
    }
  }
  void Add(const packet::Address* address) {
    if (address == nullptr) return Add(uint64_t{0});
    uint64_t halves[2];
    static_assert(sizeof halves == sizeof address->octets);
    for (size_t i = 0; i < 2; ++i) {
      halves[i] = 0;
      for (size_t j = 0; j < 8; ++j) halves[i] = halves[i] << 8 | address->octets[8 * i + j];
      Add(halves[i]);
    }
    Add(address->version);
  }

  char* Put(char* out) const {
    constexpr int kFirstDigits = 8;
    constexpr int kSecondDigits = 9;
    return PutDigits(PutDigits(out, first.state, kFirstDigits), second.state, kSecondDigits);
  }

 private:
  struct Lane {
    uint64_t state;
    uint64_t factor;  // odd
  };

  static char* PutDigits(char* out, uint64_t number, int digits) {
    static constexpr std::string_view kDigits = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    for (int i = 0; i < digits; ++i, number /= kDigits.size()) *out++ = kDigits[number % kDigits.size()];
    return out;
  }

  Lane first{0xcbf29ce484222325, 0x9e3779b97f4a7c15};
  Lane second{0x84222325cbf29ce4, 0xd1b54a32d192ed03};
};

}  // namespace

char* PutZeekUid(char* out, const plugin::Exchange& e) {
  Hash hash;
  hash.Add(e.client);
  hash.Add(e.server);
  hash.Add(uint64_t{e.client_port} << 40 | uint64_t{e.server_port} << 24 | uint64_t{e.dns_id} << 8 | e.transport);
  hash.Add(static_cast<uint64_t>(e.query_time_ns));
  hash.Add(uint64_t{0});  // stirs the last word once more
  *out++ = 'C';
  return hash.Put(out);
}

}  // namespace output
