#include "collector/plugin/record.h"

#include <charconv>
#include <map>

namespace plugin {

RecordView RecordReader::Read(const EndRequest& record) {
  RecordView view;
  view.request_id = record.request_id;
  view.result_code = record.result_code;
  view.response_time_us = record.response_time.ticks;
  view.bytes_query = record.bytes_request;
  view.bytes_response = record.bytes_response;
  if (record.request_pattern != nullptr) view.pattern = record.request_pattern;
  const ExtendedEndRequest* extended = Extended(record);
  if (extended == nullptr) return view;
  // There are so few of them that one walk costs less than two look-ups.
  for (const auto& [key, value] : extended->strings) {
    if (key == "Response") {
      view.answers = value;
    } else if (key == "NumRRSIGRecords") {
      view.rrsigs_known = std::from_chars(value.data(), value.data() + value.size(), view.rrsigs).ec == std::errc{};
    }
  }
  return view;
}

// A cast between two libraries compares the names of types letter by letter; it is done once per type.
const ExtendedEndRequest* RecordReader::Extended(const EndRequest& record) {
  const std::type_info* type = &typeid(record);
  if (type == extended_type) return static_cast<const ExtendedEndRequest*>(&record);
  const auto* extended = dynamic_cast<const ExtendedEndRequest*>(&record);
  if (extended != nullptr) extended_type = type;
  return extended;
}

void KeptRecord::Keep(const RecordView& record) {
  pattern = record.pattern;
  answers = record.answers;
  kept = record;
  kept.pattern = pattern;
  kept.answers = answers;
}

}  // namespace plugin
