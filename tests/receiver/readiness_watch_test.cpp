// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// This process plays the syslog-ng that is waited for.
#include "receiver/launcher/readiness_watch.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <string>

#include "linux/common/fd.h"
#include "tests/receiver/temp_folder.h"

namespace ombrel {
namespace {

class Readiness : public testing::Test {
protected:
    Readiness() : files(folder.path(), "bsd") {
        std::filesystem::create_directory(files.folder);
        int ends[2];
        if (::pipe(ends) != 0) std::abort();
        reported.reset(ends[0]);
        notify = ends[1];
        config.name = "bsd";
        config.sources = {{SourceKind::kTcp, freePort()}};
    }
    static sockaddr_in onLoopback(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
    static std::uint16_t freePort() {
        const Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address = onLoopback(0);
        socklen_t size = sizeof address;
        if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
            ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0)
            return 0;
        return ntohs(address.sin_port);
    }
    void listenOnControlSocket() {
        control.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, files.control.c_str(), files.control.size() + 1);
        ASSERT_EQ(::bind(control.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::listen(control.get(), 4), 0);
    }
    [[nodiscard]] std::string takeQuestion() {
        asked.reset(::accept(control.get(), nullptr, nullptr));
        std::array<char, 64> buffer{};
        const ssize_t got = ::recv(asked.get(), buffer.data(), buffer.size(), 0);
        return {buffer.data(), static_cast<size_t>(std::max<ssize_t>(got, 0))};
    }
    void bindPort() {
        port.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const sockaddr_in address = onLoopback(config.sources[0].port);
        ASSERT_EQ(::bind(port.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ASSERT_EQ(::listen(port.get(), 1), 0);
    }
    // As the receiver's loop does it, until it is awake.
    void proceed(ReadinessWatch& watch) {
        pollfd one{watch.fd(), POLLIN, 0};
        ASSERT_GE(::poll(&one, 1, watch.timeout()), 0);
        watch.proceed(::getpid(), config);
    }
    [[nodiscard]] bool isReported() const {
        pollfd one{reported.get(), POLLIN, 0};
        char byte = 0;
        return ::poll(&one, 1, 0) == 1 && ::read(reported.get(), &byte, 1) == 1 && byte == '\n';
    }

    TempFolder folder;
    ReceiverFiles files;
    ReceiverConfig config;
    Fd reported;
    int notify = -1;  // closed by the report
    Fd control;
    Fd asked;
    Fd port;
};

TEST_F(Readiness, IsReportedOnceWhenItAnswersAndListens) {
    ReadinessWatch watch(files, notify);
    EXPECT_EQ(watch.timeout(), -1) << "nothing is awaited yet";
    watch.begin();
    EXPECT_GT(watch.timeout(), 1000) << "the socket file gives a sign";
    watch.proceed(::getpid(), config);
    listenOnControlSocket();
    proceed(watch);
    EXPECT_EQ(takeQuestion(), "STATS\n");
    ASSERT_EQ(::send(asked.get(), "x\n.\n", 4, 0), 4);
    proceed(watch);
    EXPECT_FALSE(isReported()) << "the port is not bound";
    EXPECT_LE(watch.timeout(), 10) << "a port gives none";
    bindPort();
    proceed(watch);
    EXPECT_TRUE(isReported());
    EXPECT_EQ(watch.timeout(), -1);
    watch.begin();
    EXPECT_EQ(watch.timeout(), -1) << "said once";
}

TEST_F(Readiness, IsAskedForAgainAfterAnAnswerThatBreaksOff) {
    bindPort();
    ReadinessWatch watch(files, notify);
    watch.begin();
    listenOnControlSocket();
    proceed(watch);
    EXPECT_EQ(takeQuestion(), "STATS\n");
    asked.reset();
    proceed(watch);
    EXPECT_FALSE(isReported());
    proceed(watch);
    EXPECT_EQ(takeQuestion(), "STATS\n");
    ASSERT_EQ(::send(asked.get(), "x\n.\n", 4, 0), 4);
    proceed(watch);
    EXPECT_TRUE(isReported());
}

TEST_F(Readiness, DoesNotBelieveASocketFileOfAnEarlierLife) {
    bindPort();
    listenOnControlSocket();
    control.reset();
    ReadinessWatch watch(files, notify);
    watch.begin();
    EXPECT_FALSE(std::filesystem::exists(files.control));
    ::close(notify);
}

TEST_F(Readiness, OfLocalLogsIsThatProgramsCanLog) {
    config.sources = {{SourceKind::kLogSocket, 0, folder / "log"}, {SourceKind::kKernelRing, 0, "/proc/kmsg"}};
    EXPECT_FALSE(listensOnAll(::getpid(), config));
    const Fd log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = folder / "log";
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    ASSERT_EQ(::bind(log.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_TRUE(listensOnAll(::getpid(), config));
    ::close(notify);
}

}  // namespace
}  // namespace ombrel
