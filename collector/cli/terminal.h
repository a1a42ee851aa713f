#pragma once

#include <cstddef>

namespace cli {

bool IsTerminal(int descriptor);

// In columns; 80 where the terminal does not say.
size_t TerminalWidth(int descriptor);

// Whether text for this descriptor may be coloured: on a terminal that can, and not against the user's NO_COLOR.
bool WantsColours(int descriptor);

}  // namespace cli
