#pragma once

#include "collector/plugin/exchange.h"

namespace output {

// An identifier for the exchange: "C" and 17 letters and digits, a hash (no secret) of both addresses as they are
// shown, both ports, transport, the query's identifier and its time in nanoseconds. The same exchange has the same
// one in every run.
char* PutZeekUid(char* out, const plugin::Exchange& exchange);

}  // namespace output
