#include "dns-parser/dns_parser.h"

#include <cstdlib>

#include "dns-parser/trace.h"
#include "util/args.h"

namespace {

constexpr int32_t kDefaultMaxOpenRequests = 0x10000;
constexpr uint32_t kDefaultTimeoutSeconds = 5;
constexpr uint64_t kMicrosecondsPerSecond = 1000000;

// Read leniently, unlike the other keys, on purpose: configurations in the field count on it. 12abc gives 12, -3
// gives -3, a text without digits gives 0, and a long number keeps its low 32 bits.
int32_t ReadMaxOpenRequests(const std::map<std::string, std::string>& args) {
  const auto found = args.find("max_open_requests");
  if (found == args.end()) return kDefaultMaxOpenRequests;
  return static_cast<int32_t>(std::strtol(found->second.c_str(), nullptr, 10));
}

const char* Text(bool value) { return value ? "true" : "false"; }

}  // namespace

const DNSRequestMetricSpecification DNSParser::requestMetricSpec;

DNSParser::DNSParser(const CollectorExports* table, const std::map<std::string, std::string>& arguments)
    : args(arguments), exports(table) {
  max_open_requests = ReadMaxOpenRequests(args);
  enable_dnssec = get_parser_boolean_arg(args, "enable_dnssec", false);
  enable_axfr = get_parser_boolean_arg(args, "enable_axfr", false);
  request_timeout_us =
      get_parser_uint32_arg(args, "request_timeout_s", kDefaultTimeoutSeconds) * kMicrosecondsPerSecond;

  // The time-out is printed in microseconds although its key is in seconds; log readers count on that.
  DNS_LOG(kLogStart, "parser initialized max_open_requests:%d handle_dnssec:%s handle_axfr:%s dns_timeout:%ld",
          max_open_requests, Text(enable_dnssec), Text(enable_axfr), static_cast<long>(request_timeout_us));
}

DNSParser::~DNSParser() = default;

int DNSParser::HandleNewStream(const ParserFlow* /*flow*/, void** /*stream_state*/) { return 1; }

void DNSParser::HandleEndOfStream(const ParserFlow* /*flow*/, void** /*stream_state*/) {}

const RequestMetricSpecification* DNSParser::GetRequestMetricSpec() const { return &requestMetricSpec; }

int DNSParser::GetFlags() const { return 0; }
