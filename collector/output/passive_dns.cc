#include "collector/output/passive_dns.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <tuple>

#include "collector/output/text.h"

namespace output {
namespace {

using Mapping = PassiveDns::Mapping;

std::string AddressText(uint32_t ipv4, bool backwards) {
  packet::Address address;
  address.version = 4;
  std::memcpy(address.octets.data(), &ipv4, sizeof ipv4);
  if (backwards) std::reverse(address.octets.begin(), address.octets.begin() + 4);
  char text[kLongestAddress];
  return std::string(text, PutAddress(text, address));
}

int64_t Seconds(int64_t time_ns) {
  const int64_t whole = time_ns / 1000000000;
  return time_ns % 1000000000 < 0 ? whole - 1 : whole;
}

std::string JsonLine(const Mapping& mapping) {
  nlohmann::ordered_json json;
  if (mapping.reverse) {
    json["rrname"] = AddressText(mapping.ipv4, true) + ".in-addr.arpa";
    json["rrtype"] = "PTR";
    json["rdata"] = Printable(mapping.name);
  } else {
    json["rrname"] = Printable(mapping.name);
    json["rrtype"] = "A";
    json["rdata"] = AddressText(mapping.ipv4, false);
  }
  json["time_first"] = Seconds(mapping.first_ns);
  json["time_last"] = Seconds(mapping.last_ns);
  json["count"] = mapping.count;
  if (!mapping.reverse && mapping.question != mapping.name) json["question"] = Printable(mapping.question);
  return json.dump() + "\n";
}

}  // namespace

void PassiveDns::Add(const char* query_name, const char* name, uint32_t ipv4, int64_t time_ns) {
  // Texts end at their first zero byte, so that zeros keep the three parts apart.
  key.assign(reinterpret_cast<const char*>(&ipv4), sizeof ipv4);
  key.append(name).append(1, '\0').append(query_name == nullptr ? "" : query_name);
  if (query_name == nullptr) key.append(1, '\0');
  auto found = mappings.find(key);
  if (found == mappings.end()) {
    if (mappings.size() >= capacity) {
      ++not_kept;
      return;
    }
    const bool reverse = query_name == nullptr;
    found =
        mappings.emplace(key, Mapping{name, reverse ? "" : query_name, ipv4, reverse, time_ns, time_ns, 0}).first;
  }
  Mapping& mapping = found->second;
  mapping.first_ns = std::min(mapping.first_ns, time_ns);
  mapping.last_ns = std::max(mapping.last_ns, time_ns);
  ++mapping.count;
}

std::vector<const Mapping*> PassiveDns::All() const {
  std::vector<const Mapping*> all;
  for (const auto& entry : mappings) all.push_back(&entry.second);
  std::sort(all.begin(), all.end(), [](const Mapping* a, const Mapping* b) {
    const auto order = [](const Mapping& m) { return std::tie(m.name, m.question, m.reverse, m.ipv4); };
    return order(*a) < order(*b);
  });
  return all;
}

void WritePassiveDnsJson(const PassiveDns& list, Buffer* buffer) {
  for (const Mapping* mapping : list.All()) buffer->Write(JsonLine(*mapping));
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
    buffer->Write(padded(Printable(mapping->name), widest) + padded(AddressText(mapping->ipv4, false), 15) +
                  padded(TimeText(mapping->first_ns).substr(0, 19), 19) +
                  padded(TimeText(mapping->last_ns).substr(0, 19), 19) + padded(std::to_string(mapping->count), 7) +
                  (mapping->reverse ? "(reverse)" : Printable(mapping->question)) + "\n");
  }
}

}  // namespace output
