#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "collector/capture/source.h"

namespace capture {

// A file, which costs buffers while it is open. A merge of a day's captures looks at the first frame of each and
// comes back to most of them much later; so the file is closed behind its first frame and opened again for the
// second.
class WaitingFile final : public Source {
 public:
  // `open_file` gives a source that reads the file from its begin, each time. `name` stands in front of problems.
  WaitingFile(std::string name, uint64_t size, std::function<std::unique_ptr<Source>()> open_file);

  ReadState Read(std::span<const Frame>* frames) override;
  const std::vector<std::string>& Problems() const override;
  uint64_t BytesRead() const override { return state == State::kReading ? file->BytesRead() : 0; }
  uint64_t BytesTotal() const override { return bytes_total; }

 private:
  enum class State : uint8_t { kNew, kWaiting, kReading, kReplaced };

  ReadState ReadFirst(std::span<const Frame>* frames);
  ReadState ReadOn(std::span<const Frame>* frames);

  std::string path;
  uint64_t bytes_total;
  std::function<std::unique_ptr<Source>()> open;
  State state = State::kNew;
  std::unique_ptr<Source> file;  // null before and while waiting
  Frame first;                   // the first frame, with bytes of our own
  std::vector<uint8_t> first_bytes;
  std::vector<std::string> problems;  // where they are not the file's
};

}  // namespace capture
