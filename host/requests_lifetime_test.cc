#include <doctest/doctest.h>

#include <functional>
#include <memory>
#include <string>
#include <typeinfo>
#include <utility>

#include "host/requests.h"

// What records own: each list and block is released once, in the contract's order.

namespace {

// Does something when it is destroyed.
class LastWord : public KeyValueItem {
 public:
  explicit LastWord(std::function<void()> last) : word(std::move(last)) {}
  ~LastWord() override { word(); }
  void Visit(RequestVisitor*) override {}

 private:
  std::function<void()> word;
};

std::unique_ptr<LastWord> Saying(std::string* said, const char* text) {
  return std::make_unique<LastWord>([=] { said->append(text); });
}

}  // namespace

TEST_CASE("a record without extra attributes has no list") {
  EndRequest record;
  CHECK(record.GetKeyValueListIfExisting() == nullptr);
  BeginRequest begin;
  CHECK(begin.GetKeyValueListIfExisting() == nullptr);
}

TEST_CASE("a record hands out its list of extra attributes as it is") {
  EndRequest record;
  record.key_values = std::make_unique<KeyValueList>();
  CHECK(record.GetKeyValueListIfExisting() == record.key_values.get());
  record.GetKeyValueListIfExisting()->push_back(nullptr);
  CHECK(record.key_values->size() == 1);
}

TEST_CASE("the extra items go before the extra attributes, each once and in order") {
  std::string said;
  {
    EndRequest record;
    record.key_values = std::make_unique<KeyValueList>();
    record.key_values->push_back(Saying(&said, "key1 "));
    record.key_values->push_back(Saying(&said, "key2 "));
    record.extra_items = std::make_unique<KeyValueList>();
    record.extra_items->push_back(Saying(&said, "extra1 "));
    record.extra_items->push_back(Saying(&said, "extra2 "));
    CHECK(said.empty());
  }
  CHECK(said == "extra1 extra2 key1 key2 ");
}

TEST_CASE("the stitching block is still there when the extra items go") {
  bool stitched = false;
  {
    EndRequest record;
    record.AddFbsId("id", 3);
    record.extra_items = std::make_unique<KeyValueList>();
    record.extra_items->push_back(std::make_unique<LastWord>(
        [&] { stitched = record.stitching != nullptr && record.stitching->ids.at(0) == "id"; }));
  }
  CHECK(stitched);
}

TEST_CASE("the strings are gone before the extra items go") {
  bool only_a_plain_record_left = false;
  {
    ExtendedEndRequest record;
    record.AddString("key", "value");
    record.extra_items = std::make_unique<KeyValueList>();
    const EndRequest& plain = record;
    record.extra_items->push_back(
        std::make_unique<LastWord>([&] { only_a_plain_record_left = typeid(plain) == typeid(EndRequest); }));
  }
  CHECK(only_a_plain_record_left);
}

TEST_CASE("a begin record releases its extra attributes") {
  std::string said;
  {
    BeginRequest record;
    record.key_values = std::make_unique<KeyValueList>();
    record.key_values->push_back(Saying(&said, "key "));
  }
  CHECK(said == "key ");
}

TEST_CASE("lists may hold empty places") {
  std::string said;
  {
    EndRequest record;
    record.key_values = std::make_unique<KeyValueList>();
    record.key_values->push_back(nullptr);
    record.key_values->push_back(Saying(&said, "key "));
    record.extra_items = std::make_unique<KeyValueList>();
    record.extra_items->push_back(nullptr);
    record.extra_items->push_back(Saying(&said, "extra "));
  }
  CHECK(said == "extra key ");
}

TEST_CASE("a record destroyed through its base releases all it has") {
  std::string said;
  auto extended = std::make_unique<ExtendedEndRequest>();
  extended->AddFbsId("a long enough identifier to be on the heap", 1);
  extended->AddString("a long enough key to be on the heap", "a long enough value to be on the heap");
  extended->extra_items = std::make_unique<KeyValueList>();
  extended->extra_items->push_back(Saying(&said, "extra "));
  std::unique_ptr<Request> base = std::move(extended);
  base.reset();
  CHECK(said == "extra ");
}

TEST_CASE("the pattern is borrowed") {
  const std::string pattern = "A - IPv4 address lookup, and some more to be on the heap";
  {
    EndRequest record;
    record.request_pattern = pattern.c_str();
    BeginRequest begin;
    begin.request_pattern = pattern.c_str();
  }
  CHECK(pattern.ends_with("heap"));
}
