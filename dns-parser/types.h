#pragma once

#include "host/dns_tables.h"

// Record types and classes that the parser treats apart (RFC 1035 3.2.2, RFC 3596, RFC 4034, RFC 6891).
inline constexpr int kClassIn = 1;
inline constexpr int kTypeA = 1;
inline constexpr int kTypeNs = 2;
inline constexpr int kTypeCname = 5;
inline constexpr int kTypeSoa = 6;
inline constexpr int kTypePtr = 12;
inline constexpr int kTypeHinfoAsTabled = 14;  // dns_types gives HINFO this code
inline constexpr int kTypeMx = 15;
inline constexpr int kTypeTxt = 16;
inline constexpr int kTypeAaaa = 28;
inline constexpr int kTypeSrv = 33;
inline constexpr int kTypeOpt = 41;
inline constexpr int kTypeRrsig = 46;
inline constexpr int kTypeAxfr = 252;

// The name of the first row with this code, or "UNKNOWN/<code>". That text lies in one static buffer: the next
// unknown code overwrites it, and the debug dump's record line shows exactly that.
const char* dns_lookup_name(const DnsTableEntry* table, int code);

// The name and description of the first row with this code ("A - IPv4 address lookup"), the name alone where
// the row has no description, or "UNKNOWN/<code>". What is put together lies in a static buffer of its own,
// overwritten by the next such call.
const char* dns_lookup_description(const DnsTableEntry* table, int code);
