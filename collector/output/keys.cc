#include "collector/output/keys.h"

#include <algorithm>
#include <cstring>

#include "collector/output/text.h"

namespace output {
namespace {

// Length octets are below 64 and no letters.
char Folded(char character) {
  return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

}  // namespace

std::string_view AddressKey(const packet::Address& address) {
  return {reinterpret_cast<const char*>(address.octets.data()), address.version == 4 ? size_t{4} : size_t{16}};
}

std::string AddressOfKey(std::string_view key) {
  packet::Address address;
  address.version = key.size() == 4 ? 4 : 6;
  std::memcpy(address.octets.data(), key.data(), std::min(key.size(), address.octets.size()));
  char text[kLongestAddress];
  return std::string(text, PutAddress(text, address));
}

void FoldName(std::string_view name, std::string* folded) {
  folded->resize(name.size());
  std::transform(name.begin(), name.end(), folded->begin(), Folded);
}

}  // namespace output
