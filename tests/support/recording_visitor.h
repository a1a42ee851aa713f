#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/request_visitor.h"

namespace test {

// Writes down each operation that a record calls, in order, as "UInt16 Join.ClientPort=53". Lists stand in
// brackets.
class RecordingVisitor : public RequestVisitor {
 public:
  void VisitUInt16(const char* name, int value) override { Add("UInt16", name, std::to_string(value)); }
  void VisitInt32(const char* name, int value) override { Add("Int32", name, std::to_string(value)); }
  void VisitInt32List(const char* name, const std::vector<int>& values) override {
    std::string text;
    for (const int value : values) text += "[" + std::to_string(value) + "]";
    Add("Int32List", name, text);
  }
  void VisitInt64(const char* name, int64_t value) override { Add("Int64", name, std::to_string(value)); }
  void VisitTimestamp(const char* name, int64_t milliseconds) override {
    Add("Timestamp", name, std::to_string(milliseconds));
  }
  void VisitString(const char* name, const char* value) override { Add("String", name, value); }
  void Reserved9() override { visits.emplace_back("the unused operation"); }
  void VisitStringList(const char* name, const std::vector<std::string>& values) override {
    std::string text;
    for (const std::string& value : values) text += "[" + value + "]";
    Add("StringList", name, text);
  }

  std::vector<std::string> visits;

 private:
  void Add(const char* operation, const char* name, const std::string& value) {
    visits.push_back(std::string(operation) + " " + name + "=" + value);
  }
};

}  // namespace test
