#include "util/path.h"

#include <cstdarg>

bool path_is_absolute(const std::string& path) { return !path.empty() && path.front() == '/'; }

std::string path_basename(const std::string& path) {
  // Without a '/' rfind gives npos, and npos + 1 is 0: the whole path.
  return path.substr(path.rfind('/') + 1);
}

std::string path_concat(const char* first, ...) {
  if (first == nullptr) return {};
  std::string path = first;
  va_list components;
  va_start(components, first);
  while (const char* component = va_arg(components, const char*)) {
    if (*component == '\0') continue;
    if (!path.empty() && path.back() != '/') path += '/';
    path += component;
  }
  va_end(components);
  return path;
}
