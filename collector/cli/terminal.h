#pragma once

#include <cstddef>

namespace cli {

bool IsTerminal(int descriptor);

// In columns; 80 where the terminal does not say.
size_t TerminalWidth(int descriptor);

// The columns to use of the terminal behind standard output: what the user's COLUMNS says, if that is a positive
// number, otherwise the terminal's width.
size_t OutputWidth();

// Whether text for this descriptor may be coloured: on a terminal that can, and not against the user's NO_COLOR.
bool WantsColours(int descriptor);

}  // namespace cli
