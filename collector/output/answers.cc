#include "collector/output/answers.h"

#include <algorithm>
#include <optional>

#include "collector/output/question.h"

namespace output {
namespace {

using plugin::AnswerReader;

constexpr uint16_t kInternet = 1;
enum : uint16_t {
  kA = 1,
  kNs = 2,
  kCname = 5,
  kSoa = 6,
  kPtr = 12,
  kMx = 15,
  kTxt = 16,
  kAaaa = 28,
  kSrv = 33,
  kDname = 39
};

void AppendBytes(std::string_view bytes, Style style, std::string* text) {
  const size_t before = text->size();
  text->resize(before + bytes.size() * kLongestEscape);
  const char* end = PutBytes(text->data() + before, bytes, style);
  text->resize(static_cast<size_t>(end - text->data()));
}

void AppendName(std::string_view labels, Style style, std::string* text) {
  const size_t before = text->size();
  text->resize(before + labels.size() * kLongestEscape + 1);
  const char* end = PutName(text->data() + before, labels, style);
  text->resize(static_cast<size_t>(end - text->data()));
}

void AppendAddress(const packet::Address& address, std::string* text) {
  char characters[kLongestAddress];
  text->append(characters, PutAddress(characters, address));
}

// How the data of a type is laid out: so many 16-bit numbers, names, 32-bit numbers, in this order.
struct Layout {
  uint16_t type;
  int words;
  int names;
  int longs;
};
constexpr Layout kLayouts[] = {{kNs, 0, 1, 0}, {kCname, 0, 1, 0}, {kPtr, 0, 1, 0}, {kDname, 0, 1, 0},
                               {kMx, 1, 1, 0}, {kSrv, 3, 1, 0},   {kSoa, 0, 2, 5}};

// Takes the data apart; false when it is not laid out so.
class DataWriter {
 public:
  DataWriter(const AnswerReader& record, Style wanted, std::string* destination)
      : answer(record), data(record.data()), style(wanted), text(destination) {}

  bool Fields(const Layout& layout) {
    for (int i = 0; i < layout.words; ++i) {
      if (!Number(2)) return false;
    }
    for (int i = 0; i < layout.names; ++i) {
      if (!Name()) return false;
    }
    for (int i = 0; i < layout.longs; ++i) {
      if (!Number(4)) return false;
    }
    return at == data.size();
  }

  bool Strings() {
    while (at < data.size()) {
      const auto length = static_cast<size_t>(static_cast<uint8_t>(data[at++]));
      if (at + length > data.size()) return false;
      Separate();
      AppendBytes(data.substr(at, length), style, text);
      at += length;
    }
    return !data.empty();
  }

 private:
  void Separate() {
    if (!first) text->push_back(' ');
    first = false;
  }

  bool Number(size_t bytes) {
    if (at + bytes > data.size()) return false;
    uint64_t number = 0;
    for (size_t i = 0; i < bytes; ++i) number = number << 8 | static_cast<uint8_t>(data[at++]);
    Separate();
    text->append(std::to_string(number));
    return true;
  }

  bool Name() {
    std::string labels;
    if (!answer.ReadName(&at, &labels)) return false;
    Separate();
    AppendName(labels, style, text);
    return true;
  }

  const AnswerReader& answer;
  std::string_view data;
  Style style;
  std::string* text;
  size_t at = 0;
  bool first = true;
};

bool AppendKnown(const AnswerReader& answer, Style style, std::string* text) {
  const packet::Address address = AnswerAddress(answer);
  if (address.version != 0) {
    AppendAddress(address, text);
    return true;
  }
  DataWriter writer(answer, style, text);
  if (answer.type() == kTxt) return writer.Strings();
  const auto* layout = std::find_if(std::begin(kLayouts), std::end(kLayouts),
                                    [&](const Layout& each) { return each.type == answer.type(); });
  return layout != std::end(kLayouts) && writer.Fields(*layout);
}

void AppendUnknown(std::string_view data, Style style, std::string* text) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  text->append(style == Style::kPlain ? "\\# " : "\\\\# ").append(std::to_string(data.size()));
  if (!data.empty()) text->push_back(' ');
  for (const char character : data) {
    text->push_back(kDigits[static_cast<uint8_t>(character) >> 4]);
    text->push_back(kDigits[static_cast<uint8_t>(character) & 0xf]);
  }
}

}  // namespace

void AppendOwner(const AnswerReader& answer, Style style, std::string* text) {
  AppendName(answer.name(), style, text);
}

void AppendAnswerData(const AnswerReader& answer, Style style, std::string* text) {
  const size_t before = text->size();
  if (AppendKnown(answer, style, text)) return;
  text->resize(before);
  AppendUnknown(answer.data(), style, text);
}

packet::Address AnswerAddress(const AnswerReader& answer) {
  packet::Address address;
  const std::string_view data = answer.data();
  if (answer.number_of_class() != kInternet) return address;
  if (answer.type() == kA && data.size() == 4) address.version = 4;
  if (answer.type() == kAaaa && data.size() == 16) address.version = 6;
  if (address.version != 0) std::copy(data.begin(), data.end(), address.octets.begin());
  return address;
}

}  // namespace output
