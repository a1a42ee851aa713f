#pragma once

#include <string>

#pragma GCC visibility push(default)

// The text of an IPv6 address, given as 16 bytes in network order: lower-case groups without leading zeros. It is
// near to RFC 5952 but not it, and stays so because records and stored texts are compared with it: the first run of
// zero groups is compressed, be it short or not the longest; all zeros are "::0"; and a run at the end leaves a
// single colon ("2001:db8:").
std::string format_ipv6(const char* address);

#pragma GCC visibility pop
