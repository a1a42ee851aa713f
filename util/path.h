#pragma once

#include <string>

#pragma GCC visibility push(default)

// True when the path starts with '/'.
bool path_is_absolute(const std::string& path);

// What follows the last '/', or the whole path when there is none: "dir/" has an empty base name.
std::string path_basename(const std::string& path);

// Joins the components, up to the null pointer that ends the list, with a '/' wherever the text so far is not empty
// and does not end in one. Empty components are skipped. A component keeps a '/' of its own in front, on purpose:
// the function joins texts and does not tidy them, so "a" and "/b" give "a//b". Empty when `first` is null.
std::string path_concat(const char* first, ...) __attribute__((sentinel));

#pragma GCC visibility pop
