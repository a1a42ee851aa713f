#include "collector/output/metric_groups.h"

#include "host/request_visitor.h"

namespace output {
namespace {

// Collects what a key writes of itself.
class AttributeList : public IEventNode {
 public:
  explicit AttributeList(std::vector<std::pair<std::string, int>>* list) : attributes(list) {}
  void AddInt32(const std::string& name, int value) override { attributes->emplace_back(name, value); }

 private:
  std::vector<std::pair<std::string, int>>* attributes;
};

}  // namespace

void MetricGroups::Find(const RequestMetricSpecification* specification, const EndRequest& record) {
  found = nullptr;
  if (specification == nullptr) return;
  metrics = specification;
  const IIntermediateKey* key = specification->MakeKey(&record);
  const auto known = groups.find(key);
  if (known != groups.end()) {
    found = &known->second;
  } else if (groups.size() < kMostGroups) {
    found = &groups[key];
    AttributeList list(&found->attributes);
    key->Serialize(&list);
    key = nullptr;  // the map has it now
  } else {
    found = &others;
  }
  specification->ReleaseKey(key);
  found_for = record.request_id;
  found_failed = record.GetNumErrors() > 0;
}

void MetricGroups::Count(int32_t request_id) {
  if (found == nullptr || found_for != request_id) return;
  ++found->count;
  if (found_failed) ++found->failed;
  found = nullptr;
}

void MetricGroups::Release() {
  found = nullptr;
  while (!groups.empty()) {
    const auto node = groups.extract(groups.begin());
    metrics->ReleaseKey(node.key());
    released.push_back(std::move(node.mapped()));
  }
}

std::vector<const MetricGroups::Group*> MetricGroups::All() const {
  std::vector<const Group*> all;
  const auto add = [&](const Group& group) {
    if (group.count > 0) all.push_back(&group);
  };
  for (const Group& group : released) add(group);
  for (const auto& entry : groups) add(entry.second);
  add(others);
  return all;
}

}  // namespace output
