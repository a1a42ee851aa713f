#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// The host's own reading of a DNS message in hand: the question and the response code as they are on the wire,
// whatever the parser makes of them. All of it is bounded, and safe on messages that are cut or lie.
namespace plugin {

inline constexpr size_t kHeaderSize = 12;
inline constexpr uint16_t kMaxQuestions = 64;
inline constexpr size_t kMaxQuestionBytes = 1 << 16;

// What every message begins with (RFC 1035 4.1.1).
struct Header {
  uint16_t id = 0;
  uint16_t flags = 0;  // bytes 2 and 3
  uint16_t questions = 0;
  uint16_t answers = 0;
  uint16_t authorities = 0;
  uint16_t additionals = 0;

  int Opcode() const { return flags >> 11 & 0xf; }
};

// False, with the header untouched, when not all of it is there.
bool ReadHeader(std::string_view message, Header* header);

// A question section: uncompressed names, types and classes as on the wire, one question behind the other. Letters
// keep their case. Names may be longer than 255 bytes, as they may for the parser.
struct Questions {
  std::string_view bytes;  // whole questions only
  uint16_t count = 0;      // in `bytes`
  bool complete = false;   // all that the header promises are there
  size_t end = 0;          // where the first record starts; 0 when the section is broken or cut
};

class QuestionReader {
 public:
  // The result points into the message where it can, otherwise into this reader; it is valid until the next call.
  // At most kMaxQuestions questions and kMaxQuestionBytes bytes are kept.
  Questions Read(std::string_view message, const Header& header);

 private:
  Questions ReadAll(std::string_view message, const Header& header);
  bool Keep(std::string_view message, size_t name, size_t name_end);

  std::string kept;  // reused
};

// The offset behind the name at `at`, whose pointer is not followed; it may lie behind the message. 0 when the name
// is broken or cut.
size_t SkipName(std::string_view message, size_t at);

// Appends the name at `at` without its pointers (RFC 1035 4.1.4), its root's zero byte at the end. False when it is
// broken, cut or longer than `longest`; part of it is appended then.
bool AppendName(std::string_view message, size_t at, size_t longest, std::string* text);

// Whether two messages ask the same, ignoring the case of ASCII letters (RFC 4343). Where one is not complete, only
// the questions that both have are compared.
bool SameQuestions(const Questions& one, const Questions& other);

// The response code, extended by the OPT record of the additional section if that can be reached (RFC 6891 6.1.3).
// `records` is where the first record starts, 0 for nowhere.
uint16_t ExtendedRcode(std::string_view message, const Header& header, size_t records);

}  // namespace plugin
