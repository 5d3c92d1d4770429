// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// `ombrel status`: everything at one glance.
#include <sysexits.h>

#include <cstring>
#include <memory>

#include "tools/ombrel/commands.h"
#include "tools/ombrel/live_screen.h"
#include "tools/ombrel/status_gather.h"
#include "tools/ombrel/status_show.h"

namespace ombrel {

namespace {

constexpr long long kUsualSeconds = 2;

struct StatusWords {
    bool watch = false;
    long long everySeconds = 0;  // 0: not said
};

int complainOfWaiting(int error) {
    return complain(1, std::string("cannot wait for time, keys and signals: ") + std::strerror(error));
}

int showOnce(const Context& context) {
    StatusWatch watch;
    const StatusReport report = watch.look();
    if (report.exitCode != 0) (void)complain(report.exitCode, report.complaint);
    if (context.json) return endOfOutput(say(statusJson(report)), report.exitCode);
    if (!context.out.isTerminal) return endOfOutput(say(statusLines(report)), report.exitCode);
    Terminal terminal = context.out;
    terminal.lines -= 1;  // for the line that is typed next
    return endOfOutput(say(statusScreen(report, terminal) + "\n"), report.exitCode);
}

int watchOnTerminal(const Context& context, long long everySeconds) {
    StatusWatch watch;
    StatusReport report;
    const LiveView view = {[&] { report = watch.look(); },
                           [&](const Terminal& terminal) { return statusScreen(report, terminal); }};
    const int error = runLive(view, context.out, everySeconds);
    return error != 0 ? complainOfWaiting(error) : 0;
}

int watchAsJson(long long everySeconds) {
    StatusWatch watch;
    bool written = true;
    const int error = runEvery(everySeconds, [&] {
        written = say(statusJson(watch.look())) && std::fflush(stdout) == 0;
        return written;
    });
    return error != 0 ? complainOfWaiting(error) : endOfOutput(written);
}

int showStatus(const StatusWords& words, const Context& context) {
    if (!words.watch) {
        return words.everySeconds == 0 ? showOnce(context) : complain(EX_USAGE, "--every belongs to --watch");
    }
    const long long everySeconds = words.everySeconds == 0 ? kUsualSeconds : words.everySeconds;
    if (context.json) return watchAsJson(everySeconds);
    if (!context.out.isTerminal) return complain(EX_USAGE, "--watch needs a terminal, or --json");
    return watchOnTerminal(context, everySeconds);
}

}  // namespace

void addStatusCommand(Command& root) {
    auto words = std::make_shared<StatusWords>();
    root.add("status", "show receivers, jobs, databases, archives and the last events at one glance")
        .describe(
            "Messages and those per second are counted by each receiver since it was started; what came in within "
            "the last minute is counted in the databases. Lost are datagrams that the kernel had no room for and "
            "messages that a queue had no room for. What cannot be told is \"?\", and a line says why; most of it "
            "can be told to root.")
        .flag("--watch", words->watch, "show it again and again, until q or Ctrl-C is pressed")
        .number("--every", "SECONDS", {&words->everySeconds, 1, 3600}, "with --watch: how often (2)")
        .example("ombrel status")
        .example("ombrel status --watch --every 5")
        .example("ombrel status --json")
        .exitCode(77, "the right to read the settings is missing; what can be told is shown")
        .exitCode(78, "the settings cannot be read; what can be told is shown")
        .run([words](const Context& context) { return showStatus(*words, context); });
}

}  // namespace ombrel
