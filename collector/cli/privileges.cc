#include "collector/cli/privileges.h"

#include <cap-ng.h>
#include <pwd.h>

#include <array>
#include <stdexcept>

namespace cli {

void DropPrivileges(const std::string& user) {
  passwd storage{};
  passwd* entry = nullptr;
  std::array<char, 4096> texts;
  getpwnam_r(user.c_str(), &storage, texts.data(), texts.size(), &entry);
  if (entry == nullptr) throw std::runtime_error("-Z: there is no user '" + user + "'");
  capng_clear(CAPNG_SELECT_BOTH);
  const int result = capng_change_id(static_cast<int>(entry->pw_uid), static_cast<int>(entry->pw_gid),
                                     static_cast<capng_flags_t>(CAPNG_DROP_SUPP_GRP | CAPNG_CLEAR_BOUNDING));
  if (result != 0) {
    throw std::runtime_error("-Z: cannot become user '" + user + "' (step " + std::to_string(-result) +
                             " of the change was refused); only root can");
  }
}

}  // namespace cli
