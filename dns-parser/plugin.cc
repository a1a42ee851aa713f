// The library's entry points.

#include "dns-parser/dns_parser.h"
#include "host/protocol_parser.h"

int get_api_version() { return kParserApiVersion; }

IProtocolParser* get_parser_default(uint64_t host_handle, const CollectorExports* exports,
                                    const std::map<std::string, std::string>& args) {
  auto* parser = new DNSParser(exports, args);
  parser->host_exports = exports;
  parser->host_handle = host_handle;
  return parser;
}

void destroy_parser_default(IProtocolParser* parser) { delete parser; }
