#pragma once

#include <string>
#include <string_view>

#include "collector/packet/address.h"

// What counts per name and per address use as keys.
namespace output {

// Four or sixteen bytes. Valid as long as the address.
std::string_view AddressKey(const packet::Address& address);

// The text of such a key.
std::string AddressOfKey(std::string_view key);

// A name in lower case, be it a text or labels with their length octets: names differ in letter case only by
// accident, or on purpose and at random (RFC 4343). The memory of `folded` is used again.
void FoldName(std::string_view name, std::string* folded);

}  // namespace output
