#pragma once

#include <cstdint>
#include <string>

#include "host/collector_exports.h"

namespace plugin {

// Who receives the name-to-address mappings. Texts are valid during the call.
class MappingReceiver {
 public:
  virtual ~MappingReceiver() = default;
  virtual void OnMapping(const char* query_name, const char* name, uint32_t ipv4) = 0;
};

using LogLine = void (*)(int level, const std::string& line);

// The table of callbacks that a parser is given. The callbacks carry no context of their own, so a process has one
// such table at a time: a second one throws std::logic_error. What the receiver or the log throws passes through
// the parser to whoever called it.
//
// The current context is always 0: flows of captured traffic carry another one, so that mappings are injected.
class Exports {
 public:
  static constexpr size_t kMaxLine = 2048;  // a longer log line ends in "..."
  static constexpr int kDebugLevel = 5;

  // Without a log function nothing is said, whatever the level.
  Exports(int log_level, LogLine log_line, MappingReceiver* receiver);
  ~Exports();
  Exports(const Exports&) = delete;
  Exports& operator=(const Exports&) = delete;

  const CollectorExports* table() const { return &callbacks; }

  // Whether records shall have strings of details. They have until this says otherwise.
  void SetDetails(bool wanted) { details = wanted; }

  int level() const { return current_level; }
  void SetLevel(int log_level);

 private:
  static void Log(int level, const char* format, ...) __attribute__((format(printf, 2, 3)));
  static bool IsDebugEnabled(const std::string& source_file);
  static bool WantExtendedDetails();
  static void InjectMapping(const char* query_name, const char* name, uint32_t ipv4);
  static uint32_t CurrentContext();

  static Exports* active;

  int current_level = 0;
  bool details = true;
  LogLine log;
  MappingReceiver* mappings;
  std::string line;  // reused
  CollectorExports callbacks{};
};

}  // namespace plugin
