#include "collector/flow/flow.h"

#include "collector/flow/tcp_connection.h"

namespace flow {

// A look-up compares addresses and ports in this one line.
static_assert(sizeof(ParserFlow) == 64);

Flow::Flow() = default;
Flow::~Flow() = default;

}  // namespace flow
