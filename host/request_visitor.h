#pragma once

#include <cstdint>
#include <string>
#include <vector>

class BeginRequest;
class EndRequest;

// The host object that consumes records. Each record lives for the call only, together with the texts it
// points to: a host copies what it keeps.
class IRequestSink {
 public:
  virtual ~IRequestSink() = default;  // two slots, never called by the parser

  virtual void OnBeginRequest(const BeginRequest* request) = 0;
  virtual void OnEndRequest(const EndRequest* request) = 0;
};

// The host object that reads a record's attributes. Names, texts and lists point into the record and are
// valid during the call only.
class RequestVisitor {
 public:
  virtual ~RequestVisitor() = default;  // two slots, never called by records

  virtual void VisitUInt16(const char* name, int value) = 0;
  virtual void VisitInt32(const char* name, int value) = 0;
  virtual void VisitInt32List(const char* name, const std::vector<int>& values) = 0;
  virtual void VisitInt64(const char* name, int64_t value) = 0;
  virtual void VisitTimestamp(const char* name, int64_t milliseconds) = 0;  // since the Unix epoch
  virtual void VisitString(const char* name, const char* value) = 0;
  virtual void Reserved9() {}  // never called by records
  virtual void VisitStringList(const char* name, const std::vector<std::string>& values) = 0;
};

// The host object that a metric key writes itself into.
class IEventNode {
 public:
  virtual ~IEventNode() = default;  // two of the ten leading slots that keys never call
  virtual void Reserved3() {}
  virtual void Reserved4() {}
  virtual void Reserved5() {}
  virtual void Reserved6() {}
  virtual void Reserved7() {}
  virtual void Reserved8() {}
  virtual void Reserved9() {}
  virtual void Reserved10() {}

  virtual void AddInt32(const std::string& name, int value) = 0;
};
