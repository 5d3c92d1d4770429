// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The service that writes a notice to the system log when something needs a person, and the word by which the
// service managers tell it of a job that died.
#include <getopt.h>
#include <sys/time.h>
#include <sysexits.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "tools/ombrel-notify/complaints.h"
#include "tools/ombrel-notify/job_died.h"
#include "tools/ombrel-notify/notifier.h"

namespace {

constexpr const char* kUsage =
    "usage: ombrel-notify [--interval=SECONDS] [--quiet-time=SECONDS] [--notify-fd=N]\n"
    "       ombrel-notify died NAME EXITCODE SIGNAL\n"
    "\n"
    "Without words: watches until SIGTERM, and writes one notice to the system log (ident ombrel, facility "
    "daemon)\n"
    "when archiving fails, a job dies, datagrams are lost, or the volume of the archives runs full "
    "(notify_free_mib\n"
    "in server.conf, in MiB). SIGHUP: reads the settings again.\n"
    "  --interval=SECONDS    between two looks at lost datagrams and free space (10)\n"
    "  --quiet-time=SECONDS  what goes on is told at most once in it (600)\n"
    "  --notify-fd=N         write a line break to descriptor N when it watches (with $NOTIFY_SOCKET: READY=1\n"
    "                        there instead)\n"
    "died: enters in the event file that the job NAME ended by itself, at most once a minute for a job. For "
    "service\n"
    "managers.\n"
    "  EXITCODE              0..255, or -1 when a signal ended it; after 0 nothing is entered\n"
    "  SIGNAL                its number or name, 0 when none did\n"
    "Exit codes: 0 done, 64 wrong words, 70 out of memory, 71 no signals or timers, 73 the event file cannot be\n"
    "written, 75 another one is at work, 77 it may not be written\n";

template <typename Number>
bool readNumber(std::string_view text, Number least, Number most, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && value >= least && value <= most;
}

bool readSeconds(std::string_view text, std::chrono::seconds& value) {
    constexpr std::chrono::seconds::rep kMost = 86'400;
    std::chrono::seconds::rep seconds = 0;
    if (!readNumber<std::chrono::seconds::rep>(text, 1, kMost, seconds)) return false;
    value = std::chrono::seconds(seconds);
    return true;
}

// Null when the option is fine.
const char* takeOption(int option, const char* value, ombrel::NotifyOptions& options) {
    switch (option) {
        case 'i':
            return readSeconds(value, options.interval) ? nullptr : "--interval takes 1 to 86400 seconds";
        case 'q':
            return readSeconds(value, options.quietTime) ? nullptr : "--quiet-time takes 1 to 86400 seconds";
        case 'n':
            return readNumber(value, 3, 1 << 20, options.notifyFd) ? nullptr : "--notify-fd takes a number from 3";
        default:
            return "there is no such option, or its value is missing";
    }
}

const char* readArguments(int argc, char** argv, ombrel::NotifyOptions& options) {
    static const std::array<option, 4> kOptions = {{{"interval", required_argument, nullptr, 'i'},
                                                    {"quiet-time", required_argument, nullptr, 'q'},
                                                    {"notify-fd", required_argument, nullptr, 'n'},
                                                    {nullptr, 0, nullptr, 0}}};
    ::opterr = 0;  // it would say a line of its own
    for (;;) {
        const int option = ::getopt_long(argc, argv, "", kOptions.data(), nullptr);
        if (option == -1) break;
        if (const char* const wrong = takeOption(option, optarg, options)) return wrong;
    }
    return optind < argc ? "expected \"died\" or options" : nullptr;
}

extern "C" void interruptOnly(int /*signal*/) {
}

/// syslog(3) waits without an end for a system log that hangs: a timer interrupts it, more than once, since it
/// tries again by itself.
void writeNotice(int priority, const std::string& text) {
    const itimerval twice{{1, 0}, {1, 0}};
    const itimerval never{};
    (void)::setitimer(ITIMER_REAL, &twice, nullptr);
    ::syslog(priority, "%s", text.c_str());
    (void)::setitimer(ITIMER_REAL, &never, nullptr);
}

int serve(const ombrel::NotifyOptions& options) {
    struct sigaction action {};
    action.sa_handler = interruptOnly;  // and no SA_RESTART
    if (::sigaction(SIGALRM, &action, nullptr) != 0) {
        ombrel::complain(std::string("no signals: ") + std::strerror(errno));
        return EX_OSERR;
    }
    if (::access("/dev/log", F_OK) != 0)
        ombrel::complain("no system log listens at /dev/log; notices are lost until one does");
    ::openlog("ombrel", 0, LOG_DAEMON);
    return ombrel::Notifier(options, writeNotice).run();
}

int died(std::span<char* const> words) {
    const auto death = ombrel::readJobDeath(words);
    if (!death) {
        ombrel::complain("expected \"died NAME EXITCODE SIGNAL\"; --help says more");
        return EX_USAGE;
    }
    return ombrel::enterJobDeath(*death, {});
}

}  // namespace

int main(int argc, char** argv) try {
    const std::span<char* const> words(argv, static_cast<std::size_t>(argc));
    const std::string_view first = words.size() > 1 ? words[1] : "";
    if (first == "--help" || (words.size() == 3 && std::string_view(words[2]) == "--help"))
        return std::fputs(kUsage, stdout) >= 0 ? EX_OK : EX_IOERR;
    if (first == "died") return died(words.subspan(2));
    ombrel::NotifyOptions options;
    if (const char* const wrong = readArguments(argc, argv, options)) {
        ombrel::complain(std::string(wrong) + "; --help lists the options");
        return EX_USAGE;
    }
    return serve(options);
} catch (const std::exception& failure) {
    ombrel::complain(std::string("ends: ") + failure.what());
    return EX_SOFTWARE;
}
