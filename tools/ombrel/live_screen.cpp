// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tools/ombrel/live_screen.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/timerfd.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <optional>
#include <string_view>

#include "linux/common/fd.h"

namespace ombrel {

namespace {

Fd openTimer(long long seconds) {
    Fd timer(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
    const itimerspec times{{seconds, 0}, {seconds, 0}};
    if (timer && ::timerfd_settime(timer.get(), 0, &times, nullptr) != 0) timer.reset();
    return timer;
}

bool hasExpired(const Fd& timer) {
    std::uint64_t expirations = 0;
    return ::read(timer.get(), &expirations, sizeof expirations) > 0;
}

/// The signals that are read from a descriptor instead, as long as this object lives.
class Signals {
public:
    Signals() {
        ::sigemptyset(&set_);
        for (const int one : {SIGWINCH, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP})
            ::sigaddset(&set_, one);
        if (::sigprocmask(SIG_BLOCK, &set_, &before_) != 0) return;
        isBlocked_ = true;
        fd_.reset(::signalfd(-1, &set_, SFD_CLOEXEC | SFD_NONBLOCK));
    }
    ~Signals() {
        if (isBlocked_) (void)::sigprocmask(SIG_SETMASK, &before_, nullptr);
    }
    Signals(const Signals&) = delete;
    Signals& operator=(const Signals&) = delete;

    [[nodiscard]] int fd() const { return fd_.get(); }
    /// 0 when there is none any more.
    [[nodiscard]] int next() const {
        signalfd_siginfo signal{};
        return ::read(fd_.get(), &signal, sizeof signal) == sizeof signal ? static_cast<int>(signal.ssi_signo) : 0;
    }

private:
    Fd fd_;
    sigset_t set_{};
    sigset_t before_{};
    bool isBlocked_ = false;
};

/// The other screen of the terminal, without cursor and echo, and with lines that are cut off at its edge, as long
/// as this object lives.
class Screen {
public:
    Screen() { enter(); }
    ~Screen() { leave(); }
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    void enter() {
        termios keys{};
        if (::isatty(STDIN_FILENO) == 1 && ::tcgetattr(STDIN_FILENO, &keys) == 0) {
            before_ = keys;
            keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
            keys.c_cc[VMIN] = 0;
            keys.c_cc[VTIME] = 0;
            (void)::tcsetattr(STDIN_FILENO, TCSADRAIN, &keys);  // otherwise keys take a line break more
        }
        (void)write("\x1b[?1049h\x1b[?25l\x1b[?7l");
    }
    void leave() {
        (void)write("\x1b[?7h\x1b[?25h\x1b[?1049l");
        if (before_) (void)::tcsetattr(STDIN_FILENO, TCSADRAIN, &*before_);
        before_.reset();
    }
    /// All in one write, each line over the one that stands there.
    static bool show(const std::string& text) {
        std::string frame = "\x1b[H\x1b[K";
        for (const char c : text)
            c == '\n' ? frame += "\r\n\x1b[K" : frame += c;
        return write(frame + "\x1b[J");
    }

private:
    static bool write(std::string_view text) {
        while (!text.empty()) {
            const ssize_t put = ::write(STDOUT_FILENO, text.data(), text.size());
            if (put < 0 && errno == EINTR) continue;
            if (put <= 0) return false;
            text.remove_prefix(static_cast<std::size_t>(put));
        }
        return true;
    }

    std::optional<termios> before_;
};

class Live {
public:
    Live(const LiveView& view, const Terminal& terminal) : view_(view), terminal_(terminal) {}

    int run(long long everySeconds) {
        const Fd timer = openTimer(everySeconds);
        if (!timer || signals_.fd() < 0) return errno;
        Screen screen;
        enum { kTimer, kSignals, kKeys, kCount };
        std::array<pollfd, kCount> waiting = {{{timer.get(), POLLIN, 0},
                                               {signals_.fd(), POLLIN, 0},
                                               {::isatty(STDIN_FILENO) == 1 ? STDIN_FILENO : -1, POLLIN, 0}}};
        view_.look();
        bool goesOn = draw();
        while (goesOn) {
            if (::poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR) return errno;
            if (waiting[kSignals].revents != 0) goesOn = takeSignals(screen);
            if (goesOn && waiting[kKeys].revents != 0) goesOn = takeKeys(waiting[kKeys]);
            if (!goesOn || waiting[kTimer].revents == 0 || !hasExpired(timer)) continue;
            view_.look();
            goesOn = draw();
        }
        return 0;
    }

private:
    bool draw() {
        const Terminal now = terminalOf(STDOUT_FILENO, ColourWish::kAuto);
        terminal_.columns = now.columns;
        terminal_.lines = now.lines;
        return Screen::show(view_.draw(terminal_));
    }
    /// Whether to go on.
    bool takeSignals(Screen& screen) {
        while (const int signal = signals_.next()) {
            if (signal == SIGTSTP) {
                screen.leave();
                (void)::raise(SIGSTOP);
                screen.enter();
            } else if (signal != SIGWINCH) {
                return false;
            }
            if (!draw()) return false;
        }
        return true;
    }
    bool takeKeys(pollfd& keys) {
        std::array<char, 64> typed{};
        const ssize_t got = ::read(STDIN_FILENO, typed.data(), typed.size());
        if (got <= 0) {
            keys.fd = -1;  // nobody types any more
            return true;
        }
        const std::string_view text(typed.data(), static_cast<std::size_t>(got));
        return text.find_first_of("qQ") == std::string_view::npos;
    }

    const LiveView& view_;
    Terminal terminal_;
    Signals signals_;
};

}  // namespace

int runLive(const LiveView& view, const Terminal& terminal, long long everySeconds) {
    return Live(view, terminal).run(everySeconds);
}

int runEvery(long long everySeconds, const std::function<bool()>& step) {
    const Fd timer = openTimer(everySeconds);
    if (!timer) return errno;
    std::array<pollfd, 2> waiting = {{{timer.get(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
    while (step()) {
        do {
            if (::poll(waiting.data(), waiting.size(), -1) < 0 && errno != EINTR) return errno;
            if ((waiting[1].revents & (POLLERR | POLLHUP)) != 0) return 0;
        } while (!hasExpired(timer));
    }
    return 0;
}

}  // namespace ombrel
