#include "collector/plugin/exports.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace plugin {

Exports* Exports::active = nullptr;

Exports::Exports(int log_level, LogLine log_line, MappingReceiver* receiver) : log(log_line), mappings(receiver) {
  if (active != nullptr) throw std::logic_error("a process has one parser session at a time");
  SetLevel(log_level);
  callbacks.log_level = &current_level;
  callbacks.log = Log;
  callbacks.is_debug_enabled = IsDebugEnabled;
  callbacks.want_extended_details = WantExtendedDetails;
  callbacks.inject_dns_mapping = InjectMapping;
  callbacks.get_current_context_id = CurrentContext;
  active = this;
}

Exports::~Exports() { active = nullptr; }

void Exports::SetLevel(int log_level) { current_level = log != nullptr ? log_level : 0; }

void Exports::Log(int level, const char* format, ...) {
  if (active == nullptr || active->log == nullptr) return;
  std::array<char, kMaxLine + 1> text{};
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  if (length < 0) return;
  active->line = text.data();
  if (static_cast<size_t>(length) > kMaxLine) active->line.replace(kMaxLine - 3, 3, "...");
  active->log(level, active->line);
}

bool Exports::IsDebugEnabled(const std::string& /*source_file*/) {
  return active != nullptr && active->current_level >= kDebugLevel;
}

bool Exports::WantExtendedDetails() { return active != nullptr && active->details; }

void Exports::InjectMapping(const char* query_name, const char* name, uint32_t ipv4) {
  if (active != nullptr) active->mappings->OnMapping(query_name, name, ipv4);
}

uint32_t Exports::CurrentContext() { return 0; }

}  // namespace plugin
