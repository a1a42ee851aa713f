#pragma once

#include <string>

namespace cli {

struct Command;

// The manual page of a command, or of the program for null, in mdoc. The text is its prose; these lines in it are
// replaced by what the program itself knows:
//   @head@       title, name and synopsis
//   @commands@   the commands
//   @options@    the options and their descriptions
//   @examples@   the examples of the command's help
//   @see_also@   the other pages
//   @documents@  the folder of the installed documents
std::string ManualPage(const Command* command, const std::string& text);

// "dnspair-read" for the command read, "dnspair" for null.
std::string ManualName(const Command* command);

}  // namespace cli
