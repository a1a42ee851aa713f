#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

namespace test {

// A folder that goes with all that is in it.
class TemporaryFolder {
 public:
  TemporaryFolder() : path("/tmp/dnspair-test-XXXXXX") {
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no temporary folder");
  }
  ~TemporaryFolder() {
    std::error_code left_behind;
    std::filesystem::remove_all(path, left_behind);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  std::string At(const std::string& name) const { return path + "/" + name; }

  // What each file holds, by its path below the folder.
  std::map<std::string, std::string> Files() const {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
      if (!entry.is_regular_file()) continue;
      std::ostringstream content;
      content << std::ifstream(entry.path(), std::ios::binary).rdbuf();
      files[entry.path().lexically_relative(path).string()] = content.str();
    }
    return files;
  }

  std::string path;
};

}  // namespace test
