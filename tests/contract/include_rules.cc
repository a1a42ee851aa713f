#include "tests/contract/include_rules.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>

namespace {

struct Room {
  std::string_view name;
  std::vector<std::string_view> may_include;  // besides itself
};

// Includes point one way. The plug-in and the collector meet in host alone, and host knows neither.
const std::array kRooms = {
    Room{"util", {}},
    Room{"iovec", {"util"}},
    Room{"host", {}},
    Room{"dns-parser", {"util", "iovec", "host"}},
    Room{"collector/capture", {"util", "host"}},
    Room{"collector/packet", {"util", "host", "collector/capture"}},
    Room{"collector/flow", {"util", "host", "collector/capture", "collector/packet"}},
    Room{"collector/plugin", {"util", "host", "collector/capture", "collector/packet", "collector/flow"}},
    Room{"collector/output",
         {"util", "host", "collector/capture", "collector/packet", "collector/flow", "collector/plugin"}},
    Room{"collector/report",
         {"util", "host", "collector/capture", "collector/packet", "collector/flow", "collector/plugin",
          "collector/output"}},
    Room{"collector/top",
         {"util", "host", "collector/capture", "collector/packet", "collector/flow", "collector/plugin",
          "collector/output"}},
    Room{"collector/cli",
         {"util", "host", "collector/capture", "collector/packet", "collector/flow", "collector/plugin",
          "collector/output", "collector/report", "collector/top"}},
    Room{"collector", {"collector/cli"}},  // main.cc
};

// The library links nothing but the C++ and C run-time.
constexpr std::array<std::string_view, 4> kPluginRooms = {"util", "iovec", "host", "dns-parser"};
constexpr std::array<std::string_view, 9> kForeign = {"fmt/",   "CLI/",   "nlohmann/", "pcap", "cap-ng.h",
                                                      "zlib.h", "zstd.h", "tins/",     "ldns/"};

const Room* FindRoom(std::string_view name) {
  const auto* const room = std::ranges::find(kRooms, name, &Room::name);
  return room == kRooms.end() ? nullptr : room;
}

// A test, or what only tests use.
bool IsTest(std::string_view file) {
  return file.ends_with("_test.cc") || file.ends_with("_for_tests.h") || file.find("/testdata/") != file.npos;
}

bool IsSource(const std::filesystem::path& path) { return path.extension() == ".cc" || path.extension() == ".h"; }

std::string Quote(std::string_view name) { return "\"" + std::string(name) + "\""; }

std::string QuotedComplaint(std::string_view file, std::string_view name) {
  if (IsTest(file) && name.starts_with("tests/")) return "";
  const std::string_view from = RoomOf(file);
  const std::string_view to = RoomOf(name);
  if (to.empty()) return Quote(name) + " lies in no room; includes name files from the root of the tree";
  if (from == to) return "";
  const Room* const room = FindRoom(from);
  if (room == nullptr) return std::string(from) + " is no known room";
  if (std::ranges::find(room->may_include, to) != room->may_include.end()) return "";
  return std::string(from) + " must not include " + std::string(to) + " (" + Quote(name) + ")";
}

std::string BracketComplaint(std::string_view file, std::string_view name) {
  if (!RoomOf(name).empty()) return "our own " + std::string(name) + " is included in brackets";
  if (name.starts_with("doctest/") && !IsTest(file)) return "the test framework is for tests";
  const bool plugin = std::ranges::find(kPluginRooms, RoomOf(file)) != kPluginRooms.end();
  if (!plugin || IsTest(file)) return "";
  const bool foreign =
      std::ranges::any_of(kForeign, [&](std::string_view start) { return name.starts_with(start); });
  return foreign ? "the plug-in must not use <" + std::string(name) + ">" : "";
}

std::string_view SkipBlanks(std::string_view text) {
  const std::size_t start = text.find_first_not_of(" \t");
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

// Fills name and quoted; false when the line includes nothing.
bool ParseLine(std::string_view line, Include* include) {
  line = SkipBlanks(line);
  if (!line.starts_with('#')) return false;
  line = SkipBlanks(line.substr(1));
  constexpr std::string_view kKeyword = "include";
  if (!line.starts_with(kKeyword)) return false;
  line = SkipBlanks(line.substr(kKeyword.size()));
  if (line.empty() || (line.front() != '"' && line.front() != '<')) return false;
  include->quoted = line.front() == '"';
  line.remove_prefix(1);
  include->name = line.substr(0, line.find(include->quoted ? '"' : '>'));
  return true;
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// All sources of all rooms, relative to the root.
std::vector<std::string> Sources(const std::filesystem::path& root) {
  std::vector<std::string> files;
  for (const char* top : {"util", "iovec", "host", "dns-parser", "collector"}) {
    if (!std::filesystem::is_directory(root / top)) continue;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root / top))
      if (entry.is_regular_file() && IsSource(entry.path()))
        files.push_back(entry.path().lexically_relative(root).generic_string());
  }
  std::ranges::sort(files);
  return files;
}

}  // namespace

std::string_view RoomOf(std::string_view file) {
  const std::size_t slash = file.find('/');
  if (slash == std::string_view::npos) return "";
  const std::string_view top = file.substr(0, slash);
  if (top != "collector") return FindRoom(top) != nullptr ? top : "";
  const std::size_t second = file.find('/', slash + 1);
  return file.substr(0, second == std::string_view::npos ? slash : second);
}

std::string Complaint(std::string_view file, const Include& include) {
  return include.quoted ? QuotedComplaint(file, include.name) : BracketComplaint(file, include.name);
}

std::vector<Include> FindIncludes(std::string_view text) {
  std::vector<Include> found;
  int number = 0;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    Include include;
    include.line = ++number;
    if (ParseLine(text.substr(0, end), &include)) found.push_back(include);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return found;
}

std::vector<std::string> CheckTree(const std::filesystem::path& root) {
  std::vector<std::string> complaints;
  for (const std::string& file : Sources(root)) {
    for (const Include& include : FindIncludes(ReadFile(root / file))) {
      std::string wrong = Complaint(file, include);
      if (wrong.empty() && include.quoted && !std::filesystem::exists(root / include.name))
        wrong = Quote(include.name) + " does not exist";
      if (!wrong.empty()) complaints.push_back(file + ":" + std::to_string(include.line) + ": " + wrong);
    }
  }
  return complaints;
}

std::size_t CountSources(const std::filesystem::path& root) { return Sources(root).size(); }
