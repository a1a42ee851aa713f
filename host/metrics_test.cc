#include "host/metrics.h"

#include <doctest/doctest.h>

#include <limits>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "host/request_visitor.h"
#include "host/requests.h"

namespace {

// Writes down what a key calls.
class RecordingNode : public IEventNode {
 public:
  void Reserved3() override { calls.emplace_back("3"); }
  void Reserved4() override { calls.emplace_back("4"); }
  void Reserved5() override { calls.emplace_back("5"); }
  void Reserved6() override { calls.emplace_back("6"); }
  void Reserved7() override { calls.emplace_back("7"); }
  void Reserved8() override { calls.emplace_back("8"); }
  void Reserved9() override { calls.emplace_back("9"); }
  void Reserved10() override { calls.emplace_back("10"); }
  void AddInt32(const std::string& name, int value) override {
    calls.push_back(name + "=" + std::to_string(value));
  }

  std::vector<std::string> calls;
};

// A key made from a record with the given result code, given back at the end.
class MadeKey {
 public:
  explicit MadeKey(int code) {
    EndRequest record;
    record.result_code = code;
    key = specification.MakeKey(&record);
  }
  MadeKey(const MadeKey&) = delete;
  MadeKey& operator=(const MadeKey&) = delete;
  ~MadeKey() { specification.ReleaseKey(key); }

  const IIntermediateKey& operator*() const { return *key; }

 private:
  DNSRequestMetricSpecification specification;
  const IIntermediateKey* key = nullptr;
};

std::vector<std::string> Serialized(int code) {
  RecordingNode node;
  (*MadeKey(code)).Serialize(&node);
  return node.calls;
}

// A key that tells when it is destroyed.
class CountedKey : public IIntermediateKey {
 public:
  explicit CountedKey(int* count) : destroyed(count) {}
  ~CountedKey() override { ++*destroyed; }
  bool operator<(const IIntermediateKey&) const override { return false; }
  void Serialize(IEventNode*) const override {}

 private:
  int* destroyed;
};

struct ByKey {
  bool operator()(const IIntermediateKey* left, const IIntermediateKey* right) const { return *left < *right; }
};

}  // namespace

TEST_CASE("the specification is named dns and has the records' id") {
  const DNSRequestMetricSpecification specification;
  CHECK(specification.name == "dns");
  CHECK(specification.spec_id == 1);
}

TEST_CASE("a key is of the record's result code and nothing else") {
  EndRequest record;
  record.result_code = 3;
  record.spec_id = 7;
  record.request_id = 8;
  record.num_errors = 9;
  record.bytes_request = 10;
  const DNSRequestMetricSpecification specification;
  const IIntermediateKey* key = specification.MakeKey(&record);
  REQUIRE(dynamic_cast<const DNSIntermediateKey*>(key) != nullptr);
  CHECK(static_cast<const DNSIntermediateKey*>(key)->result_code == 3);
  record.result_code = 5;  // the key does not follow
  CHECK(static_cast<const DNSIntermediateKey*>(key)->result_code == 3);
  specification.ReleaseKey(key);
}

TEST_CASE("each call makes a key of its own") {
  const EndRequest record;
  const DNSRequestMetricSpecification specification;
  const IIntermediateKey* first = specification.MakeKey(&record);
  const IIntermediateKey* second = specification.MakeKey(&record);
  CHECK(first != second);
  specification.ReleaseKey(first);
  specification.ReleaseKey(second);
}

TEST_CASE("keys order by result code as signed numbers") {
  const MadeKey three(3);
  const MadeKey zero(0);
  const MadeKey timed_out(-1);
  const std::set<const IIntermediateKey*, ByKey> ordered{&*three, &*zero, &*timed_out};
  CHECK(std::vector<const IIntermediateKey*>(ordered.begin(), ordered.end()) ==
        std::vector<const IIntermediateKey*>{&*timed_out, &*zero, &*three});
  CHECK(*timed_out < *zero);
  CHECK_FALSE(*zero < *timed_out);
  CHECK(*MadeKey(std::numeric_limits<int32_t>::min()) < *MadeKey(std::numeric_limits<int32_t>::max()));
}

TEST_CASE("keys of the same code are equivalent") {
  const MadeKey one(2);
  const MadeKey other(2);
  CHECK_FALSE(*one < *other);
  CHECK_FALSE(*other < *one);
}

TEST_CASE("a key writes its result code and nothing else") {
  CHECK(Serialized(0) == std::vector<std::string>{"ResultCode=0"});
  CHECK(Serialized(3) == std::vector<std::string>{"ResultCode=3"});
}

TEST_CASE("an expired query's key writes -1") {
  CHECK(Serialized(kResultTimedOut) == std::vector<std::string>{"ResultCode=-1"});
}

TEST_CASE("the code that means none is kept in the key, unlike in the record's visit") {
  CHECK(Serialized(kNoResultCode) == std::vector<std::string>{"ResultCode=2147483647"});
}

TEST_CASE("a released key is destroyed once, through its own destructor") {
  int destroyed = 0;
  const DNSRequestMetricSpecification specification;
  specification.ReleaseKey(new CountedKey(&destroyed));
  CHECK(destroyed == 1);
}

TEST_CASE("releasing no key does nothing") { DNSRequestMetricSpecification().ReleaseKey(nullptr); }

TEST_CASE("specifications and keys are destroyed through their base") {
  static_assert(std::has_virtual_destructor_v<RequestMetricSpecification>);
  static_assert(std::has_virtual_destructor_v<IIntermediateKey>);
  static_assert(std::is_abstract_v<RequestMetricSpecification>);
  static_assert(std::is_abstract_v<IIntermediateKey>);
}
