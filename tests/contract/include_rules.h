#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

// Which room may include which. Rooms are the folders of the product: util, iovec, host, dns-parser and those of
// the collector. Includes name files from the root of the tree.

struct Include {
  std::string name;  // between the quotes or brackets
  bool quoted = false;
  int line = 0;  // counted from 1
};

// The room that a path relative to the root lies in ("collector/flow"), or "" outside all rooms.
std::string_view RoomOf(std::string_view file);

// What is wrong when `file` (relative to the root) includes this, in words; "" when nothing is. A test beside its
// unit may also include tests/ and the test framework.
std::string Complaint(std::string_view file, const Include& include);

// The #include lines of a text, in order.
std::vector<Include> FindIncludes(std::string_view text);

// One "file:line: complaint" for each wrong include, and each quoted one that names no file, in the rooms below
// `root`; sorted.
std::vector<std::string> CheckTree(const std::filesystem::path& root);

// Number of files that CheckTree reads.
std::size_t CountSources(const std::filesystem::path& root);
