#include "collector/plugin/question.h"

#include <algorithm>
#include <cstring>

namespace plugin {
namespace {

constexpr int kMaxPointers = 16;  // in one name, as for the parser
constexpr uint8_t kMaxLabel = 63;
constexpr uint8_t kPointerBits = 0xc0;
constexpr size_t kTypeAndClass = 4;
constexpr size_t kRecordFields = 10;  // type, class, TTL, RDLENGTH
constexpr uint16_t kTypeOpt = 41;
constexpr size_t kNowhere = 0;  // no name or record ends in the header

uint8_t Byte(std::string_view message, size_t at) { return static_cast<uint8_t>(message[at]); }

uint16_t Word(std::string_view message, size_t at) {
  return static_cast<uint16_t>(Byte(message, at) << 8 | Byte(message, at + 1));
}

// The end of a name's labels: the offset of its zero byte, of its pointer or of a byte that is neither. kNowhere
// when they run out of the message.
size_t EndOfLabels(std::string_view message, size_t at) {
  while (at < message.size()) {
    const uint8_t length = Byte(message, at);
    if (length == 0 || length > kMaxLabel) return at;
    at += 1U + length;
  }
  return kNowhere;
}

uint8_t Lower(char letter) {
  const auto byte = static_cast<uint8_t>(letter);
  return byte >= 'A' && byte <= 'Z' ? static_cast<uint8_t>(byte | 0x20U) : byte;
}

// Folds names only: type 65 is not type 97. Both have the length of `one`, whose questions are whole.
bool SameIgnoringCase(std::string_view one, std::string_view other) {
  const auto same_letter = [](char a, char b) { return Lower(a) == Lower(b); };
  for (size_t at = 0; at < one.size();) {
    // A length byte is below any letter, so folding does not touch it.
    const size_t fields = EndOfLabels(one, at) + 1;
    if (!std::equal(one.begin() + static_cast<ptrdiff_t>(at), one.begin() + static_cast<ptrdiff_t>(fields),
                    other.begin() + static_cast<ptrdiff_t>(at), same_letter)) {
      return false;
    }
    if (one.substr(fields, kTypeAndClass) != other.substr(fields, kTypeAndClass)) return false;
    at = fields + kTypeAndClass;
  }
  return true;
}

// Walks records one after the other.
class RecordWalk {
 public:
  RecordWalk(std::string_view bytes, size_t first) : message(bytes), next(first) {}

  // False when the record's fixed fields are not there. Its data may be cut.
  bool Next() {
    if (next == kNowhere) return false;
    fields = SkipName(message, next);
    if (fields == kNowhere || fields + kRecordFields > message.size()) return false;
    next = fields + kRecordFields + Word(message, fields + 8);
    return true;
  }
  uint16_t Type() const { return Word(message, fields); }
  uint8_t TopOfTtl() const { return Byte(message, fields + 4); }

 private:
  std::string_view message;
  size_t next;
  size_t fields = kNowhere;
};

}  // namespace

size_t SkipName(std::string_view message, size_t at) {
  const size_t end = EndOfLabels(message, at);
  if (end == kNowhere) return kNowhere;
  if (message[end] == 0) return end + 1;
  return Byte(message, end) >= kPointerBits ? end + 2 : kNowhere;  // RFC 6891 5: other label types are gone
}

bool AppendName(std::string_view message, size_t at, size_t longest, std::string* text) {
  const size_t most = text->size() + longest;
  for (int pointers = 0; pointers <= kMaxPointers; ++pointers) {
    const size_t end = EndOfLabels(message, at);
    if (end == kNowhere || text->size() + (end - at) >= most) return false;
    text->append(message.substr(at, end - at));
    if (message[end] == 0) {
      text->push_back('\0');
      return true;
    }
    if (Byte(message, end) < kPointerBits || end + 2 > message.size()) return false;
    at = Word(message, end) & 0x3fffU;
    if (at < kHeaderSize) return false;
  }
  return false;
}

bool ReadHeader(std::string_view message, Header* header) {
  if (message.size() < kHeaderSize) return false;
  *header = {Word(message, 0), Word(message, 2), Word(message, 4),
             Word(message, 6), Word(message, 8), Word(message, 10)};
  return true;
}

Questions QuestionReader::Read(std::string_view message, const Header& header) {
  if (header.questions != 1) return ReadAll(message, header);
  // Nearly every message: one question whose name has no pointer is used where it stands.
  const size_t zero = EndOfLabels(message, kHeaderSize);
  if (zero == kNowhere || message[zero] != 0) return ReadAll(message, header);
  const size_t end = zero + 1 + kTypeAndClass;
  if (end > message.size()) return {};
  return {message.substr(kHeaderSize, end - kHeaderSize), 1, true, end};
}

Questions QuestionReader::ReadAll(std::string_view message, const Header& header) {
  kept.clear();
  uint16_t count = 0;
  size_t at = kHeaderSize;
  bool keeping = true;
  for (unsigned i = 0; i < header.questions; ++i) {
    const size_t name_end = SkipName(message, at);
    if (name_end == kNowhere || name_end + kTypeAndClass > message.size()) return {kept, count, false, kNowhere};
    keeping = keeping && count < kMaxQuestions && Keep(message, at, name_end);
    if (keeping) ++count;
    at = name_end + kTypeAndClass;
  }
  return {kept, count, keeping, at};
}

bool QuestionReader::Keep(std::string_view message, size_t name, size_t name_end) {
  const size_t before = kept.size();
  if (AppendName(message, name, kMaxQuestionBytes, &kept) && kept.size() + kTypeAndClass <= kMaxQuestionBytes) {
    kept.append(message.substr(name_end, kTypeAndClass));
    return true;
  }
  kept.resize(before);
  return false;
}

bool SameQuestions(const Questions& one, const Questions& other) {
  if (one.bytes.size() > other.bytes.size()) return SameQuestions(other, one);
  if (one.complete && other.complete && one.bytes.size() != other.bytes.size()) return false;
  const std::string_view start = other.bytes.substr(0, one.bytes.size());
  return one.bytes == start || SameIgnoringCase(one.bytes, start);
}

uint16_t ExtendedRcode(std::string_view message, const Header& header, size_t records) {
  const auto rcode = static_cast<uint16_t>(header.flags & 0xfU);
  if (header.additionals == 0) return rcode;
  RecordWalk walk(message, records);
  for (unsigned i = 0; i < unsigned{header.answers} + header.authorities; ++i) {
    if (!walk.Next()) return rcode;
  }
  for (unsigned i = 0; i < header.additionals && walk.Next(); ++i) {
    if (walk.Type() == kTypeOpt) return static_cast<uint16_t>(walk.TopOfTtl() << 4 | rcode);
  }
  return rcode;
}

}  // namespace plugin
