#include "collector/output/passive_dns.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>

#include "collector/output/keys.h"
#include "collector/output/text.h"

namespace output {
namespace {

using Mapping = PassiveDns::Mapping;

char* PutIpv4(char* out, uint32_t ipv4, bool backwards) {
  packet::Address address;
  address.version = 4;
  std::memcpy(address.octets.data(), &ipv4, sizeof ipv4);
  if (backwards) std::reverse(address.octets.begin(), address.octets.begin() + 4);
  return PutAddress(out, address);
}

std::string AddressText(uint32_t ipv4) {
  char text[kLongestAddress];
  return std::string(text, PutIpv4(text, ipv4, false));
}

int64_t Seconds(int64_t time_ns) {
  const int64_t whole = time_ns / 1000000000;
  return time_ns % 1000000000 < 0 ? whole - 1 : whole;
}

// Room for everything in a line but its two names.
constexpr size_t kRoomForFixedFields = 512;

char* PutJson(char* out, const Mapping& mapping) {
  const auto put_name = [&](std::string_view name) { out = PutBytes(out, name, Style::kJson); };
  const auto put = [&](std::string_view text) { out = PutText(out, text); };
  put(R"({"rrname":")");
  if (mapping.reverse) {
    out = PutIpv4(out, mapping.ipv4, true);
    put(R"(.in-addr.arpa","rrtype":"PTR","rdata":")");
    put_name(mapping.name);
  } else {
    put_name(mapping.name);
    put(R"(","rrtype":"A","rdata":")");
    out = PutIpv4(out, mapping.ipv4, false);
  }
  put(R"(","time_first":)");
  out = PutInteger(out, Seconds(mapping.first_ns));
  put(R"(,"time_last":)");
  out = PutInteger(out, Seconds(mapping.last_ns));
  put(R"(,"count":)");
  out = PutInteger(out, static_cast<int64_t>(mapping.count));
  if (!mapping.reverse && mapping.question != mapping.name) {
    put(R"(,"question":")");
    put_name(mapping.question);
    put(R"(")");
  }
  put("}\n");
  return out;
}

// Where a mapping goes in the list. Nearly all comparisons end at the first eight letters of the name, which need
// no look at the name itself.
struct Position {
  explicit Position(const Mapping& at) : mapping(&at) {
    for (size_t i = 0; i < sizeof letters; ++i) {
      letters = letters << 8 | (i < at.name.size() ? static_cast<uint8_t>(at.name[i]) : 0U);
    }
  }
  bool operator<(const Position& other) const {
    if (letters != other.letters) return letters < other.letters;
    const auto order = [](const Mapping& m) { return std::tie(m.name, m.question, m.reverse, m.ipv4); };
    return order(*mapping) < order(*other.mapping);
  }

  uint64_t letters = 0;
  const Mapping* mapping;
};

constexpr size_t kTextBlock = size_t{1} << 16;

}  // namespace

void PassiveDns::Add(const char* query_name, const char* name, uint32_t ipv4, int64_t time_ns) {
  const bool reverse = query_name == nullptr;
  FoldName(name, &folded_name);
  FoldName(reverse ? "" : query_name, &folded_question);
  Mapping added{folded_name, folded_question, time_ns, time_ns, 1, ipv4, reverse};
  const uint32_t hash = HashOf(added);
  const uint32_t known = index.Find(hash, [&](uint32_t number) {
    const Mapping& m = mappings[number];
    return m.ipv4 == ipv4 && m.reverse == reverse && m.name == added.name && m.question == added.question;
  });
  if (known != flow::HashIndex::kNone) {
    Mapping& mapping = mappings[known];
    mapping.first_ns = std::min(mapping.first_ns, time_ns);
    mapping.last_ns = std::max(mapping.last_ns, time_ns);
    ++mapping.count;
  } else if (mappings.size() >= capacity) {
    ++not_kept;
  } else {
    const bool same_name = added.name == added.question;
    added.name = Keep(added.name);
    added.question = same_name ? added.name : Keep(added.question);
    mappings.push_back(added);
    index.Insert(hash, static_cast<uint32_t>(mappings.size() - 1));
  }
}

uint32_t PassiveDns::HashOf(const Mapping& mapping) const {
  const uint64_t salt = uint64_t{mapping.ipv4} << 1 | (mapping.reverse ? 1U : 0U);
  return flow::Fold(flow::HashText(mapping.question, seed, flow::HashText(mapping.name, seed, salt)));
}

std::string_view PassiveDns::Keep(std::string_view text) {
  if (text.size() > free_size) {
    free_size = std::max(kTextBlock, text.size());
    texts.push_back(std::make_unique<char[]>(free_size));
    free_text = texts.back().get();
  }
  std::copy(text.begin(), text.end(), free_text);
  const std::string_view kept(free_text, text.size());
  free_text += text.size();
  free_size -= text.size();
  return kept;
}

std::vector<const Mapping*> PassiveDns::All() const {
  std::vector<Position> order;
  order.reserve(mappings.size());
  for (const Mapping& mapping : mappings) order.emplace_back(mapping);
  std::sort(order.begin(), order.end());
  std::vector<const Mapping*> all;
  all.reserve(order.size());
  for (const Position& position : order) all.push_back(position.mapping);
  return all;
}

void WritePassiveDnsJson(const PassiveDns& list, Buffer* buffer) {
  for (const Mapping* mapping : list.All()) {
    const size_t names = (mapping->name.size() + mapping->question.size()) * kLongestEscape;
    buffer->Commit(PutJson(buffer->Room(kRoomForFixedFields + names), *mapping));
  }
}

void WritePassiveDnsTable(const PassiveDns& list, Buffer* buffer) {
  size_t widest = std::strlen("NAME");
  const std::vector<const Mapping*> all = list.All();
  for (const Mapping* mapping : all)
    widest = std::max(widest, std::min<size_t>(Printable(mapping->name).size(), 64));
  const auto padded = [](std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text + " ";
  };
  buffer->Write(padded("NAME", widest) + padded("ADDRESS", 15) + padded("FIRST SEEN (UTC)", 19) +
                padded("LAST SEEN", 19) + padded("COUNT", 7) + "QUESTION\n");
  for (const Mapping* mapping : all) {
    buffer->Write(padded(Printable(mapping->name), widest) + padded(AddressText(mapping->ipv4), 15) +
                  padded(TimeText(mapping->first_ns).substr(0, 19), 19) +
                  padded(TimeText(mapping->last_ns).substr(0, 19), 19) + padded(std::to_string(mapping->count), 7) +
                  (mapping->reverse ? "(reverse)" : Printable(mapping->question)) + "\n");
  }
}

}  // namespace output
