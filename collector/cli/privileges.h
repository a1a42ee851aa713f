#pragma once

#include <string>

namespace cli {

// Makes the process belong to the user, without capabilities and supplementary groups, for good. Throws
// std::runtime_error with one clear sentence when there is no such user or the change is refused.
void DropPrivileges(const std::string& user);

}  // namespace cli
