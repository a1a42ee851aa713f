#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "collector/plugin/question.h"

namespace plugin {

inline constexpr size_t kLongestName = 255;  // RFC 1035 2.3.4

// The records of a response's answer section, one after the other, read where they lie. Ends at the first that is
// broken or not wholly there: messages are cut, and they lie.
class AnswerReader {
 public:
  // `first` is where the first record starts, 0 for nowhere.
  AnswerReader(std::string_view message, size_t first);

  // Moves to the next record. False when there is none.
  bool Next();

  // Of the record at hand.
  std::string_view name() const { return owner; }  // labels with length octets, without the root's
  uint16_t type() const { return Word(fields); }
  uint16_t number_of_class() const { return Word(fields + 2); }
  uint32_t ttl() const { return uint32_t{Word(fields + 4)} << 16 | Word(fields + 6); }
  std::string_view data() const { return packet.substr(fields + kFields, length); }

  // The name that begins at `*at` in the data, in the form of name(), which it does not change. Moves `*at` behind
  // it. False when it is broken or does not end inside the data.
  bool ReadName(size_t* at, std::string* labels) const;

 private:
  static constexpr size_t kFields = 10;  // type, class, TTL, RDLENGTH

  uint16_t Word(size_t at) const {
    return static_cast<uint16_t>(static_cast<uint8_t>(packet[at]) << 8 | static_cast<uint8_t>(packet[at + 1]));
  }

  std::string_view packet;
  size_t next;
  unsigned left = 0;  // records that the header promises
  std::string owner;
  size_t fields = 0;
  size_t length = 0;
};

}  // namespace plugin
