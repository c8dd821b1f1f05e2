// A program on a terminal of fixed size, driven through tmux as a person
// would. Each test process has a tmux server of its own, without a status
// line, which keeps a dead pane so that its last screen and status can be read.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace tty {

using namespace std::chrono_literals;

/// Long enough for a loaded machine; waits end as soon as the screen is right.
constexpr std::chrono::milliseconds kTimeout = 10s;

/// This process's server: socket and configuration in a directory removed with the process.
struct Server {
    char directory[32] = "/tmp/tty-test-XXXXXX";
    std::string socket = mkdtemp(directory) ? std::string(directory) + "/tmux" : "";
    std::string config = std::string(directory) + "/tmux.conf";
    Server() { std::ofstream(config) << "set -g status off\nset -g remain-on-exit on\n"; }
    ~Server() {
        unlink(socket.c_str());
        unlink(config.c_str());
        rmdir(directory);
    }
};

inline std::string Quote(const std::string &word) {
    std::string quoted = "'";
    for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

struct Result {
    int status = -1;  ///< -1 when tmux could not run
    std::string output;
};

/// Runs tmux with `args` on this process's server. A call that may start the
/// server must not `capture`: the server would keep the pipe open for life.
inline Result Tmux(const std::vector<std::string> &args, bool capture = true) {
    static Server server;
    std::string line = "tmux -S " + Quote(server.socket) + " -f " + Quote(server.config);
    for (const auto &arg : args) line += " " + Quote(arg);
    Result r;
    FILE *pipe = popen((line + (capture ? " 2>/dev/null" : " >/dev/null 2>&1")).c_str(), "r");
    if (!pipe) return r;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        r.output.append(buffer, n);
    int status = pclose(pipe);
    if (WIFEXITED(status) && WEXITSTATUS(status) != 127) r.status = WEXITSTATUS(status);
    return r;
}

/// The last line of `screen` holding `text`, or "": a line-mode program
/// scrolls, so the last is the latest.
inline std::string LineWith(const std::string &screen, const std::string &text) {
    size_t at = screen.rfind(text);
    if (at == std::string::npos) return "";
    size_t begin = screen.rfind('\n', at) + 1;  // npos + 1 is 0
    return screen.substr(begin, screen.find('\n', at) - begin);
}

/// A test of a program on a terminal, skipped where tmux is missing; the
/// program runs in a session of its own, ended with the test.
class Test : public ::testing::Test {
  protected:
    void SetUp() override {
        if (Tmux({"-V"}).status != 0) GTEST_SKIP() << "tmux is not installed; these tests need it";
    }
    void TearDown() override {
        if (!name_.empty()) Tmux({"kill-session", "-t", name_});
    }
    /// Starts `command` in English, whatever the caller's language: the tests read English.
    void Start(const std::string &command, const std::string &directory, int columns = 80,
               int rows = 24) {
        name_ = "tty-" + std::to_string(getpid()) + "-" + std::to_string(++count_);
        ASSERT_EQ(Tmux({"new-session", "-d", "-s", name_, "-x", std::to_string(columns), "-y",
                        std::to_string(rows), "-c", directory, "LANG=en_US exec " + command},
                       false)
                      .status,
                  0);
    }
    /// Types `line` and Return.
    void Type(const std::string &line) {
        if (line.empty())
            Tmux({"send-keys", "-t", name_, "Enter"});
        else
            Tmux({"send-keys", "-t", name_, "-l", line, ";", "send-keys", "-t", name_, "Enter"});
    }
    /// The visible screen, trailing blanks cut.
    std::string Screen() const { return Tmux({"capture-pane", "-p", "-t", name_}).output; }

    bool WaitUntil(const std::function<bool(const std::string &screen)> &holds) {
        return Poll([&] { return holds(Screen()); });
    }
    bool WaitFor(const std::string &text) {
        return WaitUntil([&](const std::string &s) { return s.find(text) != std::string::npos; });
    }
    /// Waits until the cursor stands right of `prompt`: a line typed earlier
    /// would be echoed before the prompt, which is not what a person sees.
    bool WaitForInput(std::string prompt) {
        while (!prompt.empty() && prompt.back() == ' ') prompt.pop_back();
        return Poll([&] {
            std::istringstream shown(Tmux({"display", "-p", "-t", name_, "#{cursor_x} #{cursor_y}",
                                           ";", "capture-pane", "-p", "-t", name_})
                                         .output);
            int x = 0, y = 0;
            std::string line;
            shown >> x >> y;
            for (int row = -1; row <= y && std::getline(shown, line); ++row) {
            }
            return x > 0 && line.size() >= prompt.size() &&
                   line.substr(line.size() - prompt.size()) == prompt;
        });
    }
    /// The program's exit status once it has ended; nothing after kTimeout.
    std::optional<int> WaitForExit() {
        std::optional<int> status;
        Poll([&] {
            std::istringstream pane(
                Tmux({"display", "-p", "-t", name_, "#{pid} #{pane_dead} #{pane_dead_status}"})
                    .output);
            int server = 0, dead = 0, code = 0;
            pane >> server >> dead;
            if (dead && pane >> code) status = code;
            // Dead without a status: tmux saw the terminal close first and lost
            // SIGCHLD to its utmp helper, so the program lies unreaped.
            else if (dead && server > 0)
                kill(server, SIGCHLD);
            return status.has_value();
        });
        return status;
    }

    /// Types `line` once the program asks with `prompt`.
    bool Answer(const char *prompt, const std::string &line) {
        if (!WaitForInput(prompt)) return false;
        Type(line);
        return true;
    }
    /// Waits until the latest line holding `label` shows `value`.
    bool Shows(const std::string &label, const std::string &value) {
        return WaitUntil([&](const std::string &s) {
            return LineWith(s, label).find(value) != std::string::npos;
        });
    }

  private:
    static bool Poll(const std::function<bool()> &done) {
        for (auto end = std::chrono::steady_clock::now() + kTimeout;;
             std::this_thread::sleep_for(20ms)) {
            if (done()) return true;
            if (std::chrono::steady_clock::now() > end) return false;
        }
    }
    static inline int count_ = 0;
    std::string name_;
};

}  // namespace tty
