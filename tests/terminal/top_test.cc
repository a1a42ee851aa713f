// dnspair live --top on terminals of several kinds, with traffic of a network of its own.

#include <doctest/doctest.h>
#include <signal.h>
#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "tests/support/loopback.h"
#include "tests/support/temporary_file.h"
#include "tests/terminal/tmux.h"

namespace test {
namespace {

bool Ready() { return Tmux::Available() && MayEnterNetwork(); }

std::string Content(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path).rdbuf();
  return content.str();
}

// The program with its screen, in a terminal.
class TopRun {
 public:
  // `before` stands before the program's name, `more` behind it.
  void Start(const std::string& more = {}, const std::string& before = {}) {
    // An earlier screen may still be seen, on terminals that have no other.
    terminal.Enter("clear");
    WaitFor([this] { return !terminal.Shows("dnspair lo: "); });
    terminal.Enter(before + " sh -c 'echo $$ >" + number.path + "; exec " DNSPAIR_PROGRAM " live -i lo --top " +
                   more + "'");
  }
  bool IsUp() const { return terminal.WaitForText("dnspair lo: "); }
  pid_t pid() const { return static_cast<pid_t>(std::stol(Content(number.path))); }

  Tmux terminal;

 private:
  TemporaryFile number;
};

// A client and a server that meet until the screen shows it.
struct Chatter {
  Endpoint client{40000};
  Endpoint server{53};

  void Exchange(const test::Name& name) const {
    client.Send(server, test::Query(1).Question(name, test::kA));
    server.Send(client, test::Response(1).Question(name, test::kA));
  }
  bool UntilShown(const Tmux& terminal, const test::Name& name, const std::string& text) const {
    return WaitFor([&] {
      Exchange(name);
      return terminal.Shows(text);
    });
  }
};

}  // namespace

TEST_CASE("the screen shows what comes, obeys keys and sizes, and leaves the account behind") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          const Chatter chatter;
          TopRun run;
          const Tmux& terminal = run.terminal;
          run.Start();
          if (!run.IsUp()) return "no screen";
          if (!chatter.UntilShown(terminal, "www.example.com", "\nwww.example.com  ")) return terminal.Screen();
          const auto does = [&](const char* key, const char* text) {
            terminal.Press(key);
            return terminal.WaitForText(text);
          };
          if (!does("w", "last 5 minutes")) return "w has no effect";
          if (!does("o", "failing first")) return "o has no effect";
          if (!does("Tab", "\nNAME  ")) return "Tab has no effect";
          if (!does("h", "\nKEYS")) return "h has no effect";
          if (!does("a", "\nNAME  ")) return "the help stays";
          if (!does("a", "FAILING SERVERS")) return "a has no effect";
          terminal.Resize(132, 30);
          if (!terminal.WaitForText("TIMEOUT EXCHANGES  FAILING NAMES"))
            return "too narrow on a wide terminal:\n" + terminal.Screen();
          terminal.Resize(20, 5);
          if (!terminal.WaitForText("\n q quit   h help  ..\n")) return "too wide for 20x5:\n" + terminal.Screen();
          terminal.Resize(80, 24);
          if (!terminal.WaitForText("w window")) return "80x24 does not come back";
          terminal.Press("q");
          if (!terminal.WaitForText("lost       nothing")) return "no account:\n" + terminal.Screen();
          if (terminal.Shows("\"qname\"") || terminal.Shows("FAILING")) return "more than the account";
          return run.terminal.Damage();
        }) == "");
}

TEST_CASE("on a silent wire the clock still goes") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          TopRun run;
          run.Start();
          if (!run.IsUp()) return "no screen";
          const auto head = [&] {
            const std::string screen = run.terminal.Screen();
            return screen.substr(0, screen.find('\n'));
          };
          const std::string first = head();
          return WaitFor([&] { return head() != first; }) ? "" : "it stands still at " + first;
        }) == "");
}

TEST_CASE("what a name holds cannot command the terminal") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          const Chatter chatter;
          TopRun run;
          run.Start();
          if (!run.IsUp()) return "no screen";
          const std::string title = run.terminal.Value("pane_title");
          const std::string evil = "\x1b]2;owned\x07\x1b[?25h\x1b(0\x9b\x32J\n";
          if (!chatter.UntilShown(run.terminal, evil, "\n\\027]2;owned\\0"))
            return "the name is not shown:\n" + run.terminal.Screen();
          if (run.terminal.Value("pane_title") != title) return "the title has changed";
          if (run.terminal.Value("cursor_flag") != "0") return "the cursor has appeared";
          return run.terminal.Shows("dnspair lo: ") ? "" : "the screen is damaged";
        }) == "");
}

TEST_CASE("however it ends, the terminal is as it was") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          TopRun run;
          const auto ends = [&](const std::string& how, const std::function<void()>& end) -> std::string {
            run.Start();
            if (!run.IsUp()) return how + ": no screen";
            end();
            const std::string damage = run.terminal.Damage();
            return damage.empty() ? "" : how + ": " + damage;
          };
          std::string wrong = ends("Ctrl-C", [&] { run.terminal.Press("C-c"); });
          if (wrong.empty()) wrong = ends("Ctrl-\\", [&] { run.terminal.Press("C-\\"); });
          for (const int signal : {SIGTERM, SIGABRT, SIGSEGV}) {
            if (!wrong.empty()) break;
            wrong = ends("signal " + std::to_string(signal), [&] { kill(run.pid(), signal); });
          }
          return wrong;
        }) == "");
}

TEST_CASE("a plug-in that dies has its last words on a terminal that is as it was") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          for (const auto& [misdeed, word] : {std::pair{"abort", "aborted (SIGABRT); at packet "},
                                              {"overflow", "crashed (SIGSEGV); at packet "}}) {
            const Chatter chatter;
            TopRun run;
            run.Start("--plugin " FAKE_PARSER " --set do=" + std::string(misdeed),
                      "ASAN_OPTIONS=handle_segv=0:use_sigaltstack=0");
            if (!run.IsUp()) return std::string(misdeed) + ": no screen";
            chatter.Exchange("www.example.com");
            const std::string damage = run.terminal.Damage();
            if (!damage.empty()) return misdeed + (": " + damage);
            if (!run.terminal.Shows(word)) return run.terminal.Screen();
          }
          return "";
        }) == "");
}

TEST_CASE("Ctrl-Z gives the terminal back, and fg brings the screen back") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          TopRun run;
          run.Start();
          if (!run.IsUp()) return "no screen";
          run.terminal.Press("C-z");
          std::string damage = run.terminal.Damage();
          if (!damage.empty()) return "stopped: " + damage;
          run.terminal.Enter("fg");
          if (!run.IsUp()) return "it does not come back";
          run.terminal.Press("q");
          return run.terminal.Damage();
        }) == "");
}

TEST_CASE("every kind of terminal will do, and one that nobody knows is named") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          TopRun run;
          for (const std::string type : {"vt100", "xterm"}) {
            run.Start("", "TERM=" + type);
            if (!run.IsUp() || !run.terminal.WaitForText("\n q quit   h help")) return type + ": no screen";
            run.terminal.Press("q");
            const std::string damage = run.terminal.Damage();
            if (!damage.empty()) return type + ": " + damage;
          }
          run.Start("", "TERM=no-such-terminal");
          if (!run.terminal.WaitForText("--top: there is no terminal of type 'no-such-terminal'"))
            return run.terminal.Screen();
          return run.terminal.Damage();
        }) == "");
}

TEST_CASE("records are written beside the screen where -o asks for them") {
  if (!Ready()) return;
  CHECK(InNetwork([]() -> std::string {
          const Chatter chatter;
          const TemporaryFile records;
          TopRun run;
          run.Start("--format json -o " + records.path);
          if (!run.IsUp()) return "no screen";
          if (!chatter.UntilShown(run.terminal, "www.example.com", "www.example.com")) return "nothing is shown";
          run.terminal.Press("q");
          const std::string damage = run.terminal.Damage();
          if (!damage.empty()) return damage;
          return Content(records.path).find(R"("qname":"www.example.com")") != std::string::npos ? "" : "no record";
        }) == "");
}

TEST_CASE("without a terminal there is no screen but a sentence") {
  const ChildResult result = RunInChild([] {
    execl(DNSPAIR_PROGRAM, DNSPAIR_PROGRAM, "live", "-i", "lo", "--top", nullptr);
    _exit(127);
  });
  CHECK(result.ExitCode() == 2);
  CHECK(result.out == "");
  CHECK(result.err.starts_with("dnspair: --top: standard input and output have to be a terminal"));
}

}  // namespace test
