#include "dns-parser/record_strings.h"

#include <doctest/doctest.h>

#include <map>
#include <string>

#include "host/requests.h"

// The texts that end records lend from the parser.

namespace {

using Strings = std::map<std::string, std::string>;

constexpr const char* kKeys[] = {"Names", "NumRRSIGRecords", "Response"};
constexpr unsigned kCombinations = 1U << std::size(kKeys);

// Which keys a record has, one in each bit, and `mark` in every text.
Strings Wanted(unsigned keys, const std::string& mark) {
  Strings wanted;
  for (unsigned key = 0; key < std::size(kKeys); ++key) {
    if ((keys >> key & 1) != 0) wanted[kKeys[key]] = mark + kKeys[key];
  }
  return wanted;
}

// What a record holds while it is lent these texts.
Strings Lend(RecordStrings* strings, Strings wanted) {
  for (unsigned key = 0; key < std::size(kKeys); ++key)
    strings->Set(static_cast<RecordStrings::Key>(key), wanted[kKeys[key]]);
  ExtendedEndRequest record;
  const RecordStrings::Loan loan(strings, &record);
  return record.strings;
}

}  // namespace

TEST_CASE("a record has its own texts, whichever the one before it had") {
  for (unsigned before = 0; before < kCombinations; ++before) {
    for (unsigned after = 0; after < kCombinations; ++after) {
      RecordStrings strings;
      CHECK(Lend(&strings, Wanted(before, "old")) == Wanted(before, "old"));
      CHECK(Lend(&strings, Wanted(after, "new")) == Wanted(after, "new"));
      CHECK(Lend(&strings, Wanted(kCombinations - 1, "last")) == Wanted(kCombinations - 1, "last"));
    }
  }
}

TEST_CASE("what a host does to a record's texts does not reach the next record") {
  const Strings all = Wanted(kCombinations - 1, "its ");
  for (const auto change :
       {+[](Strings* texts) { texts->clear(); }, +[](Strings* texts) { texts->erase("Names"); },
        +[](Strings* texts) { texts->emplace("Another", ""); }, +[](Strings* texts) { texts->emplace("Z", ""); },
        +[](Strings* texts) { texts->at("Response") = "changed"; },
        +[](Strings* texts) { *texts = Strings(*texts); }}) {
    RecordStrings strings;
    Lend(&strings, all);
    {
      ExtendedEndRequest record;
      const RecordStrings::Loan loan(&strings, &record);
      change(&record.strings);
    }
    CHECK(Lend(&strings, all) == all);
    CHECK(Lend(&strings, Wanted(2, "other ")) == Wanted(2, "other "));
  }
}

TEST_CASE("a record gives its texts back, even when its delivery fails") {
  RecordStrings strings;
  strings.Set(RecordStrings::kNames, "a.name");
  ExtendedEndRequest record;
  try {
    const RecordStrings::Loan loan(&strings, &record);
    CHECK(record.strings == Strings{{"Names", "a.name"}});
    throw 1;
  } catch (int) {
  }
  CHECK(record.strings.empty());
  const RecordStrings::Loan again(&strings, &record);
  CHECK(record.strings.size() == 1);
}
