#pragma once

namespace capture {

// Ends all waiting for input, in every thread, now and from now on: pipes are at their end where they stand, and
// whoever stops knows that what then looks like a cut-off file is none. Files, which nobody waits for, can be read
// on. Safe in a signal handler.
void StopReading();

// Takes it back, for tests.
void ResumeReading();

// Waits until the descriptor has bytes or is at its end: true; or until StopReading: false.
bool WaitForInput(int descriptor);

}  // namespace capture
