// Writes the manual pages of the program and of all its commands when the tree is built.
//   write_manual PROSE_FOLDER TARGET_FOLDER

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "collector/cli/commands.h"
#include "collector/cli/manual.h"

namespace {

// For a command whose page has no prose of its own yet.
constexpr const char* kBarePage =
    "@head@\n.Sh DESCRIPTION\nThe options, which\n.Xr dnspair 1\nexplains more "
    "of:\n@options@\n@examples@\n@see_also@\n";

std::string Content(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

bool WritePage(const cli::Command* command, const std::string& prose_folder, const std::string& target_folder) {
  const std::string name = "/" + cli::ManualName(command) + ".1";
  const std::string prose = Content(prose_folder + name + ".in");
  std::ofstream page(target_folder + name);
  page << cli::ManualPage(command, prose.empty() ? kBarePage : prose);
  page.close();
  if (!page) std::fprintf(stderr, "write_manual: cannot write %s%s\n", target_folder.c_str(), name.c_str());
  return page.good();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return std::fputs("usage: write_manual PROSE_FOLDER TARGET_FOLDER\n", stderr), 2;
  bool good = WritePage(nullptr, argv[1], argv[2]);
  for (const cli::Command& command : cli::AllCommands()) good = WritePage(&command, argv[1], argv[2]) && good;
  return good ? 0 : 1;
}
