#include "host/protocol_parser.h"

#include <doctest/doctest.h>

#include <type_traits>

namespace {

// The least that a parser must have.
class LeastParser : public IProtocolParser {
 public:
  int HandleNewStream(const ParserFlow*, void**) override { return 1; }
  int HandleDataClientToServer(const ParserFlow*, Timestamp<1000000>, const char*, int, int, long,
                               void**) override {
    return 0;
  }
  int HandleDataServerToClient(const ParserFlow*, Timestamp<1000000>, const char*, int, int, long,
                               void**) override {
    return 0;
  }
  void HandleEndOfStream(const ParserFlow*, void**) override {}
  const RequestMetricSpecification* GetRequestMetricSpec() const override { return nullptr; }
  int GetFlags() const override { return 0; }
};

}  // namespace

TEST_CASE("a parser has no sink until the host gives it one") {
  const LeastParser parser;
  CHECK(parser.request_sink == nullptr);
  CHECK(parser.host_exports == nullptr);
  CHECK(parser.host_handle == 0);
}

TEST_CASE("a parser without counters has no health event") {
  LeastParser parser;
  IProtocolParser& base = parser;
  CHECK(base.GetHealthEvent() == nullptr);
}

TEST_CASE("a parser without time-outs does nothing on a heartbeat") {
  LeastParser parser;
  IProtocolParser& base = parser;
  base.Heartbeat();
  CHECK(base.request_sink == nullptr);
}

TEST_CASE("the host destroys a parser through the interface") {
  static_assert(std::has_virtual_destructor_v<IProtocolParser>);
  static_assert(!std::is_copy_constructible_v<IProtocolParser>);
  static_assert(std::is_base_of_v<IProtocolParser, ITimedProtocolParser>);
  static_assert(sizeof(ITimedProtocolParser) == sizeof(IProtocolParser));
}

TEST_CASE("the interface has version 5") { CHECK(kParserApiVersion == 5); }
