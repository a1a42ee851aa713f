#include "util/path.h"

#include <doctest/doctest.h>

namespace {
const char* const kEnd = nullptr;  // where the compiler wants no bare null pointer
}

TEST_CASE("a path is absolute when it starts with a slash") {
  CHECK(path_is_absolute("/"));
  CHECK(path_is_absolute("/a/b"));
  CHECK_FALSE(path_is_absolute("a/b"));
  CHECK_FALSE(path_is_absolute(" /a"));
  CHECK_FALSE(path_is_absolute(""));
}

TEST_CASE("a base name is what follows the last slash") {
  CHECK(path_basename("/usr/lib/file") == "file");
  CHECK(path_basename("dir/file") == "file");
  CHECK(path_basename("/file") == "file");
}

TEST_CASE("a path without a slash is its own base name") {
  CHECK(path_basename("file") == "file");
  CHECK(path_basename("").empty());
}

TEST_CASE("a path that ends in a slash has an empty base name") {
  CHECK(path_basename("dir/").empty());
  CHECK(path_basename("/").empty());
}

TEST_CASE("components are joined with one slash where there is none") {
  CHECK(path_concat("a", "b", "c", nullptr) == "a/b/c");
  CHECK(path_concat("a/", "b", nullptr) == "a/b");
  CHECK(path_concat("/", "a", nullptr) == "/a");
  CHECK(path_concat("a", nullptr) == "a");
}

TEST_CASE("empty components are skipped") {
  CHECK(path_concat("a", "", "b/", "c", nullptr) == "a/b/c");
  CHECK(path_concat("a", "", nullptr) == "a");
}

TEST_CASE("an empty first component brings no slash") {
  CHECK(path_concat("", "a", nullptr) == "a");
  CHECK(path_concat("", "", "a", "b", nullptr) == "a/b");
  CHECK(path_concat("", nullptr).empty());
}

TEST_CASE("a component keeps its own leading slash") {
  CHECK(path_concat("a", "/b", nullptr) == "a//b");
  CHECK(path_concat("a/", "/b", nullptr) == "a//b");
  CHECK(path_concat("", "/b", nullptr) == "/b");
}

TEST_CASE("a null first component gives an empty path") { CHECK(path_concat(kEnd, "a", "b", nullptr).empty()); }

TEST_CASE("what follows the null pointer is not looked at") {
  CHECK(path_concat("a", "b", kEnd, "c", nullptr) == "a/b");
}
