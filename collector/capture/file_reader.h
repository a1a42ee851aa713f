#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/record_format.h"
#include "collector/capture/source.h"
#include "collector/capture/stream_input.h"

namespace capture {

// Reads the frames of one capture file.
class FileReader final : public Source {
 public:
  // `name` stands in front of problems. Frames carry `number` as their source.
  FileReader(std::string name, uint32_t number, std::unique_ptr<ByteStream> bytes);

  ReadState Read(std::span<const Frame>* frames) override;
  const std::vector<std::string>& Problems() const override { return problems; }
  uint64_t BytesRead() const override { return input ? input->BytesRead() : bytes_read; }
  uint64_t BytesTotal() const override { return input ? input->BytesTotal() : bytes_total; }

 private:
  bool Recognise();
  void ReadBatch();
  Record TakeRecords();
  void HandleEndOfInput();
  void Fail(uint64_t offset, const std::string& what);
  void FailAsAWhole(const std::string& what);
  void Close();

  std::string file;
  uint32_t source;
  std::optional<StreamInput> input;      // none after the end
  std::unique_ptr<RecordFormat> format;  // null until the first bytes were seen
  uint64_t position = 0;                 // in the uncompressed file: the next record
  uint64_t passing = 0;                  // bytes of a record without a frame that are still to be passed over
  std::vector<Frame> batch;
  bool ended = false;
  std::vector<std::string> problems;
  uint64_t bytes_read = 0;  // what the input said at its end
  uint64_t bytes_total = 0;
};

}  // namespace capture
