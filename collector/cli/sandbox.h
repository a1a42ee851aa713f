#pragma once

namespace cli {

// What a run may do after its start, besides reading and writing what is open.
struct SandboxSettings {
  bool creates_files = false;  // opens files for writing, and renames and removes them
};

// From here on the process may only make the system calls that a run needs (a seccomp filter): no new process or
// program, no socket, no file opened for writing unless the settings allow it. Threads stay possible. A call beyond
// that ends the process with SIGSYS. False when the kernel cannot do it. It cannot be undone.
bool EnterSandbox(const SandboxSettings& settings);

}  // namespace cli
