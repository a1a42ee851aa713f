#include "util/args.h"

#include <strings.h>

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace {

const std::string* find_arg(const std::map<std::string, std::string>& args, const std::string& key) {
  const auto entry = args.find(key);
  return entry == args.end() ? nullptr : &entry->second;
}

}  // namespace

bool get_parser_boolean_arg(const std::map<std::string, std::string>& args, const std::string& key,
                            bool default_value) {
  const std::string* text = find_arg(args, key);
  if (text == nullptr) return default_value;
  for (const char* yes : {"true", "yes", "1", "on"}) {
    if (strcasecmp(text->c_str(), yes) == 0) return true;
  }
  return false;
}

int get_parser_integer_arg(const std::map<std::string, std::string>& args, const std::string& key,
                           int default_value) {
  const std::string* text = find_arg(args, key);
  if (text == nullptr || text->empty()) return default_value;
  if (text->front() < '0' || text->front() > '9') return default_value;
  return static_cast<int>(strtol(text->c_str(), nullptr, 10));
}

uint32_t get_parser_uint32_arg(const std::map<std::string, std::string>& args, const std::string& key,
                               uint32_t default_value) {
  uint32_t value = default_value;
  return try_get_parser_uint32_arg(args, key, value) ? value : default_value;
}

bool try_get_parser_uint32_arg(const std::map<std::string, std::string>& args, const std::string& key,
                               uint32_t& result) {
  const std::string* text = find_arg(args, key);
  return text != nullptr && parse_uint32(text->c_str(), &result);
}

bool try_get_parser_int32_arg(const std::map<std::string, std::string>& args, const std::string& key,
                              int32_t& result) {
  const std::string* text = find_arg(args, key);
  if (text == nullptr) return false;
  char* end = nullptr;
  errno = 0;
  const long value = strtol(text->c_str(), &end, 10);
  if (*end != '\0' || errno == ERANGE) return false;
  if (value < std::numeric_limits<int32_t>::min() || value > std::numeric_limits<int32_t>::max()) return false;
  result = static_cast<int32_t>(value);
  return true;
}

bool parse_uint32(const char* text, uint32_t* result) {
  char* end = nullptr;
  errno = 0;
  const unsigned long value = strtoul(text, &end, 10);
  // An empty text stops at its own end and so passes as 0.
  if (*end != '\0' || errno == ERANGE || value > std::numeric_limits<uint32_t>::max()) return false;
  *result = static_cast<uint32_t>(value);
  return true;
}
