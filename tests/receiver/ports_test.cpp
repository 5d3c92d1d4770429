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

#include <cstring>
#include <string>

#include "linux/common/fd.h"
#include "receiver/launcher/log_socket.h"
#include "receiver/launcher/resources.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr pid_t kNoProcess = -1;

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
                           (udp || ::listen(socket_.get(), 1) == 0) &&
                           ::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size) == 0;
        source = {kind, bound ? ntohs(address.sin_port) : std::uint16_t{0}};
    }
    Source source;

private:
    Fd socket_;
};

TEST(BoundInTable, FindsSocketsThatTakeSomething) {
    const std::string head = "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid\n";
    const std::string tail = " 00000000:00000000 00:00000000 00000000     0        0 4711 1 0\n";
    const std::string listening = head + "   0: 00000000:0202 00000000:0000 0A" + tail;
    EXPECT_THAT(boundInTable(listening, false, 514), ElementsAre(4711));
    EXPECT_THAT(boundInTable(listening, false, 515), IsEmpty());
    EXPECT_THAT(boundInTable(listening, true, 514), IsEmpty());
    const std::string six = head + "   0: 00000000000000000000000000000000:0202 000:0000 07" + tail;
    EXPECT_THAT(boundInTable(six, true, 514), ElementsAre(4711));
    const std::string connected = head + "   0: 0100007F:0202 0100007F:C001 01" + tail;
    EXPECT_THAT(boundInTable(connected, false, 514), IsEmpty());
    EXPECT_THAT(boundInTable("junk\n:\n", false, 514), IsEmpty());
}

TEST(WaitingInTable, SumsWhatHasComeForThePort) {
    const std::string table =
        "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when\n"
        "   0: 00000000:0202 00000000:0000 0A 00000000:00000002 00:00000000\n"
        "   1: 0100007F:0202 0100007F:C001 01 000000FF:00001000 00:00000000\n"
        "   2: 0100007F:C001 0100007F:0202 01 00001000:00000500 00:00000000\n";
    EXPECT_EQ(waitingInTable(table, 514), 0x1002U);
    EXPECT_EQ(waitingInTable(table, 515), 0U);
    EXPECT_EQ(waitingInTable("junk\n0: 00000000:0202 x 01\n", 514), 0U);
    EXPECT_EQ(waitingInKernel({SourceKind::kJournal}), 0U);
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
        config.portKey = name == "bsd" ? "server_port" : "server_ietf_port";
        config.sources = {source};
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
    EXPECT_THAT(said, HasSubstr("/udp (server_ietf_port): Address already in use"));
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
