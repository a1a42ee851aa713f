#include "collector/output/metric_groups.h"

#include <doctest/doctest.h>

#include "host/request_visitor.h"

namespace output {
namespace {

// Keys that say two things, and a count of how many there are.
struct CountedKey : IIntermediateKey {
  CountedKey(int32_t id, int32_t code, int* number) : request(id), result(code), alive(number) { ++*alive; }
  ~CountedKey() override { --*alive; }
  bool operator<(const IIntermediateKey& other) const override {
    return result < static_cast<const CountedKey&>(other).result;
  }
  void Serialize(IEventNode* node) const override {
    node->AddInt32("First", request);
    node->AddInt32("Second", result);
  }
  int32_t request;
  int32_t result;
  int* alive;
};

struct CountingSpecification : RequestMetricSpecification {
  CountingSpecification() : RequestMetricSpecification("test", 7) {}
  const IIntermediateKey* MakeKey(const EndRequest* record) const override {
    return new CountedKey(record->request_id, record->result_code, &alive);
  }
  void ReleaseKey(const IIntermediateKey* key) const override { delete key; }
  mutable int alive = 0;
};

void Add(MetricGroups* groups, const RequestMetricSpecification& metrics, int32_t id, int32_t code,
         int errors = 0) {
  EndRequest record;
  record.request_id = id;
  record.result_code = code;
  record.num_errors = static_cast<uint8_t>(errors);
  groups->Find(&metrics, record);
  groups->Count(id);
}

TEST_CASE("records with equal keys are one group") {
  CountingSpecification metrics;
  MetricGroups groups;
  Add(&groups, metrics, 1, 3, 1);
  Add(&groups, metrics, 2, 0);
  Add(&groups, metrics, 3, 3, 0);
  const auto all = groups.All();
  REQUIRE(all.size() == 2);
  CHECK(all[0]->count == 1);
  CHECK(all[1]->count == 2);
  CHECK(all[1]->failed == 1);
  CHECK(all[1]->attributes == std::vector<std::pair<std::string, int>>{{"First", 1}, {"Second", 3}});
  groups.Release();
}

TEST_CASE("only keys of groups are kept, and Release gives those back") {
  CountingSpecification metrics;
  MetricGroups groups;
  for (int i = 0; i < 100; ++i) Add(&groups, metrics, i, i % 4);
  CHECK(metrics.alive == 4);
  groups.Release();
  CHECK(metrics.alive == 0);
  REQUIRE(groups.All().size() == 4);
  CHECK(groups.All()[3]->count == 25);
}

TEST_CASE("a record counts once, and only for its own exchange") {
  CountingSpecification metrics;
  MetricGroups groups;
  EndRequest record;
  record.request_id = 5;
  groups.Find(&metrics, record);
  groups.Count(6);
  CHECK(groups.All().empty());
  groups.Count(5);
  groups.Count(5);
  REQUIRE(groups.All().size() == 1);
  CHECK(groups.All()[0]->count == 1);
  groups.Release();
}

TEST_CASE("a parser without metrics has no groups") {
  MetricGroups groups;
  groups.Find(nullptr, EndRequest());
  groups.Count(0);
  CHECK(groups.All().empty());
}

TEST_CASE("keys without end are counted together") {
  CountingSpecification metrics;
  MetricGroups groups;
  for (int i = 0; i < 3000; ++i) Add(&groups, metrics, i, i);
  CHECK(metrics.alive == 1024);
  CHECK(groups.All().size() == 1025);
  CHECK(groups.All().back()->count == 3000 - 1024);
  CHECK(groups.All().back()->attributes.empty());
  groups.Release();
}

TEST_CASE("the DNS keys group by result code") {
  const DNSRequestMetricSpecification metrics;
  MetricGroups groups;
  for (const int code : {0, 0, 3, -1}) Add(&groups, metrics, 1, code, code == 0 ? 0 : 1);
  const auto all = groups.All();
  REQUIRE(all.size() == 3);
  CHECK(all[0]->attributes[0] == std::pair<std::string, int>("ResultCode", -1));
  CHECK(all[1]->count == 2);
  CHECK(all[1]->failed == 0);
  CHECK(all[2]->failed == 1);
  groups.Release();
}

}  // namespace
}  // namespace output
