#pragma once

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/death.h"
#include "tests/support/loopback.h"

namespace test {

// A terminal in which a shell runs, in a tmux of its own that nobody else sees and no configuration reaches.
class Tmux {
 public:
  // Without tmux the tests say that they were skipped.
  static bool Available() {
    static const bool available = RunInChild([] {
                                    execlp("tmux", "tmux", "-V", nullptr);
                                    _exit(127);
                                  }).ExitCode() == 0;
    if (!available) MESSAGE("skipped: terminals need tmux (scripts/setup test)");
    return available;
  }

  Tmux() : folder("/tmp/dnspair-tmux-XXXXXX") {
    if (mkdtemp(folder.data()) == nullptr) throw std::runtime_error("no temporary folder");
    server = fork();
    if (server == 0) {
      // Not as a daemon: whatever ends us ends the terminal, too.
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      Become({"-D", "-f", "/dev/null"});
    }
    // As soon as the server listens there is a session; until then -N keeps tmux from starting another server.
    WaitFor([&] {
      Run({"-N", "new-session", "-s", "only", "-d", "-x", "80", "-y", "24",
           "exec env -u TMUX -u NO_COLOR PS1='ready> ' HISTFILE= bash --norc --noprofile -i"});
      return !Screen().empty();
    });
    WaitForText("ready>");
    Enter("stty -a >" + folder + "/before");
  }
  ~Tmux() {
    if (server > 0) {
      kill(server, SIGTERM);
      waitpid(server, nullptr, 0);
    }
    for (const char* name : {"/before", "/after", "/socket"}) unlink((folder + name).c_str());
    rmdir(folder.c_str());
  }
  Tmux(const Tmux&) = delete;
  Tmux& operator=(const Tmux&) = delete;

  // Keys by their names: "Tab", "C-c", "q".
  void Press(const std::string& key) const { Run({"send-keys", key}); }
  void Enter(const std::string& command) const {
    Run({"send-keys", "-l", command});
    Press("Enter");
  }
  void Resize(int width, int height) const {
    Run({"resize-window", "-x", std::to_string(width), "-y", std::to_string(height)});
  }

  // Lines as they are seen, without the blanks at their ends.
  std::string Screen() const { return Run({"capture-pane", "-p"}); }
  bool Shows(const std::string& text) const { return Screen().find(text) != std::string::npos; }
  bool WaitForText(const std::string& text) const {
    return WaitFor([&] { return Shows(text); });
  }
  // One of tmux's variables, such as "cursor_flag".
  std::string Value(const std::string& variable) const {
    const std::string text = Run({"display-message", "-p", "#{" + variable + "}"});
    return text.substr(0, text.find('\n'));
  }

  // What is wrong with the terminal after a program has ended in it; "" if it is as it was before.
  std::string Damage() {
    // What is typed while the program still runs would be the program's.
    if (!WaitFor([&] { return Value("pane_current_command") == "bash"; })) return "it does not end:\n" + Screen();
    const std::string mark = "mark " + std::to_string(++marks);
    Enter("echo; stty -a >" + folder + "/after; echo mark $((" + std::to_string(marks) + "))");
    if (!WaitForText("\n" + mark + "\nready>")) return "the shell is not back:\n" + Screen();
    if (Value("cursor_flag") != "1") return "the cursor is hidden";
    if (Value("alternate_on") != "0") return "the other screen is shown";
    if (Value("keypad_flag") != "0") return "the keypad sends other codes";
    const std::string before = Content("/before");
    if (before.empty()) return "no modes were noted";
    return before == Content("/after") ? "" : "modes have changed:\n" + before + Content("/after");
  }

 private:
  [[noreturn]] void Become(std::vector<std::string> arguments) const {
    const std::string socket = folder + "/socket";
    std::vector<char*> raw;
    for (const char* word : {"tmux", "-S", socket.c_str()}) raw.push_back(const_cast<char*>(word));
    for (std::string& argument : arguments) raw.push_back(argument.data());
    raw.push_back(nullptr);
    setenv("LC_ALL", "C.UTF-8", 1);
    // Nor may a terminal keep pipes open that somebody waits for.
    close_range(STDERR_FILENO + 1, ~0U, 0);
    execvp("tmux", raw.data());
    _exit(127);
  }

  std::string Run(const std::vector<std::string>& arguments) const {
    return RunInChild([&] { Become(arguments); }).out;
  }

  std::string Content(const std::string& name) const {
    std::ostringstream content;
    content << std::ifstream(folder + name).rdbuf();
    return content.str();
  }

  std::string folder;
  pid_t server = -1;
  int marks = 0;
};

}  // namespace test
