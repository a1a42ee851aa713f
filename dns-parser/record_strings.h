#pragma once

#include <array>
#include <map>
#include <string>
#include <string_view>

class ExtendedEndRequest;

// The texts of end records. Most records have the same ones as the record before: their entries stay in the map
// from one record to the next, and only what they say changes.
class RecordStrings {
 public:
  enum Key : size_t { kNames, kNumRrsigRecords, kResponse };

  // What the next record says under this key; nothing at all when it is empty.
  void Set(Key key, std::string_view value);

  // The record has the texts as long as this lives.
  class Loan {
   public:
    Loan(RecordStrings* owner, ExtendedEndRequest* borrower);
    ~Loan();
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

   private:
    RecordStrings* lender;
    ExtendedEndRequest* record;
  };

 private:
  using Map = std::map<std::string, std::string>;
  static constexpr std::array kKeys = {"Names", "NumRRSIGRecords", "Response"};

  // A text is in the map at its place, or beside it as a spare entry; before its first use it is neither.
  struct Text {
    Map::iterator place;
    Map::node_type spare;
    bool placed = false;
  };

  void Insert(Key key);
  void Remove(Key key);
  bool HasOnlyOurs() const;
  void TakeBack();

  Map map;
  std::array<Text, kKeys.size()> texts;
};
