#include "dns-parser/types.h"

#include <cstdio>

const DnsTableEntry dns_types[] = {
    {1, "A", "IPv4 address lookup"},
    {2, "NS", "Authoritative name server"},
    {3, "MD", nullptr},
    {4, "MF", nullptr},
    {5, "CNAME", "Alias"},
    {6, "SOA", "Start of authority"},
    {7, "MB", nullptr},
    {8, "MG", nullptr},
    {9, "MR", nullptr},
    {10, "NULL", nullptr},
    {11, "WKS", nullptr},
    {12, "PTR", "Reverse lookup"},
    // HINFO carries MINFO's code on purpose: 14 prints HINFO, 13 prints UNKNOWN/13. Consumers key on these texts.
    {14, "HINFO", nullptr},
    {14, "MINFO", nullptr},
    {15, "MX", "Mail exchanger"},
    {16, "TXT", "Text record"},
    {17, "RP", nullptr},
    {18, "AFSDB", nullptr},
    {24, "SIG", nullptr},
    {25, "KEY", nullptr},
    {28, "AAAA", "IPv6 address lookup"},
    {29, "LOC", "Location record"},
    {33, "SRV", "Service locator"},
    {35, "NAPTR", nullptr},
    {36, "KX", nullptr},
    {37, "CERT", nullptr},
    {39, "DNAME", nullptr},
    {41, "OPT", nullptr},
    {42, "APL", nullptr},
    {43, "DS", nullptr},
    {44, "SSHFP", nullptr},
    {45, "IPSECKEY", nullptr},
    {46, "RRSIG", nullptr},
    {47, "NSEC", nullptr},
    {48, "DNSKEY", nullptr},
    {49, "DHCID", nullptr},
    {50, "NSEC3", nullptr},
    {51, "NSEC3PARAM", nullptr},
    {55, "HIP", nullptr},
    {99, "SPF", "Sender policy framework"},
    {249, "TKEY", nullptr},
    {250, "TSIG", nullptr},
    {251, "IXFR", "Incremental zone transfer"},
    {252, "AXFR", "Zone transfer"},
    {253, "MAILB", nullptr},
    {254, "MAILA", nullptr},
    {255, "ANY", nullptr},
    {32768, "TA", nullptr},
    {32769, "DLV", nullptr},
    {0, nullptr, nullptr},
};

const DnsTableEntry dns_classes[] = {
    {1, "IN", nullptr},     {2, "CS", nullptr},  {3, "CH", nullptr},    {4, "HS", nullptr},
    {254, "NONE", nullptr}, {255, "*", nullptr}, {0, nullptr, nullptr},
};

namespace {

// The first row with this code, or the terminator. Its code is never compared: no code 0 is ever found.
const DnsTableEntry* Find(const DnsTableEntry* table, int code) {
  while (table->name != nullptr && table->code != code) ++table;
  return table;
}

}  // namespace

const char* dns_lookup_name(const DnsTableEntry* table, int code) {
  static char text[32];
  const DnsTableEntry* row = Find(table, code);
  if (row->name != nullptr) return row->name;
  std::snprintf(text, sizeof text, "UNKNOWN/%d", code);
  return text;
}

const char* dns_lookup_description(const DnsTableEntry* table, int code) {
  static char text[64];
  const DnsTableEntry* row = Find(table, code);
  if (row->name == nullptr) {
    std::snprintf(text, sizeof text, "UNKNOWN/%d", code);
    return text;
  }
  if (row->description == nullptr) return row->name;
  std::snprintf(text, sizeof text, "%s - %s", row->name, row->description);
  return text;
}
