#pragma once

#include <cstddef>
#include <cstdint>

#include "collector/flow/tcp_stream.h"

namespace flow {

struct TcpConnection {
  TcpStream streams[2];        // of the endpoint that was local when the connection was first seen, and the other
  bool first_is_local = true;  // streams[0] is still the local endpoint's
  bool closed = false;         // both sides have ended, or one has reset it
  size_t held = 0;             // bytes of memory that the streams hold

  TcpStream& Stream(bool from_local) { return streams[from_local == first_is_local ? 0 : 1]; }
};

}  // namespace flow
