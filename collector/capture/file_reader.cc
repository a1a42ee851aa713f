#include "collector/capture/file_reader.h"

#include <algorithm>
#include <utility>

#include "collector/capture/content.h"
#include "collector/capture/pcap_format.h"
#include "collector/capture/pcapng_format.h"

namespace capture {
namespace {

// Enough to make calls cheap, few enough that what was looked at is still in the cache when it is decoded.
constexpr size_t kBatchSize = 64;

}  // namespace

FileReader::FileReader(std::string name, uint32_t number, std::unique_ptr<ByteStream> bytes)
    : file(std::move(name)), source(number), input(std::move(bytes)) {
  batch.reserve(kBatchSize);
}

ReadState FileReader::Read(std::span<const Frame>* frames) {
  batch.clear();
  while (batch.empty() && !ended) {
    if (format != nullptr || Recognise()) ReadBatch();
  }
  *frames = batch;
  if (!batch.empty()) return ReadState::kFrames;
  Close();
  return ReadState::kEnd;
}

// False at the end of what can be read.
bool FileReader::Recognise() {
  while (input->Bytes().size() < kContentBytes && input->More(kContentBytes)) {
  }
  const Content content = ContentOf(input->Bytes());
  if (content == Content::kPcap) format = std::make_unique<PcapFormat>();
  if (content == Content::kPcapng) format = std::make_unique<PcapngFormat>();
  if (format != nullptr) return true;
  if (const std::string damage = input->Damage(); !damage.empty()) {
    Fail(0, damage);
  } else if (input->Bytes().empty()) {
    FailAsAWhole("there are no data in it");
  } else {
    FailAsAWhole("not a capture file (pcap or pcapng, plain or compressed with gzip or zstd)");
  }
  return false;
}

void FileReader::ReadBatch() {
  const Record last = TakeRecords();
  if (last.kind == Record::Kind::kCorrupt) return Fail(format->RecordBegin(), format->Problem());
  const bool waiting = last.kind == Record::Kind::kIncomplete || passing > 0;
  if (!waiting || !batch.empty()) return;
  const uint64_t needed = last.kind == Record::Kind::kIncomplete ? last.length : 1;
  if (!input->More(needed)) HandleEndOfInput();
}

// Takes records until the batch is full or what is at hand has been used. Returns the last one looked at.
Record FileReader::TakeRecords() {
  std::span<const uint8_t> bytes = input->Bytes();
  const size_t at_hand = bytes.size();
  Record record{Record::Kind::kOther, passing};
  Frame frame;
  frame.source = source;
  for (;;) {
    const size_t step = std::min<uint64_t>(record.length, bytes.size());
    bytes = bytes.subspan(step);
    position += step;
    passing = record.length - step;
    if (passing > 0 || batch.size() == kBatchSize) break;
    record = format->Next(bytes, position, &frame);
    if (record.kind == Record::Kind::kFrame) {
      batch.push_back(frame);
    } else if (record.kind != Record::Kind::kOther) {
      break;
    }
  }
  input->Advance(at_hand - bytes.size());
  return record;
}

void FileReader::HandleEndOfInput() {
  const bool inside_record = !input->Bytes().empty() || format->RecordBegin() != position;
  if (const std::string damage = input->Damage(); !damage.empty()) {
    Fail(format->RecordBegin(), damage);
  } else if (inside_record) {
    Fail(format->RecordBegin(), "the file is cut off in the middle of a record");
  }
  ended = true;
}

void FileReader::Fail(uint64_t offset, const std::string& what) {
  problems.push_back(file + ":" + std::to_string(offset) + ": " + what);
  ended = true;
}

void FileReader::FailAsAWhole(const std::string& what) {
  problems.push_back(file + ": " + what);
  ended = true;
}

// Many files may wait for their turn in a merge; those that are through hold nothing any more.
void FileReader::Close() {
  if (!input) return;
  bytes_read = input->BytesRead();
  bytes_total = input->BytesTotal();
  input.reset();
  format.reset();
}

}  // namespace capture
