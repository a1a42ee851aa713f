#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "host/collector_exports.h"
#include "host/protocol_parser.h"

namespace plugin {

// A parser plug-in, loaded. Throws std::runtime_error with one clear sentence when the file cannot be loaded,
// lacks an entry point or reports another interface version than ours. A path without a slash names a file in
// the working directory; no library path is searched.
class Library {
 public:
  explicit Library(const std::string& path);

  // Unloads the library, unless an exception is on its way: its type may be the library's own.
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  // Passes on what the parser's constructor throws; std::runtime_error when it makes none. The table must
  // outlive the parser.
  ITimedProtocolParser* Create(uint64_t host_handle, const CollectorExports* exports,
                               const std::map<std::string, std::string>& args) const;
  void Destroy(ITimedProtocolParser* parser) const;

  int version() const { return api_version; }
  const std::string& path() const { return file; }

 private:
  void Bind();
  void* Symbol(const char* name) const;

  std::string file;
  void* handle = nullptr;
  int api_version = 0;
  decltype(&get_parser_default) create = nullptr;
  decltype(&destroy_parser_default) destroy = nullptr;
};

}  // namespace plugin
