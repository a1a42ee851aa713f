#pragma once

#include <array>
#include <cstdint>
#include <string>

// What a question asks for, in words: "A - IPv4 address lookup", or "CH/TXT - Text record" where the class is not
// IN. Built once and kept for the next question of the kind: a table of few slots, in which a newcomer takes the
// place of the label that was there.
class LabelCache {
 public:
  // Valid until the next call.
  const std::string& Label(uint16_t type, uint16_t question_class);

 private:
  static constexpr uint32_t kSlots = 61;

  struct Slot {
    uint32_t question = 0;
    std::string label;  // empty where the slot is not in use; no label is
  };
  std::array<Slot, kSlots> slots;
};
