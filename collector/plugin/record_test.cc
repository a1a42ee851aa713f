#include "collector/plugin/record.h"

#include <doctest/doctest.h>

#include <string>

namespace plugin {
namespace {

template <typename Record>
void Fill(Record* record) {
  record->request_id = 17;
  record->result_code = 3;
  record->response_time = {1234};
  record->bytes_request = 40;
  record->bytes_response = 90;
  record->request_pattern = "A - IPv4 address lookup";
}

// What a host's type derived from ours would look like.
class OtherEndRequest : public ExtendedEndRequest {};

}  // namespace

TEST_CASE("a plain record has its fields and no texts") {
  EndRequest record;
  Fill(&record);
  const RecordView view = RecordReader().Read(record);
  CHECK(view.request_id == 17);
  CHECK(view.result_code == 3);
  CHECK(view.response_time_us == 1234);
  CHECK(view.bytes_query == 40);
  CHECK(view.bytes_response == 90);
  CHECK(view.pattern == "A - IPv4 address lookup");
  CHECK(view.answers.empty());
  CHECK_FALSE(view.rrsigs_known);
}

TEST_CASE("an extended record has answers and signatures besides") {
  ExtendedEndRequest record;
  Fill(&record);
  record.AddString("Names", "aa.bb");
  record.AddString("Response", "[aa.bb => 192.0.2.1]");
  record.AddString("NumRRSIGRecords", "2");
  const RecordView view = RecordReader().Read(record);
  CHECK(view.request_id == 17);
  CHECK(view.pattern == "A - IPv4 address lookup");
  CHECK(view.answers == "[aa.bb => 192.0.2.1]");
  CHECK(view.rrsigs_known);
  CHECK(view.rrsigs == 2);
}

TEST_CASE("a record without texts or pattern is read as empty") {
  const RecordView view = RecordReader().Read(ExtendedEndRequest());
  CHECK(view.pattern.empty());
  CHECK(view.answers.empty());
  CHECK_FALSE(view.rrsigs_known);
}

TEST_CASE("signatures that are no number are not known") {
  ExtendedEndRequest record;
  record.AddString("NumRRSIGRecords", "many");
  CHECK_FALSE(RecordReader().Read(record).rrsigs_known);
}

TEST_CASE("answers keep their zero bytes") {
  ExtendedEndRequest record;
  const std::string answers("a\0b", 3);
  record.AddString("Response", answers);
  CHECK(RecordReader().Read(record).answers == answers);
}

TEST_CASE("one reader reads records of several types in any order") {
  RecordReader reader;
  ExtendedEndRequest extended;
  extended.AddString("Response", "one");
  OtherEndRequest other;
  other.AddString("Response", "two");
  for (int i = 0; i < 2; ++i) {
    CHECK(reader.Read(extended).answers == "one");
    CHECK(reader.Read(EndRequest()).answers.empty());
    CHECK(reader.Read(other).answers == "two");
  }
}

TEST_CASE("a kept record outlives the record") {
  KeptRecord kept;
  for (const char* text : {"a text that is too long to be held in a string object itself", "short"}) {
    ExtendedEndRequest record;
    Fill(&record);
    std::string pattern = text;
    record.request_pattern = pattern.c_str();
    record.AddString("Response", text);
    record.AddString("NumRRSIGRecords", "0");
    kept.Keep(RecordReader().Read(record));
    pattern.assign(pattern.size(), '?');
    record.AddString("Response", pattern);
    CHECK(kept.view().pattern == text);
    CHECK(kept.view().answers == text);
    CHECK(kept.view().request_id == 17);
    CHECK(kept.view().rrsigs_known);
  }
}

}  // namespace plugin
