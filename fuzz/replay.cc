// Without libFuzzer: runs each input file that is named, and each in the folders that are named.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/target.h"

namespace {

namespace fs = std::filesystem;

std::vector<std::string> FilesAt(const fs::path& place) {
  if (!fs::is_directory(place)) return {place.string()};
  std::vector<std::string> files;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(place)) {
    if (entry.is_regular_file()) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// False when the file cannot be read. An input that breaks a promise ends the process.
bool Replay(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  if (!file) return false;
  // A block of its own size, so that a memory checker sees reads behind it.
  const auto copy = std::make_unique<uint8_t[]>(bytes.size());
  std::copy(bytes.begin(), bytes.end(), copy.get());
  LLVMFuzzerTestOneInput(copy.get(), bytes.size());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  size_t count = 0;
  std::string current;
  try {
    for (int i = 1; i < argc; ++i) {
      if (!fs::exists(argv[i])) continue;  // a target without findings has no folder for them
      for (const std::string& path : FilesAt(argv[i])) {
        current = path;
        if (!Replay(path)) throw std::runtime_error("cannot be read");
        ++count;
      }
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", current.c_str(), error.what());
    return 1;
  }
  std::printf("%zu inputs\n", count);
  if (count > 0) return 0;
  std::fprintf(stderr, "there is nothing to replay\n");
  return 1;
}
