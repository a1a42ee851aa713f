#include <doctest/doctest.h>
#include <rapidcheck.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "collector/flow/tcp_stream.h"
#include "tests/support/cutter_recorder.h"
#include "tests/support/dns_builder.h"

using flow::TcpStream;
using test::CutterRecorder;

namespace {

struct Span {
  size_t from;
  size_t to;
};

void Send(TcpStream* stream, uint32_t base, size_t at, const std::string& bytes, CutterRecorder* out) {
  const auto block = std::make_unique<uint8_t[]>(bytes.size() + 1);
  std::copy(bytes.begin(), bytes.end(), block.get());
  const auto size = static_cast<uint32_t>(bytes.size());
  stream->Data({base + static_cast<uint32_t>(at), block.get(), size, size, 0}, out);
}

size_t Upto(size_t most) { return *rc::gen::inRange<size_t>(0, most + 1); }

// Messages of any content behind their lengths; now and then an empty one, now and then a long one.
std::vector<std::string> AnyMessages() {
  std::vector<std::string> messages(1 + Upto(11));
  for (std::string& message : messages) {
    const size_t size = Upto(9) == 0 ? Upto(6000) : Upto(80);
    const std::string body = *rc::gen::container<std::string>(size, rc::gen::arbitrary<char>());
    message = test::U16(static_cast<unsigned>(size)) + body;
  }
  return messages;
}

std::string Joined(const std::vector<std::string>& parts) {
  std::string all;
  for (const std::string& part : parts) all += part;
  return all;
}

// Cuts 0..size into at most `most` spans.
std::vector<Span> AnySplit(size_t size, size_t most) {
  std::vector<size_t> cuts(Upto(most - 1));
  for (size_t& cut : cuts) cut = Upto(size);
  cuts.push_back(0);
  cuts.push_back(size);
  std::sort(cuts.begin(), cuts.end());
  std::vector<Span> spans;
  for (size_t i = 1; i < cuts.size(); ++i) {
    if (cuts[i - 1] < cuts[i]) spans.push_back({cuts[i - 1], cuts[i]});
  }
  return spans;
}

template <typename T>
void Shuffle(std::vector<T>* items) {
  for (size_t i = items->size(); i > 1; --i) std::swap((*items)[i - 1], (*items)[Upto(i - 1)]);
}

bool AreHandedOnWhole(const CutterRecorder& out, const std::vector<std::string>& messages) {
  if (out.cuts.size() != messages.size()) return false;
  for (size_t i = 0; i < messages.size(); ++i) {
    if (out.cuts[i].bytes != messages[i] || out.cuts[i].nominal != messages[i].size()) return false;
  }
  return true;
}

}  // namespace

TEST_CASE("any split, order, duplication and overlap of a stream gives the same messages") {
  CHECK(rc::check([] {
    const std::vector<std::string> messages = AnyMessages();
    const std::string all = Joined(messages);
    std::vector<Span> spans = AnySplit(all.size(), 30);
    for (size_t extra = Upto(30); extra > 0; --extra) {
      const auto [low, high] = std::minmax({Upto(all.size()), Upto(all.size())});
      spans.push_back({low, high});
    }
    Shuffle(&spans);
    const uint32_t isn = *rc::gen::arbitrary<uint32_t>();
    const size_t fin_after = Upto(spans.size());
    CutterRecorder out;
    TcpStream stream;
    stream.Syn(isn);
    for (size_t i = 0; i <= spans.size(); ++i) {
      if (i == fin_after) stream.Fin(isn + 1 + static_cast<uint32_t>(all.size()), 0, &out);
      if (i == spans.size()) break;
      Send(&stream, isn + 1, spans[i].from, all.substr(spans[i].from, spans[i].to - spans[i].from), &out);
    }
    RC_ASSERT(AreHandedOnWhole(out, messages));
    RC_ASSERT(stream.ended());
    RC_ASSERT(stream.Held() == 0U);
    RC_ASSERT(out.own.tcp_gaps == 0U);
    RC_ASSERT(out.own.tcp_skipped_bytes == 0U);
    RC_ASSERT(out.own.tcp_unfinished_messages == 0U);
  }));
}

TEST_CASE("of contradicting bytes the first to arrive stand, wherever segments overlap") {
  CHECK(rc::check([] {
    const size_t size = 1 + Upto(300);
    std::vector<std::optional<char>> first(size);
    std::vector<Span> spans = AnySplit(size, 20);
    for (size_t extra = Upto(20); extra > 0; --extra) {
      const auto [low, high] = std::minmax({Upto(size), Upto(size)});
      spans.push_back({low, high});
    }
    Shuffle(&spans);
    CutterRecorder out;
    TcpStream stream;
    stream.Syn(0);
    size_t sent = 0;
    Send(&stream, 1, 0, test::U16(static_cast<unsigned>(size)), &out);
    for (const Span& span : spans) {
      const std::string bytes(span.to - span.from, static_cast<char>('0' + sent % 60));
      for (size_t i = span.from; i < span.to; ++i) {
        if (!first[i]) first[i] = bytes[0];
      }
      Send(&stream, 3, span.from, bytes, &out);
      ++sent;
    }
    std::string expected = test::U16(static_cast<unsigned>(size));
    for (const std::optional<char>& byte : first) expected += *byte;
    RC_ASSERT(out.Texts() == std::vector<std::string>{expected});
  }));
}

namespace {

// A response whose name tells it from all others, so that a part of it can be attributed.
std::string Numbered(unsigned id, size_t padding) {
  return test::Response(id)
      .Question("n" + std::to_string(id) + ".example", test::kTxt)
      .Answer("n" + std::to_string(id) + ".example", test::Txt(std::string(padding, 'x')))
      .TcpWire();
}

}  // namespace

TEST_CASE("whatever is lost, every message handed on is the beginning of one that was sent, in order and once") {
  CHECK(rc::check([] {
    std::vector<std::string> messages;
    for (unsigned id = 0; id < 20; ++id) messages.push_back(Numbered(id, Upto(200)));
    const std::string all = Joined(messages);
    std::vector<Span> spans = AnySplit(all.size(), 40);
    const bool from_syn = *rc::gen::arbitrary<bool>();
    CutterRecorder out(flow::Expected::kResponses);
    TcpStream stream;
    if (from_syn) stream.Syn(99);
    for (const Span& span : spans) {
      if (Upto(4) == 0) continue;  // lost
      Send(&stream, 100, span.from, all.substr(span.from, span.to - span.from), &out);
      if (Upto(4) == 0) stream.GiveUpGap(&out);
    }
    stream.End(&out);
    RC_ASSERT(stream.Held() == 0U);
    size_t next = 0;
    for (const test::Cut& cut : out.cuts) {
      while (next < messages.size() && !messages[next].starts_with(cut.bytes)) ++next;
      RC_ASSERT(next < messages.size());
      RC_ASSERT(cut.bytes.size() >= 2U);
      RC_ASSERT(cut.nominal == messages[next].size());
      if (cut.bytes.size() >= 4) ++next;  // a length alone may fit several
    }
  }));
}

TEST_CASE("a stream that nothing is lost of is whole again from the first segment that begins with a message") {
  CHECK(rc::check([] {
    std::vector<std::string> messages;
    for (unsigned id = 0; id < 10; ++id) messages.push_back(Numbered(id, Upto(100)));
    // Long enough to be judged alone.
    const std::string rest = messages[0].substr(1 + Upto(messages[0].size() - 1 - flow::kPrefixAndHeader));
    CutterRecorder out(flow::Expected::kResponses);
    TcpStream stream;
    Send(&stream, 100, 0, rest, &out);
    messages.erase(messages.begin());
    const std::string all = Joined(messages);
    for (const Span& span : AnySplit(all.size(), 30)) {
      Send(&stream, 100, rest.size() + span.from, all.substr(span.from, span.to - span.from), &out);
    }
    RC_ASSERT(out.Texts() == messages);
  }));
}
