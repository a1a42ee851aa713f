#pragma once

#include <ostream>
#include <string>

#include "dns-parser/trace.h"
#include "tests/support/dns_builder.h"
#include "tests/support/recording_host.h"

// What the tests of the decoders share: single decoders run on bytes, and the log as text that can be compared.
namespace test {

// A parser on a recording host that has forgotten the line the parser starts with.
struct QuietBench : Bench {
  explicit QuietBench(int level = 4) {
    host.lines.clear();
    host.calls.clear();
    host.level = level;
  }
};

// What a decoder said, where it left the offset, and what it put out.
struct Decoded {
  int result = 0;
  int offset = 0;
  std::string text;

  friend bool operator==(const Decoded&, const Decoded&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Decoded& decoded) {
    return out << "{result " << decoded.result << ", offset " << decoded.offset << ", '" << decoded.text << "'}";
  }
};

// The output starts as rubbish, which must not be seen again.
inline Decoded NameAt(const Bench& bench, const IOVec& view, int offset, int depth = 0) {
  std::string name = "left over";
  const int result = bench.parser.GetName(view, &offset, &name, depth);
  return {result, offset, name};
}
inline Decoded NameAt(const Bench& bench, const std::string& message, int offset, int depth = 0) {
  return NameAt(bench, View(message), offset, depth);
}

inline Decoded StringAt(const Bench& bench, const IOVec& view, int offset) {
  std::string text = "left over";
  const int result = bench.parser.GetString(view, &offset, &text);
  return {result, offset, text};
}
inline Decoded StringAt(const Bench& bench, const std::string& message, int offset) {
  return StringAt(bench, View(message), offset);
}

// A message that holds, behind the name aa at 12, a chain of pointers from 16 on, each to the one before it. What
// is added to it starts behind them.
inline Message PointerChain(int pointers) {
  Message message = Response(7);
  unsigned target = message.Here();
  message.Bytes(Name("aa").Wire());
  for (int i = 0; i < pointers; ++i) {
    const unsigned here = message.Here();
    message.Bytes(Pointer(target).Wire());
    target = here;
  }
  return message;
}
// A pointer behind such a chain that reads as aa when `links` pointers, itself among them, are followed.
inline Name Link(unsigned links) { return links == 1 ? Pointer(12) : Pointer(16 + 2 * (links - 2)); }

// The first `length` bytes of a message, all of which were captured.
inline std::string Prefix(const std::string& message, size_t length) { return message.substr(0, length); }

// A log line, as Log() shows it.
inline std::string LogLine(int level, const std::string& format, const std::string& text) {
  return std::to_string(level) + " " + format + " -> " + text + "\n";
}

// One message each way: format and text behind the head that its level gives them.
inline std::string Logged(int level, const std::string& format, const std::string& text) {
  return LogLine(level, "%s" + format, "[dns]-" + text);
}
inline std::string Dropped(const std::string& format, const std::string& text) { return Logged(4, format, text); }
inline std::string Traced(int line, const std::string& format, const std::string& text) {
  return LogLine(5, "[%s:%d]-%s" + format, "[dns-parser.cc:" + std::to_string(line) + "]-[dns]-" + text);
}

// The line of a name that starts or goes on behind the captured bytes.
inline std::string NameRanOut(int offset, size_t size) {
  return Dropped("GetName offset exceeds packet size: %d > %zd",
                 "GetName offset exceeds packet size: " + std::to_string(offset) + " > " + std::to_string(size));
}
// The line of a label that does.
inline std::string LabelRanOut(int length, int offset, size_t size) {
  return Dropped("GetName length exceeds packet size: len=%d ofs=%d buffer=%zd",
                 "GetName length exceeds packet size: len=" + std::to_string(length) +
                     " ofs=" + std::to_string(offset) + " buffer=" + std::to_string(size));
}
// The line of a character string without its length byte.
inline std::string StringRanOut(int offset, size_t size) {
  return Dropped("GetString offset exceeds packet size: %d > %zd",
                 "GetString offset exceeds packet size: " + std::to_string(offset) + " > " + std::to_string(size));
}

// Everything the host was told to log, a line each, oldest first.
inline std::string Log(const RecordingHost& host) {
  std::string text;
  for (const RecordingHost::Line& line : host.lines) text += LogLine(line.level, line.format, line.text);
  return text;
}

// The texts alone, a line each, without the head that all traces share: "722 answer[0]@12 = {...", "GetName ...".
inline std::string Shown(const RecordingHost& host) {
  const std::string head = "[dns-parser.cc:";
  const std::string prefix = "[dns]-";
  std::string shown;
  for (const RecordingHost::Line& line : host.lines) {
    std::string text = line.text;
    if (text.starts_with(head)) text.replace(0, head.size(), "").replace(text.find(']'), 2, " ");
    if (const size_t at = text.find(prefix); at != std::string::npos) text.erase(at, prefix.size());
    shown += text + "\n";
  }
  return shown;
}

}  // namespace test
