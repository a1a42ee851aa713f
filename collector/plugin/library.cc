#include "collector/plugin/library.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace plugin {
namespace {

// The loader opens whatever it is given: a FIFO would hang it.
void RequireRegularFile(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    throw std::runtime_error(path + ": " + std::generic_category().message(errno));
  }
  if (!S_ISREG(status.st_mode)) throw std::runtime_error(path + ": not a plug-in: not a regular file");
}

// The loader maps what the file's head tells of, and a file that was cut ends the process.
void RequireWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  const auto size = static_cast<uint64_t>(file.tellg());
  ElfW(Ehdr) head{};
  file.seekg(0);
  if (!file.read(reinterpret_cast<char*>(&head), sizeof head)) return;  // the loader says what is wrong
  if (std::memcmp(static_cast<const void*>(head.e_ident), ELFMAG, SELFMAG) != 0) return;
  // The table of sections stands last.
  if (head.e_shoff + uint64_t{head.e_shnum} * head.e_shentsize > size) {
    throw std::runtime_error(path + ": not a plug-in: the file is cut off");
  }
}

// The loader's reason, without the path that it usually starts with.
std::string LoaderError(const std::string& path) {
  const char* text = dlerror();  // NOLINT(concurrency-mt-unsafe): glibc keeps it per thread
  const std::string reason = text != nullptr ? text : "unknown error";
  const std::string prefix = path + ": ";
  return reason.starts_with(prefix) ? reason.substr(prefix.size()) : reason;
}

}  // namespace

Library::Library(const std::string& path) : file(path) {
  RequireRegularFile(path);
  RequireWholeFile(path);
  const std::string name = path.find('/') == std::string::npos ? "./" + path : path;
  handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) throw std::runtime_error(path + ": not a plug-in: " + LoaderError(name));
  try {
    Bind();
  } catch (...) {
    dlclose(handle);
    throw;
  }
}

Library::~Library() {
  if (std::uncaught_exceptions() == 0) dlclose(handle);
}

void Library::Bind() {
  const auto version_of = reinterpret_cast<decltype(&get_api_version)>(Symbol("get_api_version"));
  api_version = version_of();
  if (api_version != kParserApiVersion) {
    throw std::runtime_error(file + ": plug-in interface version " + std::to_string(api_version) +
                             ", but this program needs version " + std::to_string(kParserApiVersion));
  }
  create = reinterpret_cast<decltype(create)>(Symbol("get_parser_default"));
  destroy = reinterpret_cast<decltype(destroy)>(Symbol("destroy_parser_default"));
}

void* Library::Symbol(const char* name) const {
  void* symbol = dlsym(handle, name);
  if (symbol == nullptr) throw std::runtime_error(file + ": not a parser plug-in: it has no " + name);
  return symbol;
}

ITimedProtocolParser* Library::Create(uint64_t host_handle, const CollectorExports* exports,
                                      const std::map<std::string, std::string>& args) const {
  IProtocolParser* parser = create(host_handle, exports, args);
  if (parser == nullptr) throw std::runtime_error(file + ": the plug-in made no parser");
  return static_cast<ITimedProtocolParser*>(parser);
}

void Library::Destroy(ITimedProtocolParser* parser) const { destroy(parser); }

}  // namespace plugin
