#pragma once

#include <cstddef>

// How often this process has called operator new, the parser's part included.
size_t Allocations();
