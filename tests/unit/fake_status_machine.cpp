// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "tests/unit/fake_status_machine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include "linux/vesksyslog/event_log.h"
#include "tests/fake/fake_platform.h"
#include "tools/ombrel/commands.h"
#include "tools/ombrel/event_stream.h"
#include "tools/ombrel/live_screen.h"
#include "tools/ombrel/machine_places.h"
#include "tools/ombrel/status_machine.h"

namespace ombrel {

using test::fakeStatusMachine;

std::string eventFile() {
    return test::FakePlatform::current().real(kEventFile);
}

int followEvents(EventFollower&, const std::function<bool(std::string_view)>& sink) {
    for (const std::string& line : fakeStatusMachine().followed) {
        if (!sink(line)) return 0;
    }
    return fakeStatusMachine().followError;
}

std::optional<std::string> missingRight(const std::string& path) {
    if (!fakeStatusMachine().hidden.contains(path)) return std::nullopt;
    return path + " may not be read";
}

std::string runFolder() {
    return "/run-folder";
}

std::optional<VolumeStatus> volumeOf(const std::string&) {
    errno = EIO;
    return fakeStatusMachine().volume;
}

std::string socketTableText(const std::string& name) {
    return fakeStatusMachine().socketTables[name];
}

std::optional<std::string> receiverCounters(const std::string& receiver) {
    const auto found = fakeStatusMachine().counters.find(receiver);
    return found == fakeStatusMachine().counters.end() ? std::nullopt : std::optional(found->second);
}

std::set<Inode> receiverSockets(const std::string& receiver) {
    return fakeStatusMachine().sockets[receiver];
}

int runLive(const LiveView& view, const Terminal& terminal, long long) {
    for (int i = 0; i < fakeStatusMachine().looks; ++i) {
        if (i > 0 && fakeStatusMachine().betweenLooks) fakeStatusMachine().betweenLooks();
        view.look();
        fakeStatusMachine().drawn.push_back(view.draw(terminal));
    }
    return fakeStatusMachine().waitError;
}

int runEvery(long long, const std::function<bool()>& step) {
    for (int i = 0; i < fakeStatusMachine().looks; ++i) {
        if (i > 0 && fakeStatusMachine().betweenLooks) fakeStatusMachine().betweenLooks();
        if (!step()) return 0;
    }
    return fakeStatusMachine().waitError;
}

namespace test {

FakeStatusMachine& fakeStatusMachine() {
    static FakeStatusMachine machine;
    return machine;
}

OnTerminal runOnTerminal(const std::string& name, int columns, int lines, bool hasColours) {
    const Command root = ombrelCommands();
    const auto command = std::find_if(root.commands().begin(), root.commands().end(),
                                      [&](const Command& one) { return one.name() == name; });
    Context context;
    context.out = {true, hasColours, columns, lines};
    OnTerminal run;
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    run.exitCode = command->action()(context);
    run.out = ::testing::internal::GetCapturedStdout();
    run.err = ::testing::internal::GetCapturedStderr();
    return run;
}

}  // namespace test

}  // namespace ombrel
