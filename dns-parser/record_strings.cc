#include "dns-parser/record_strings.h"

#include <utility>

#include "dns-parser/recycling.h"
#include "host/requests.h"

void RecordStrings::Set(Key key, std::string_view value) {
  if (value.empty()) return Remove(key);
  Insert(key);
  texts[key].place->second = value;
}

void RecordStrings::Insert(Key key) {
  Text& text = texts[key];
  if (text.placed) return;
  text.place = text.spare.empty() ? map.try_emplace(kKeys[key]).first : map.insert(std::move(text.spare)).position;
  text.placed = true;
}

void RecordStrings::Remove(Key key) {
  Text& text = texts[key];
  if (!text.placed) return;
  text.spare = map.extract(text.place);
  text.placed = false;
}

// Entries that come back one by one as they went, in the order of their keys.
bool RecordStrings::HasOnlyOurs() const {
  auto entry = map.begin();
  for (const Text& text : texts) {
    if (!text.placed) continue;
    if (entry == map.end() || entry != text.place) return false;
    ++entry;
  }
  return entry == map.end();
}

// A host that changed the record's map ends up with a record of its own, and with no other.
void RecordStrings::TakeBack() {
  if (!HasOnlyOurs()) {
    map.clear();
    texts = {};
  }
  for (auto& [key, value] : map) Recycle(&value);
}

RecordStrings::Loan::Loan(RecordStrings* owner, ExtendedEndRequest* borrower) : lender(owner), record(borrower) {
  record->strings.swap(lender->map);
}

RecordStrings::Loan::~Loan() {
  record->strings.swap(lender->map);
  lender->TakeBack();
}
