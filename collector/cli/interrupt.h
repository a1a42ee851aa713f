#pragma once

namespace cli {

// From now on the first SIGINT or SIGTERM asks the run to end with everything reported; a second one ends it at
// once. Writing to a closed pipe is an error like any other and no signal.
void PrepareSignals();

// Fills standard input, output and error where the caller closed them, so that no file of ours takes their place
// and gets what was meant for them. Reading and writing them fails as it should.
void KeepStandardDescriptors();

// For a process that works for another, which hears of SIGINT and SIGTERM too and says when to end: by SIGUSR2, any
// number of times.
void PrepareWorkerSignals();

// True once SIGINT or SIGTERM came.
bool Interrupted();

// SIGUSR1 asks for the account so far; SIGHUP, in what runs for months, for the output to be opened anew. Each Take
// answers once for any number of signals since the last.
void PrepareAccountSignal();
bool TakeAccountRequest();
void PrepareReopenSignal();
bool TakeReopenRequest();

}  // namespace cli
