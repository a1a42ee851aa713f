#include "collector/flow/message_cutter.h"

#include <algorithm>

namespace flow {

namespace {

uint32_t FramedLength(const uint8_t* data) { return ((uint32_t{data[0]} << 8) | data[1]) + 2; }

void Advance(Piece* piece, uint32_t size) {
  piece->data += size;
  piece->size -= size;
  piece->begins_segment = false;
}

}  // namespace

void MessageCutter::Start(bool at_boundary) {
  Forget();
  searching = !at_boundary;
  trusted = at_boundary;
  rest = 0;
}

void MessageCutter::Bytes(Piece piece, CutterOutput* output) {
  while (piece.size > 0) {
    if (rest > 0) {
      Skip(&piece);
    } else if (searching) {
      Search(&piece, output);
    } else if (!buffer.empty()) {
      Collect(&piece, output);
    } else {
      Cut(&piece, output);
    }
  }
}

void MessageCutter::Hole(uint32_t size, CutterOutput* output) {
  if (searching) {
    output->counts->tcp_skipped_bytes += buffer.size();
    Forget();
    return;
  }
  GiveUp(output);
  // A hole that ends inside the message leaves the next length where it was.
  const bool in_step = !searching && size <= rest;
  rest = in_step ? rest - size : 0;
  if (!in_step) LoseStep(output, 0);
}

bool MessageCutter::GiveUp(CutterOutput* output) {
  if (buffer.empty()) return false;
  if (searching || buffer.size() < kPrefix) {
    const bool begun = !searching;
    LoseStep(output, buffer.size());
    return begun;
  }
  const uint32_t snap = static_cast<uint32_t>(buffer.size());
  const uint32_t nominal = FramedLength(buffer.data());
  output->OnCutMessage({buffer.data(), snap, nominal, buffer_time_ns});
  rest = nominal - snap;
  Forget();
  return true;
}

void MessageCutter::Skip(Piece* piece) {
  const uint32_t size = std::min(rest, piece->size);
  rest -= size;
  Advance(piece, size);
}

void MessageCutter::Search(Piece* piece, CutterOutput* output) {
  if (!buffer.empty()) return Probe(piece, output);
  if (!piece->begins_segment) {
    output->counts->tcp_skipped_bytes += piece->size;
    return Advance(piece, piece->size);
  }
  // Some servers send the length in a segment of its own.
  if (piece->size < kPrefixAndHeader) return Append(piece, piece->size);
  searching = !IsPlausibleStart(piece->data, piece->size, output->Expects());
  piece->begins_segment = false;
}

// The bytes held were the whole of a segment: judged together with what follows them.
void MessageCutter::Probe(Piece* piece, CutterOutput* output) {
  const Piece before = *piece;
  const size_t held = buffer.size();
  Append(piece, std::min(static_cast<uint32_t>(kPrefixAndHeader - held), piece->size));
  if (buffer.size() < kPrefixAndHeader) return;
  searching = !IsPlausibleStart(buffer.data(), buffer.size(), output->Expects());
  if (!searching) return;
  output->counts->tcp_skipped_bytes += held;
  Forget();
  *piece = before;
}

void MessageCutter::Cut(Piece* piece, CutterOutput* output) {
  if (piece->size < kPrefix) return Append(piece, piece->size);
  if (!Believes(piece->data, piece->size, *output)) return LoseStep(output, 0);
  const uint32_t nominal = FramedLength(piece->data);
  if (piece->size < nominal) return Append(piece, piece->size);
  output->OnCutMessage({piece->data, nominal, nominal, piece->time_ns});
  Advance(piece, nominal);
}

void MessageCutter::Collect(Piece* piece, CutterOutput* output) {
  if (!CompleteHead(piece, output)) return;
  const uint32_t nominal = FramedLength(buffer.data());
  Append(piece, std::min(nominal - static_cast<uint32_t>(buffer.size()), piece->size));
  if (buffer.size() < nominal) return;
  output->OnCutMessage({buffer.data(), nominal, nominal, buffer_time_ns});
  Forget();
}

// Collects as much as it takes to know the message's end and whether it is one. False when more is needed, or
// when it is none.
bool MessageCutter::CompleteHead(Piece* piece, CutterOutput* output) {
  if (buffer.size() < kPrefix) Append(piece, kPrefix - 1);
  if (trusted || buffer.size() >= kPrefixAndHeader) return true;
  const uint32_t head = std::min(FramedLength(buffer.data()), static_cast<uint32_t>(kPrefixAndHeader));
  const uint32_t held = static_cast<uint32_t>(buffer.size());
  if (held < head) Append(piece, std::min(head - held, piece->size));
  if (buffer.size() < head) return false;
  if (Believes(buffer.data(), head, *output)) return true;
  LoseStep(output, buffer.size());
  return false;
}

// Where a stream's beginning was not seen, each message has to look like one as soon as its header is there.
bool MessageCutter::Believes(const uint8_t* data, uint32_t present, const CutterOutput& output) const {
  if (trusted) return true;
  const uint32_t nominal = FramedLength(data);
  if (nominal < kPrefixAndHeader) return false;
  return present < kPrefixAndHeader || IsPlausibleStart(data, std::min(present, nominal), output.Expects());
}

// Keeps one byte more than it holds: the parser may look at the byte behind a message.
void MessageCutter::Append(Piece* piece, uint32_t size) {
  buffer_time_ns = buffer.empty() ? piece->time_ns : std::max(buffer_time_ns, piece->time_ns);
  const size_t needed = buffer.size() + size + 1;
  if (buffer.capacity() < needed) buffer.reserve(std::max(needed, buffer.capacity() * 2));
  buffer.insert(buffer.end(), piece->data, piece->data + size);
  Advance(piece, size);
}

void MessageCutter::LoseStep(CutterOutput* output, uint64_t skipped) {
  output->counts->tcp_skipped_bytes += skipped;
  searching = true;
  trusted = false;
  Forget();
}

void MessageCutter::Forget() { std::vector<uint8_t>().swap(buffer); }

}  // namespace flow
