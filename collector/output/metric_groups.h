#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/metrics.h"
#include "host/requests.h"

namespace output {

// Exchanges counted by the plug-in's own keys. The keys live in the plug-in: Release gives them back and has to be
// called while it is loaded; what happens afterwards, or without it, touches none of them.
class MetricGroups {
 public:
  struct Group {
    std::vector<std::pair<std::string, int>> attributes;  // what the key says of itself
    uint64_t count = 0;
    uint64_t failed = 0;  // by the records' own error counts
  };

  // Remembers the group of the exchange that this record belongs to.
  void Find(const RequestMetricSpecification* specification, const EndRequest& record);

  // The remembered exchange counts, if it is this one.
  void Count(int32_t request_id);

  void Release();

  // In the order of the keys. A last group without attributes holds what found no room.
  std::vector<const Group*> All() const;

 private:
  struct Before {
    bool operator()(const IIntermediateKey* a, const IIntermediateKey* b) const { return *a < *b; }
  };
  using Groups = std::map<const IIntermediateKey*, Group, Before>;

  static constexpr size_t kMostGroups = 1024;

  const RequestMetricSpecification* metrics = nullptr;
  Groups groups;
  Group others;
  std::vector<Group> released;  // groups whose keys have been given back

  Group* found = nullptr;
  int32_t found_for = 0;
  bool found_failed = false;
};

}  // namespace output
