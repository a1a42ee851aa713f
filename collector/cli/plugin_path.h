#pragma once

#include <string>
#include <vector>

namespace cli {

// Where the plug-in may be, best place first, for a program in this directory: beside it, in its build tree, and
// where it gets installed.
std::vector<std::string> PluginPlaces(const std::string& program_directory);

// The first of the places that holds the plug-in. Throws std::runtime_error that lists them when none does.
std::string FindPlugin();

}  // namespace cli
