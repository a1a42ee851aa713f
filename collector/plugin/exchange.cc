#include "collector/plugin/exchange.h"

namespace plugin {

const char* StatusName(Status status) {
  switch (status) {
    case Status::kAnswered:
      return "answered";
    case Status::kTimeout:
      return "timeout";
    case Status::kMalformed:
      return "malformed";
    case Status::kOpen:
      return "open";
  }
  return "unknown";
}

}  // namespace plugin
