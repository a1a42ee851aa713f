#include "dns-parser/labels.h"

#include <utility>

#include "dns-parser/types.h"

const std::string& LabelCache::Label(uint16_t type, uint16_t question_class) {
  const uint32_t question = static_cast<uint32_t>(question_class) << 16 | type;
  Slot& slot = slots[question % kSlots];
  if (slot.question == question && !slot.label.empty()) return slot.label;

  std::string label;
  if (question_class != kClassIn) label.append(dns_lookup_description(dns_classes, question_class)).append("/");
  label.append(dns_lookup_description(dns_types, type));
  slot.label = std::move(label);
  slot.question = question;
  return slot.label;
}
