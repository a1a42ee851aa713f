#include "collector/capture/waiting_file.h"

#include <utility>

namespace capture {

WaitingFile::WaitingFile(std::string name, uint64_t size, std::function<std::unique_ptr<Source>()> open_file)
    : path(std::move(name)), bytes_total(size), open(std::move(open_file)) {}

ReadState WaitingFile::Read(std::span<const Frame>* frames) {
  switch (state) {
    case State::kNew:
      return ReadFirst(frames);
    case State::kWaiting:
      return ReadOn(frames);
    case State::kReading:
      return file->Read(frames);
    case State::kReplaced:
      break;
  }
  *frames = {};
  return ReadState::kEnd;
}

ReadState WaitingFile::ReadFirst(std::span<const Frame>* frames) {
  file = open();
  state = State::kReading;
  const ReadState result = file->Read(frames);
  if (result != ReadState::kFrames) {
    open = nullptr;  // with what it holds of the file
    return result;
  }
  first = frames->front();
  first_bytes.assign(first.data, first.data + first.captured);
  first_bytes.push_back(0);  // the byte behind
  first.data = first_bytes.data();
  file.reset();
  state = State::kWaiting;
  *frames = {&first, 1};
  return ReadState::kFrames;
}

ReadState WaitingFile::ReadOn(std::span<const Frame>* frames) {
  file = std::exchange(open, nullptr)();
  state = State::kReading;
  const ReadState result = file->Read(frames);
  const bool same = result == ReadState::kFrames && frames->front().time_ns == first.time_ns &&
                    frames->front().captured == first.captured;
  if (!same) {
    problems = file->Problems();
    problems.push_back(path + ": the file was replaced while it waited for its turn");
    state = State::kReplaced;
    *frames = {};
    return ReadState::kEnd;
  }
  *frames = frames->subspan(1);
  return frames->empty() ? file->Read(frames) : ReadState::kFrames;
}

const std::vector<std::string>& WaitingFile::Problems() const {
  return state == State::kReplaced || file == nullptr ? problems : file->Problems();
}

}  // namespace capture
