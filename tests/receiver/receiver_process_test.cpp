// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The receiver and programs it runs; syslog-ng is a script here, real ones are in the system tests.
#include "receiver/launcher/receiver_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>

#include "linux/common/fd.h"
#include "receiver/launcher/control_socket.h"
#include "receiver/launcher/writer_prompt.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::HasSubstr;
using Clock = std::chrono::steady_clock;

Deadline soon() {
    return Clock::now() + std::chrono::seconds(20);
}

TEST(HeldLines, AreThoseWithoutAnAnswer) {
    const std::string stats =
        "SourceName;SourceId;SourceInstance;State;Type;Number\n"
        "dst.http;d_tcp#0;http,http://127.0.0.1:5615/bsd-tcp;a;dropped;3\n"
        "dst.http;d_tcp#0;http,http://127.0.0.1:5615/bsd-tcp;a;processed;10000\n"
        "dst.http;d_tcp#0;http,http://127.0.0.1:5615/bsd-tcp;a;queued;0\n"
        "dst.http;d_tcp#0;http,http://127.0.0.1:5615/bsd-tcp;a;written;5000\n"
        "destination;d_tcp;;a;processed;10000\n"
        "dst.http;d_udp#0;http,http://127.0.0.1:5615/bsd-udp;a;processed;7\n"
        "dst.http;d_udp#0;http,http://127.0.0.1:5615/bsd-udp;a;written;20\n.\n";
    EXPECT_EQ(heldLines(stats, "d_tcp"), 4997);
    EXPECT_EQ(heldLines(stats, "d_udp"), 0) << "those from a queue file were counted in an earlier life";
    EXPECT_EQ(heldLines(stats, "d_t"), 0);
    EXPECT_EQ(heldLines(stats, "d_tls"), 0);
    for (const char* const broken : {"", "dst.http", "dst.http;d_tcp#0", "dst.http;d_tcp#0;x;a;processed;",
                                     "dst.http;d_tcp#0;x;a;processed;many\n"})
        EXPECT_EQ(heldLines(broken, "d_tcp"), 0) << broken;
}

TEST(ChildProgram, TellsHowItEnded) {
    auto child = Child::start({"/bin/sh", "-c", "exit 3"});
    ASSERT_TRUE(child);
    ASSERT_TRUE(child->wait(soon()));
    EXPECT_EQ(child->exitCode(), 3);
    EXPECT_EQ(child->howItEnded(), "exit code 3");
    auto killed = Child::start({"/bin/sh", "-c", "kill -KILL $$"});
    ASSERT_TRUE(killed);
    ASSERT_TRUE(killed->wait(soon()));
    EXPECT_THAT(killed->howItEnded(), HasSubstr("signal 9"));
}

TEST(ChildProgram, ThatCannotBeRunIsToldAtOnce) {
    EXPECT_FALSE(Child::start({"/nonexistent/program"}));
    EXPECT_EQ(errno, ENOENT);
}

TEST(ChildProgram, EndsWhenAskedAndIsKilledWhenItDoesNot) {
    auto obeys = Child::start({"/bin/sh", "-c", "exec sleep 600"});
    ASSERT_TRUE(obeys);
    EXPECT_FALSE(obeys->wait(Clock::now()));
    EXPECT_TRUE(obeys->end(soon()));
    EXPECT_EQ(obeys->exitCode(), 128 + SIGTERM);
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const Fd ready(ends[0]);
    auto refuses = Child::start(
        {"/bin/sh", "-c", "trap '' TERM; echo >&" + std::to_string(ends[1]) + "; exec sleep 600"}, ends[1]);
    ::close(ends[1]);
    ASSERT_TRUE(refuses);
    char byte = 0;
    ASSERT_EQ(::read(ready.get(), &byte, 1), 1);
    EXPECT_FALSE(refuses->end(Clock::now() + std::chrono::milliseconds(50)));
    EXPECT_EQ(refuses->exitCode(), 128 + SIGKILL);
}

TEST(ChildProgram, DoesNotOutliveItsParent) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const Fd ended(ends[0]);
    const pid_t parent = ::fork();
    ASSERT_GE(parent, 0);
    if (parent == 0) {
        const auto child = Child::start({"/bin/sh", "-c", "exec sleep 600"}, ends[1]);
        ::kill(::getpid(), SIGKILL);  // no destructor runs
    }
    ::close(ends[1]);
    char byte = 0;
    EXPECT_EQ(::read(ended.get(), &byte, 1), 0) << "the last holder of the other end is gone";
    EXPECT_EQ(::waitpid(parent, nullptr, 0), parent);
}

TEST(ChildProgram, DoesNotReportInTheNameOfTheJob) {
    ::setenv("NOTIFY_SOCKET", "/run/nobody", 1);
    ::setenv("OMBREL_TEST_WORD", "stays", 1);
    auto child =
        Child::start({"/bin/sh", "-c", "test -z \"${NOTIFY_SOCKET+set}\" && test $OMBREL_TEST_WORD = stays"});
    ::unsetenv("NOTIFY_SOCKET");
    ::unsetenv("OMBREL_TEST_WORD");
    ASSERT_TRUE(child && child->wait(soon()));
    EXPECT_EQ(child->exitCode(), 0);
}

TEST(WriterPrompt, AsksOnceUntilItIsAnswered) {
    Fd listening(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
    ASSERT_EQ(::getsockname(listening.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
    WriterPrompt prompt = WriterPrompt::of(ntohs(address.sin_port), "bsd-end", "0123");
    EXPECT_FALSE(prompt.ask()) << "nobody listens yet";
    ASSERT_EQ(::listen(listening.get(), 4), 0);
    EXPECT_TRUE(prompt.ask());
    EXPECT_TRUE(prompt.ask());
    const auto accepted = [&listening] { return Fd(::accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC)); };
    Fd first = accepted();
    std::array<char, 256> buffer{};
    ASSERT_GT(::recv(first.get(), buffer.data(), buffer.size() - 1, 0), 0);
    EXPECT_STREQ(buffer.data(),
                 "POST /bsd-end HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer 0123\r\n"
                 "Content-Length: 0\r\n\r\n");
    pollfd one{listening.get(), POLLIN, 0};
    EXPECT_EQ(::poll(&one, 1, 0), 0) << "the first has no answer yet";
    first.reset();
    EXPECT_TRUE(prompt.ask());
    EXPECT_EQ(::poll(&one, 1, 10'000), 1);
    const Fd second = accepted();
    listening.reset();
    ASSERT_EQ(::send(second.get(), "HTTP/1.1 200 OK\r\n\r\n", 19, 0), 19);
    pollfd answered{second.get(), POLLIN, 0};
    while (prompt.ask() && ::poll(&answered, 1, 1) == 0) {  // until the answer has been seen
    }
    EXPECT_FALSE(prompt.ask()) << "nobody listens any more";
}

TEST(WriteCheckedConfiguration, DoesNotCheckWhatIsInUse) {
    const TempFolder folder;
    const ReceiverFiles files(folder.path(), "bsd");
    ASSERT_EQ(::mkdir(files.folder.c_str(), 0700), 0);
    writeText(folder / "syslog-ng", "#!/bin/sh\nexit 1\n");
    ASSERT_EQ(::chmod((folder / "syslog-ng").c_str(), 0700), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(writeCheckedConfiguration(folder / "syslog-ng", files, "text"), EX_CONFIG);
    ASSERT_TRUE(writeConfiguration(files, "text"));
    EXPECT_EQ(writeCheckedConfiguration(folder / "syslog-ng", files, "text"), EX_OK);
    EXPECT_EQ(writeCheckedConfiguration(folder / "syslog-ng", files, "other text"), EX_CONFIG);
    EXPECT_EQ(readText(files.configuration), "text");
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("refuses " + files.configuration));
}

TEST(HasLinesLeft, LooksAtQueueFiles) {
    const TempFolder folder;
    const ReceiverFiles files(folder.path(), "bsd");
    EXPECT_FALSE(hasLinesLeft(files)) << "without a folder";
    ASSERT_EQ(::mkdir(files.folder.c_str(), 0700), 0);
    writeText(files.folder + "/persist", std::string(16384, 'p'));
    writeText(files.folder + "/syslog-ng-00000.qf", std::string(4096, 'h'));
    EXPECT_FALSE(hasLinesLeft(files));
    writeText(files.folder + "/syslog-ng-00001.qf", std::string(4097, 'l'));
    EXPECT_TRUE(hasLinesLeft(files));
}

TEST(AllowDescriptors, RaisesTheLimitOfThisProcess) {
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit few{64, before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const std::size_t allowed = allowDescriptors();
    rlimit now{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &now), 0);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(now.rlim_cur, allowed);
    EXPECT_GE(now.rlim_max, before.rlim_max);
    EXPECT_GE(allowed, std::min<std::size_t>(before.rlim_max, 65536));
}

class RunReceiver : public testing::Test {
protected:
    int run(const std::string& script) {
        writeText(folder / "syslog-ng", "#!/bin/sh\n" + script);
        if (::chmod((folder / "syslog-ng").c_str(), 0700) != 0) return -1;
        return runProgram(folder / "syslog-ng");
    }
    // Exit code of a receiver in a process of its own, since it takes signals.
    int runProgram(const std::string& syslogNg) {
        const LauncherPlaces places{.settings = {folder / "server.conf", folder / "custrule.conf"},
                                    .runFolder = folder.path(),
                                    .syslogNg = syslogNg,
                                    .openPorts = openPorts};
        config.queueFolder = folder / config.name;
        ::mkdir(config.queueFolder.c_str(), 0700);
        const ReceiverFiles files(places.runFolder, config.name);
        const pid_t pid = ::fork();
        if (pid == 0) ::_exit(ReceiverProcess(places, files, config).run());
        int status = -1;
        ::waitpid(pid, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    TempFolder folder;
    ReceiverConfig config{.name = "bsd", .sources = {{SourceKind::kTcp, 0}}};
    int (*openPorts)() = nullptr;
    const std::string check = "for word; do [ \"$word\" != --syntax-only ] || exit 0; done\n";
};

TEST_F(RunReceiver, SaysThatTheConfigurationIsRefused) {
    EXPECT_EQ(run("exit 1\n"), EX_CONFIG);
}

TEST_F(RunReceiver, WantsToBeStartedAgainWhenSyslogNgEndsByItself) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(check + "exit 3\n"), EX_TEMPFAIL);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("syslog-ng ended by itself, exit code 3"));
}

TEST_F(RunReceiver, EndsSyslogNgThatDoesNotAnswerYet) {
    EXPECT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
}

// Settings may come to name thousands of ports while it runs.
TEST_F(RunReceiver, AllowsSyslogNgMoreThanItNeedsNow) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(check + "echo \"$*\" >&2\nkill -TERM $PPID\nexec sleep 600\n"), EX_OK);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr(" --fd-limit=" + std::to_string(allowDescriptors()) + " "));
}

TEST_F(RunReceiver, HasThePortsOpenedAtItsStart) {
    openPorts = [] { return static_cast<int>(::write(STDERR_FILENO, "opened\n", 7)) > 0 ? 0 : -1; };
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "opened\n");
}

TEST_F(RunReceiver, GoesOnWhenThePortsCannotBeOpened) {
    openPorts = [] { return -1; };
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("the firewall does not take up the ports"));
}

TEST_F(RunReceiver, DrainsWhatAnEarlierOneLeftOfDatagrams) {
    for (const std::string name : {"bsd", "local", "custrule"}) {
        config.name = name;
        config.drains = {};
        ASSERT_EQ(::mkdir((folder / name).c_str(), 0700), 0);
        writeText(folder / (name + "/syslog-ng-00000.qf"), std::string(4097, 'l'));
        ASSERT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
        if (name != "local") config.drains.emplace_back();
        if (name == "custrule") config.drains.emplace_back().raw = true;
        EXPECT_EQ(readText(folder / (name + "/syslog-ng.conf")), renderReceiverConfig(config)) << name;
    }
}

class RunRules : public RunReceiver {
protected:
    RunRules() {
        config.name = "custrule";
        config.sources = {};
        config.needsAll = false;
    }
};

TEST_F(RunRules, RunsWithoutAnyRule) {
    EXPECT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
    EXPECT_EQ(readText(folder / "custrule/syslog-ng.conf"), renderReceiverConfig(config));
}

TEST_F(RunRules, GoesWithoutTheOneThatItCannotHave) {
    Source missingKey{SourceKind::kTls, 0};
    missingKey.rule = "secret";
    config.sources = {{SourceKind::kTcp, 0}, missingKey};
    config.keyFile = folder / "missing.pem";
    config.remarks = {"rule \"other\" is left out: for a reason"};
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ombrel-receiver: rule \"other\" is left out: for a reason\n"
              "ombrel-receiver: rule \"secret\" is left out: cannot read server_ca_key=\"" +
                  (folder / "missing.pem") + "\": No such file or directory\n");
    config.sources.pop_back();
    EXPECT_EQ(readText(folder / "custrule/syslog-ng.conf"), renderReceiverConfig(config));
}

TEST_F(RunRules, TellsOfManyInPart) {
    for (int i = 0; i < 150; ++i)
        config.remarks.push_back("rule \"" + std::to_string(i) + "\" is left out");
    testing::internal::CaptureStderr();
    EXPECT_EQ(run(check + "kill -TERM $PPID\nexec sleep 600\n"), EX_OK);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 101);
    EXPECT_THAT(said, HasSubstr("rule \"99\" is left out\nombrel-receiver: and 50 lines more of this kind\n"));
}

TEST_F(RunReceiver, CannotRunWhatIsNotThere) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(runProgram(folder / "missing"), EX_OSERR);
    EXPECT_THAT(testing::internal::GetCapturedStderr(), HasSubstr("missing: No such file or directory"));
}

}  // namespace
}  // namespace ombrel
