#include "collector/plugin/answer_reader.h"

namespace plugin {

AnswerReader::AnswerReader(std::string_view message, size_t first) : packet(message), next(first) {
  Header header;
  if (first != 0 && ReadHeader(message, &header)) left = header.answers;
}

bool AnswerReader::Next() {
  if (left == 0) return false;
  --left;
  fields = SkipName(packet, next);
  owner.clear();
  const bool whole =
      fields != 0 && fields + kFields <= packet.size() && AppendName(packet, next, kLongestName, &owner);
  if (whole) length = Word(fields + 8);
  if (!whole || fields + kFields + length > packet.size()) {
    left = 0;
    return false;
  }
  owner.pop_back();
  next = fields + kFields + length;
  return true;
}

bool AnswerReader::ReadName(size_t* at, std::string* labels) const {
  const size_t begin = fields + kFields;
  const size_t end = SkipName(packet, begin + *at);
  labels->clear();
  if (end == 0 || end > begin + length || !AppendName(packet, begin + *at, kLongestName, labels)) return false;
  labels->pop_back();
  *at = end - begin;
  return true;
}

}  // namespace plugin
