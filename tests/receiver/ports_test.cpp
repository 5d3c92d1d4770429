// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Ports, the log socket, and what a receiver says of those that it cannot have.
#include "receiver/launcher/ports.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sysexits.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "linux/common/fd.h"
#include "receiver/launcher/log_socket.h"
#include "receiver/launcher/resources.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::HasSubstr;

constexpr pid_t kNoProcess = -1;

PortHolder whoHolds(const Source& source, pid_t process) {
    return PortTable().whoHolds(source, socketsOf(process));
}
bool hasBound(pid_t process, const Source& source) {
    return PortTable().hasBound(source, socketsOf(process));
}
unsigned long long waitingInKernel(const Source& source) {
    return PortTable().waiting(source);
}

// A socket on a port of the kernel's choice.
class BoundPort {
public:
    explicit BoundPort(SourceKind kind) {
        const bool udp = kind == SourceKind::kUdp;
        socket_.reset(::socket(AF_INET, (udp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        socklen_t size = sizeof address;
        const bool bound = ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size) == 0 &&
                           (udp || ::listen(socket_.get(), 2) == 0) &&
                           ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0;
        source = {kind, bound ? ntohs(address.sin_port) : std::uint16_t{0}};
    }
    [[nodiscard]] int socket() const { return socket_.get(); }
    void close() { socket_.reset(); }
    Source source;

private:
    Fd socket_;
};

// A socket that is connected to the port.
Fd senderTo(const Source& source) {
    Fd socket(::socket(AF_INET, (source.kind == SourceKind::kUdp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(source.port);
    const auto* const to = reinterpret_cast<const sockaddr*>(&address);
    return ::connect(socket.get(), to, sizeof address) == 0 ? std::move(socket) : Fd();
}

// What waits, once it is that much; what it is after 10 s. The kernel may need a moment for what was sent.
unsigned long long waitingUntil(unsigned long long wanted, const Source& source) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    unsigned long long waiting = waitingInKernel(source);
    while (waiting != wanted && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
        waiting = waitingInKernel(source);
    }
    return waiting;
}

TEST(WaitingInKernel, IsWhatNobodyHasReadOrAccepted) {
    const BoundPort port(SourceKind::kTcp);
    EXPECT_EQ(waitingInKernel(port.source), 0U);
    const Fd sender = senderTo(port.source);
    const Fd silent = senderTo(port.source);
    EXPECT_EQ(waitingUntil(2U, port.source), 2U) << "connections";
    ASSERT_EQ(::send(sender.get(), "0123456789", 10, 0), 10);
    EXPECT_EQ(waitingUntil(12U, port.source), 12U);
    const Fd accepted(::accept4(port.socket(), nullptr, nullptr, SOCK_CLOEXEC));
    EXPECT_EQ(waitingUntil(11U, port.source), 11U);
    char text[16];
    ASSERT_EQ(::recv(accepted.get(), text, sizeof text, 0), 10);
    ASSERT_EQ(::send(accepted.get(), "answer", 6, 0), 6);
    EXPECT_EQ(waitingUntil(1U, port.source), 1U) << "what waits at the sender is not counted";
    EXPECT_EQ(waitingInKernel({SourceKind::kUdp, port.source.port}), 0U);
}

TEST(WaitingInKernel, IsWhatCameInDatagrams) {
    const BoundPort port(SourceKind::kUdp);
    const Fd sender = senderTo(port.source);
    ASSERT_EQ(::send(sender.get(), "0123456789", 10, 0), 10);
    char text[16];
    ASSERT_EQ(::recv(port.socket(), text, sizeof text, MSG_PEEK), 10);
    EXPECT_GE(waitingInKernel(port.source), 10U) << "the kernel counts what they take";
    ASSERT_EQ(::recv(port.socket(), text, sizeof text, 0), 10);
    EXPECT_EQ(waitingUntil(0, port.source), 0U);
}

TEST(WaitingInKernel, IsNothingWithoutAPort) {
    EXPECT_EQ(waitingInKernel({SourceKind::kJournal}), 0U);
}

TEST(HasBound, LeavesOutConnections) {
    BoundPort port(SourceKind::kTcp);
    const Fd sender = senderTo(port.source);
    const Fd accepted(::accept4(port.socket(), nullptr, nullptr, SOCK_CLOEXEC));
    ASSERT_TRUE(accepted);
    EXPECT_TRUE(hasBound(::getpid(), port.source));
    EXPECT_FALSE(hasBound(::getpid(), {SourceKind::kUdp, port.source.port}));
    port.close();
    EXPECT_EQ(whoHolds(port.source, ::getpid()), PortHolder::kNobody);
    EXPECT_FALSE(hasBound(::getpid(), port.source));
}

TEST(TryToBind, FailsForAPortThatIsTaken) {
    for (const SourceKind kind : {SourceKind::kUdp, SourceKind::kTcp}) {
        const BoundPort taken(kind);
        ASSERT_NE(taken.source.port, 0);
        EXPECT_EQ(tryToBind(taken.source, false), EADDRINUSE);
    }
    EXPECT_EQ(tryToBind({SourceKind::kTcp, 0}, false), 0);
}

TEST(WhoHolds, TellsOwnFromOthers) {
    Source free;
    for (const SourceKind kind : {SourceKind::kUdp, SourceKind::kTcp}) {
        const BoundPort mine(kind);
        ASSERT_NE(mine.source.port, 0);
        EXPECT_EQ(whoHolds(mine.source, ::getpid()), PortHolder::kProcess);
        EXPECT_EQ(whoHolds(mine.source, ::getppid()), PortHolder::kAnother);
        EXPECT_EQ(whoHolds(mine.source, kNoProcess), PortHolder::kAnother);
        EXPECT_TRUE(hasBound(::getpid(), mine.source));
        EXPECT_FALSE(hasBound(::getppid(), mine.source));
        free = mine.source;
    }
    EXPECT_EQ(whoHolds(free, ::getpid()), PortHolder::kNobody);
    EXPECT_FALSE(hasBound(::getpid(), free));
}

class Resources : public testing::Test {
protected:
    // The receiver named bsd has a syslog-ng with this number.
    void runBsd(pid_t process) {
        std::filesystem::create_directory(folder / "bsd");
        writeText(folder / "bsd/pid", std::to_string(process) + "\n");
    }
    int check(const std::string& name, const Source& source, const ReceiverConfig* running = nullptr) {
        ReceiverConfig config;
        config.name = name;
        config.sources = {source};
        config.sources[0].portKey = name == "bsd" ? "server_port" : "server_ietf_port";
        config.ipv6 = false;
        testing::internal::CaptureStderr();
        const int code = checkResources(config, running, folder.path());
        said = testing::internal::GetCapturedStderr();
        return code;
    }
    TempFolder folder;
    std::string said;
};

TEST_F(Resources, ShareAPortForDatagramsWithTheOtherReceiver) {
    const BoundPort port(SourceKind::kUdp);
    runBsd(::getpid());
    EXPECT_EQ(check("ietf", port.source), EX_OK);
    EXPECT_EQ(said, "");
}

TEST_F(Resources, DoNotShareAPortForDatagramsWithAnybodyElse) {
    const BoundPort port(SourceKind::kUdp);
    EXPECT_EQ(check("ietf", port.source), EX_UNAVAILABLE);
    EXPECT_THAT(said, HasSubstr("server_ietf_port=\"" + std::to_string(port.source.port) + "\": cannot use port"));
    runBsd(::getppid());
    EXPECT_EQ(check("ietf", port.source), EX_UNAVAILABLE);
}

TEST_F(Resources, NameBothKeysWhereAPortForStreamsIsTheOtherReceivers) {
    const BoundPort port(SourceKind::kTcp);
    runBsd(::getpid());
    for (const SourceKind kind : {SourceKind::kTcp, SourceKind::kTls}) {
        EXPECT_EQ(check("ietf", {kind, port.source.port}), EX_UNAVAILABLE);
        EXPECT_THAT(said, HasSubstr("server_ietf_port=\"" + std::to_string(port.source.port) + "\""));
        EXPECT_THAT(said, HasSubstr("(server_port), which is running"));
    }
}

TEST_F(Resources, LeaveAloneWhatTheReceiverHasAlready) {
    const BoundPort port(SourceKind::kTcp);
    ReceiverConfig running;
    running.sources = {port.source};
    EXPECT_EQ(check("bsd", port.source, &running), EX_OK);
    EXPECT_EQ(check("bsd", {SourceKind::kUdp, port.source.port}, &running), EX_OK) << "another port by now";
}

class RuleResources : public Resources {
protected:
    RuleResources() {
        rules.name = "custrule";
        rules.needsAll = false;
        rules.sharesUdpPorts = false;
        rules.ipv6 = false;
    }
    void add(const std::string& rule, Source source) {
        source.portKey = "port";
        source.rule = rule;
        rules.sources.push_back(source);
    }
    ReceiverConfig rules;
};

TEST_F(RuleResources, AreLeftOutWhereTheyAreTaken) {
    const BoundPort stream(SourceKind::kTcp);
    const BoundPort datagrams(SourceKind::kUdp);
    add("a", stream.source);
    add("b", {SourceKind::kTcp, 0});
    add("c", datagrams.source);
    EXPECT_TRUE(leaveOutUnusable(rules, nullptr, folder.path(), {}));
    ASSERT_EQ(rules.sources.size(), 1U);
    EXPECT_EQ(rules.sources[0].rule, "b");
    const std::string port = std::to_string(stream.source.port);
    EXPECT_THAT(rules.remarks,
                testing::ElementsAre("rule \"a\" is left out: port=\"" + port + "\": cannot use port " + port +
                                         "/tcp: Address already in use",
                                     testing::StartsWith("rule \"c\" is left out: port=")));
    EXPECT_FALSE(leaveOutUnusable(rules, nullptr, folder.path(), {})) << "the rest can be had";
}

TEST_F(RuleResources, AreNotSharedWithAReceiver) {
    const BoundPort port(SourceKind::kUdp);
    runBsd(::getpid());
    add("mine", port.source);
    EXPECT_TRUE(leaveOutUnusable(rules, nullptr, folder.path(), {}));
    EXPECT_THAT(
        rules.remarks,
        testing::ElementsAre("rule \"mine\" is left out: port=\"" + std::to_string(port.source.port) +
                             "\" is the port of the receiver of BSD messages (server_port), which is running; "
                             "each needs its own"));
}

TEST_F(RuleResources, LeaveThePortOfAReceiverThatIsSwitchedOn) {
    add("datagrams", {SourceKind::kUdp, 1});
    add("stream", {SourceKind::kTls, 1});
    const std::vector<ReservedPort> reserved = {{{Transport::kTcp, 1}, "ietf"}, {{Transport::kUdp, 2}, "bsd"}};
    rules.sources[0].port = 0;  // which can be had by anybody
    EXPECT_TRUE(leaveOutUnusable(rules, nullptr, folder.path(), reserved));
    ASSERT_EQ(rules.sources.size(), 1U);
    EXPECT_THAT(rules.remarks,
                testing::ElementsAre("rule \"stream\" is left out: port=\"1\" is the port of the receiver of IETF "
                                     "messages (server_ietf_port), which is switched on; each needs its own"));
}

TEST_F(RuleResources, AreNotGivenToAReceiver) {
    const BoundPort port(SourceKind::kUdp);
    std::filesystem::create_directory(folder / "custrule");
    writeText(folder / "custrule/pid", std::to_string(::getpid()));
    EXPECT_EQ(check("ietf", port.source), EX_UNAVAILABLE);
    EXPECT_THAT(said, HasSubstr("is the port of a receiving rule (custrule.conf); each needs its own"));
}

TEST_F(RuleResources, ThatAreInUseStaySo) {
    const BoundPort port(SourceKind::kTcp);
    ReceiverConfig running = rules;
    running.sources = {{SourceKind::kTls, port.source.port}};
    add("kept", {SourceKind::kTls, port.source.port});
    EXPECT_FALSE(leaveOutUnusable(rules, &running, folder.path(), {}))
        << "without another look at its certificate";
    ReceiverConfig next = rules;
    running.keyFile = "/another";
    EXPECT_TRUE(leaveOutUnusable(next, &running, folder.path(), {}));
    next = rules;
    running.keyFile = rules.keyFile;
    running.certificateFile = "/another";
    EXPECT_TRUE(leaveOutUnusable(next, &running, folder.path(), {}));
}

// As an earlier one that has not quite ended.
TEST_F(RuleResources, OfAReceiverOfTheSameNameAreTaken) {
    const BoundPort port(SourceKind::kTcp);
    std::filesystem::create_directory(folder / "custrule");
    writeText(folder / "custrule/pid", std::to_string(::getpid()));
    add("again", port.source);
    EXPECT_TRUE(leaveOutUnusable(rules, nullptr, folder.path(), {}));
    EXPECT_THAT(rules.remarks, testing::ElementsAre(HasSubstr("cannot use port")));
}

class LogSocketFile : public Resources {
protected:
    // A socket bound to the path; closing it leaves the file.
    [[nodiscard]] Fd bindTo(const std::string& path, int type = SOCK_DGRAM) const {
        Fd socket(::socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return {};
        return type == SOCK_STREAM && ::listen(socket.get(), 1) != 0 ? Fd() : std::move(socket);
    }
    int checkLog() { return check("local", {SourceKind::kLogSocket, 0, folder / "log"}); }
};

TEST_F(LogSocketFile, OfALivingProcessIsNotTaken) {
    for (const int type : {SOCK_DGRAM, SOCK_STREAM}) {
        const Fd living = bindTo(folder / "log", type);
        ASSERT_TRUE(living);
        EXPECT_EQ(checkLog(), EX_UNAVAILABLE);
        EXPECT_THAT(said, HasSubstr("another program collects the logs of this machine at " + (folder / "log")));
        removeStaleLogSocket(folder / "log");
        ASSERT_TRUE(std::filesystem::remove(folder / "log")) << "it was still there";
    }
}

TEST_F(LogSocketFile, ThatNobodyIsBoundToIsRemoved) {
    ASSERT_TRUE(bindTo(folder / "log"));
    EXPECT_EQ(lookAtLogSocket(folder / "log"), LogSocket::kStale);
    EXPECT_EQ(checkLog(), EX_OK);
    EXPECT_EQ(lookAtLogSocket(folder / "log"), LogSocket::kFree);
}

TEST_F(LogSocketFile, ThatIsNoneStays) {
    writeText(folder / "log", "mine");
    EXPECT_EQ(checkLog(), EX_UNAVAILABLE);
    EXPECT_THAT(said, HasSubstr((folder / "log") + " is in the way"));
    EXPECT_EQ(readText(folder / "log"), "mine");
    std::filesystem::remove(folder / "log");
    std::filesystem::create_symlink(folder / "gone", folder / "log");
    EXPECT_EQ(checkLog(), EX_UNAVAILABLE);
    ASSERT_TRUE(bindTo(folder / "gone"));
    EXPECT_EQ(checkLog(), EX_UNAVAILABLE);
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "log"));
    const Fd living = (std::filesystem::remove(folder / "gone"), bindTo(folder / "gone"));
    EXPECT_EQ(lookAtLogSocket(folder / "log"), LogSocket::kTaken) << "as of systemd's journal";
}

TEST(ReadPid, TakesNumbersOnly) {
    const TempFolder folder;
    EXPECT_EQ(readPid(folder / "pid"), -1);
    for (const char* const text : {"", "junk", "0\n", "-5\n"}) {
        writeText(folder / "pid", text);
        EXPECT_EQ(readPid(folder / "pid"), -1) << text;
    }
    writeText(folder / "pid", "4711\n");
    EXPECT_EQ(readPid(folder / "pid"), 4711);
}

}  // namespace
}  // namespace ombrel
