#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "collector/flow/hash.h"
#include "collector/flow/hash_index.h"
#include "collector/output/buffer.h"

namespace output {

// Which names had which addresses, and when: the mappings that the parser found in answers, each once. Names are in
// lower case, as those that differ in letter case only are the same (RFC 4343). Bounded: once the list is full,
// mappings that are not in it are counted and left out.
class PassiveDns {
 public:
  struct Mapping {
    std::string_view name;      // of the address
    std::string_view question;  // what was asked; empty for a reverse look-up
    int64_t first_ns = 0;
    int64_t last_ns = 0;
    uint64_t count = 0;
    uint32_t ipv4 = 0;     // in network order in memory
    bool reverse = false;  // from a PTR record
  };

  explicit PassiveDns(size_t most_mappings = size_t{1} << 20) : capacity(most_mappings) {}

  // `query_name` is null for a reverse look-up.
  void Add(const char* query_name, const char* name, uint32_t ipv4, int64_t time_ns);

  // By name, question and address.
  std::vector<const Mapping*> All() const;
  uint64_t dropped() const { return not_kept; }

 private:
  uint32_t HashOf(const Mapping& mapping) const;
  std::string_view Keep(std::string_view text);

  std::string folded_name, folded_question;  // of the mapping that is added
  size_t capacity;
  uint64_t not_kept = 0;
  std::deque<Mapping> mappings;
  flow::HashIndex index;
  flow::HashSeed seed = flow::ProcessSeed();
  std::vector<std::unique_ptr<char[]>> texts;  // of the mappings, one behind the other
  char* free_text = nullptr;
  size_t free_size = 0;
};

// One JSON object a line in the passive DNS common output format (draft-dulaunoy-dnsop-passive-dns-cof): rrname,
// rrtype, rdata, time_first, time_last (seconds since the epoch), count. `question` is added where it differs from
// rrname.
void WritePassiveDnsJson(const PassiveDns& list, Buffer* buffer);

// The same for people.
void WritePassiveDnsTable(const PassiveDns& list, Buffer* buffer);

}  // namespace output
