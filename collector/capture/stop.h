#pragma once

namespace capture {

// Ends all waiting for input, in every thread, now and from now on: pipes and compressed streams are at their end
// where they stand. Whoever stops knows that what then looks like a cut-off file is none. Safe in a signal handler.
void StopReading();

// Takes it back, for tests.
void ResumeReading();

// Waits until the descriptor has bytes or is at its end: true; or until StopReading: false.
bool WaitForInput(int descriptor);

}  // namespace capture
