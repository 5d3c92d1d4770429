// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// The receiver of the rules when they change, and when what they need comes back. Syslog-ng is a script that says
// when it begins, and a thread that takes its commands; real ones are in the system tests.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sysexits.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "linux/common/fd.h"
#include "receiver/launcher/receiver_process.h"
#include "tests/receiver/settings_file.h"
#include "tests/receiver/temp_folder.h"
#include "tests/receiver/test_certificate.h"

namespace ombrel {
namespace {

using testing::HasSubstr;
using testing::Not;

constexpr int kPatience = 20'000;  // milliseconds

bool readable(int fd, int milliseconds = kPatience) {
    pollfd one{fd, POLLIN, 0};
    return ::poll(&one, 1, milliseconds) == 1;
}

std::string readSome(int fd) {
    std::array<char, 4096> buffer{};
    const ssize_t got = readable(fd) ? ::read(fd, buffer.data(), buffer.size()) : -1;
    return got > 0 ? std::string(buffer.data(), static_cast<std::size_t>(got)) : std::string();
}

// A port that nobody has, until `hold` takes it; the number is chosen by the kernel.
class Port {
public:
    Port() {
        hold();
        free();
    }
    void hold() {
        socket_.reset(::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        address.sin6_port = htons(number_);
        socklen_t size = sizeof address;
        EXPECT_EQ(::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), size), 0);
        EXPECT_EQ(::listen(socket_.get(), 1), 0);
        EXPECT_EQ(::getsockname(socket_.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
        number_ = ntohs(address.sin6_port);
    }
    void free() { socket_.reset(); }
    [[nodiscard]] std::string text() const { return std::to_string(number_); }

private:
    Fd socket_;
    std::uint16_t number_ = 0;
};

// Takes commands in the place of syslog-ng: counters at once, reloads when the test says what to answer.
class Commands {
public:
    explicit Commands(const std::string& path) : listener_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        end_.reset(ends[0]);
        tellEnd_.reset(ends[1]);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
        EXPECT_EQ(::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(::listen(listener_.get(), 10), 0);
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        reloads_.reset(ends[0]);
        tellReload_.reset(ends[1]);
        thread_ = std::thread([this] { serve(); });
    }
    Commands(const Commands&) = delete;
    Commands& operator=(const Commands&) = delete;
    ~Commands() {
        tellEnd_.reset();
        thread_.join();
    }
    [[nodiscard]] bool isReload() const { return !readSome(reloads_.get()).empty(); }
    [[nodiscard]] bool isNoReload() const { return !readable(reloads_.get(), 200); }
    /// To the first that waits.
    void answer(const std::string& text) {
        const std::string all = text + "\n.\n";
        const Fd one = take();
        EXPECT_EQ(::send(one.get(), all.data(), all.size(), MSG_NOSIGNAL), static_cast<ssize_t>(all.size()));
    }

private:
    Fd take() {
        const std::lock_guard guard(lock_);
        Fd one = std::move(waiting_.front());
        waiting_.pop_front();
        return one;
    }
    void serve() {
        for (;;) {
            pollfd both[] = {{end_.get(), POLLIN, 0}, {listener_.get(), POLLIN, 0}};
            if (::poll(both, 2, -1) < 0 || both[0].revents != 0) return;
            Fd one(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
            const std::string command = readSome(one.get());
            if (command == "RELOAD\n") {
                const std::lock_guard guard(lock_);
                waiting_.push_back(std::move(one));
                (void)!::write(tellReload_.get(), "R", 1);
            } else {
                (void)::send(one.get(), "\n.\n", 3, MSG_NOSIGNAL);
            }
        }
    }
    Fd listener_;
    Fd end_;
    Fd tellEnd_;
    Fd reloads_;
    Fd tellReload_;
    std::mutex lock_;
    std::deque<Fd> waiting_;
    std::thread thread_;
};

class FollowRules : public testing::Test {
protected:
    FollowRules() {
        ::mkdir(files.folder.c_str(), 0700);
        writeText(folder / "syslog-ng",
                  "#!/bin/sh\nfor word; do [ \"$word\" != --syntax-only ] || exit 0; done\n"
                  "echo >" +
                      (folder / "begun") + "\nexec sleep 600\n");
        ::chmod((folder / "syslog-ng").c_str(), 0700);
        ::mkfifo((folder / "begun").c_str(), 0600);
        begun.reset(::open((folder / "begun").c_str(), O_RDWR | O_CLOEXEC));
        int ends[2];
        EXPECT_EQ(::pipe2(ends, O_CLOEXEC), 0);
        said.reset(ends[0]);
        tells.reset(ends[1]);
    }
    ~FollowRules() override {
        if (receiver > 0) {
            ::kill(receiver, SIGKILL);
            ::waitpid(receiver, nullptr, 0);
        }
    }
    static std::string rule(const std::string& name, const std::string& format, const Port& port,
                            const std::string& ssl = "no") {
        return "[" + name + "]\nformat=\"" + format + "\"\nprotocol=\"tcp\"\nport=\"" + port.text() +
               "\"\nssl=\"" + ssl + "\"\nenable=\"yes\"\n";
    }
    void rules(const std::string& text) const { writeText(places.settings.rules, text); }
    void start() {
        std::string error;
        auto config = receiverConfig("custrule", places.settings, error);
        ASSERT_TRUE(config) << error;
        fitToMachine(*config);
        config->queueFolder = files.folder;
        receiver = ::fork();
        if (receiver == 0) {
            second.free();  // whoever has it, it is not the receiver
            ::dup2(tells.get(), STDERR_FILENO);
            ::_exit(ReceiverProcess(places, files, *config).run());
        }
        tells.reset();
        ASSERT_TRUE(begins());
    }
    [[nodiscard]] bool begins() const { return !readSome(begun.get()).empty(); }
    [[nodiscard]] bool doesNotBegin() const { return !readable(begun.get(), 0); }
    void follow(const std::string& text) {
        rules(text);
        ASSERT_EQ(::kill(receiver, SIGHUP), 0);
    }
    // Up to these words.
    std::string says(const std::string& words) const {
        std::string all;
        for (std::string some; all.find(words) == std::string::npos && !(some = readSome(said.get())).empty();)
            all += some;
        return all;
    }
    [[nodiscard]] std::string configuration() const { return readText(files.configuration); }
    static std::string inConfiguration(const Port& port) { return "port(" + port.text() + ")"; }

    TempFolder folder;
    LauncherPlaces places{.settings = {folder / "server.conf", folder / "custrule.conf"},
                          .runFolder = folder.path(),
                          .syslogNg = folder / "syslog-ng",
                          .tryAgain = std::chrono::milliseconds(50),
                          .reload = std::chrono::milliseconds(300)};
    ReceiverFiles files{folder.path(), "custrule"};
    Fd begun;
    Fd said;
    Fd tells;
    pid_t receiver = -1;
    Port first;
    Port second;
};

TEST_F(FollowRules, TakesUpAnotherOneInPlace) {
    rules(rule("a", "BSD", first));
    start();
    Commands commands(files.control);
    follow(rule("a", "BSD", first) + rule("b", "RAW", second));
    ASSERT_TRUE(commands.isReload());
    EXPECT_THAT(configuration(), HasSubstr(inConfiguration(second)));
    commands.answer("OK Config reload successful");
    EXPECT_TRUE(doesNotBegin());
}

TEST_F(FollowRules, WaitsForASyslogNgThatDoesNotTakeCommandsYet) {
    places.reload = std::chrono::milliseconds(kPatience);
    rules(rule("a", "BSD", first));
    start();
    follow(rule("a", "BSD", first) + rule("b", "BSD", second));
    while (configuration().find(inConfiguration(second)) == std::string::npos)
        std::this_thread::yield();
    const Commands commands(files.control);
    EXPECT_TRUE(commands.isReload());
}

TEST_F(FollowRules, SaysWhenSyslogNgNeverTakesCommands) {
    rules(rule("a", "BSD", first));
    start();
    const std::string before = configuration();
    follow(rule("a", "BSD", first) + rule("b", "BSD", second));
    EXPECT_THAT(says("commands\n"), HasSubstr("goes on as before: syslog-ng does not take commands\n"));
    EXPECT_EQ(configuration(), before);
}

TEST_F(FollowRules, StartsAnewWhereAConnectionWouldGoOnAsItBegan) {
    const std::string last = rule("c", "IETF", second);
    Port third;
    const std::string lines = rule("b", "BSD", third);
    rules(rule("a", "BSD", first) + lines + last);
    start();
    follow(rule("a", "IETF", first) + lines + last);
    EXPECT_TRUE(begins());
    follow(lines + last);
    EXPECT_TRUE(begins()) << "a listener that goes cuts its connections";
    EXPECT_THAT(configuration(), Not(HasSubstr(inConfiguration(first))));
}

TEST_F(FollowRules, StartsAnewWhereAQueueWouldGo) {
    std::string datagrams = rule("a", "BSD", first);
    datagrams.replace(datagrams.find("tcp"), 3, "udp");
    rules(datagrams + rule("b", "BSD", second));
    start();
    datagrams.replace(datagrams.find("BSD"), 3, "RAW");
    follow(datagrams + rule("b", "BSD", second));
    EXPECT_TRUE(begins());
}

TEST_F(FollowRules, GoesOnWithWhatItDrains) {
    writeText(files.folder + "/syslog-ng-00000.qf", std::string(4097, 'l'));
    rules(rule("a", "BSD", first));
    start();
    EXPECT_THAT(configuration(), HasSubstr("destination d_raw-udp "));
    Commands commands(files.control);
    follow(rule("a", "BSD", first) + rule("b", "BSD", second));
    ASSERT_TRUE(commands.isReload());
    EXPECT_THAT(configuration(), HasSubstr("destination d_raw-udp "));
    commands.answer("OK Config reload successful");
}

TEST_F(FollowRules, SaysOnlyWhatIsNew) {
    const std::string old = rule("a", "BSD", first) + rule("old", "XML", first);
    rules(old);
    start();
    EXPECT_THAT(says("RAW\n"), HasSubstr("rule \"old\" is left out"));
    Commands commands(files.control);
    follow(old + rule("new", "XML", first));
    ASSERT_TRUE(commands.isReload());
    commands.answer("OK Config reload successful");
    EXPECT_THAT(says("RAW\n"), Not(HasSubstr("\"old\"")));
}

class FollowOneMore : public FollowRules {
protected:
    FollowOneMore() {
        rules(rule("a", "BSD", first));
        start();
        before = configuration();
        commands.emplace(files.control);
        follow(rule("a", "BSD", first) + rule("b", "BSD", second));
        EXPECT_TRUE(commands->isReload());
    }
    std::string before;
    std::optional<Commands> commands;
};

TEST_F(FollowOneMore, GoesOnAsBeforeWhenSyslogNgRefuses) {
    commands->answer("FAIL Config reload failed, reverted to previous config");
    EXPECT_THAT(says("it\n"), HasSubstr("goes on as before: syslog-ng cannot use it\n"));
    EXPECT_EQ(configuration(), before);
    EXPECT_TRUE(commands->isNoReload()) << "a change that cannot be used changes nothing";
}

TEST_F(FollowOneMore, GoesOnAsBeforeWhenSyslogNgRefusesLater) {
    EXPECT_THAT(says("stored\n"), HasSubstr("syslog-ng has not answered yet"));
    EXPECT_THAT(configuration(), HasSubstr(inConfiguration(second)));
    commands->answer("FAIL Config reload failed, reverted to previous config");
    EXPECT_THAT(says("configuration\n"), HasSubstr("goes on as before: syslog-ng cannot use"));
    EXPECT_TRUE(commands->isReload()) << "and tries again";
    EXPECT_THAT(configuration(), HasSubstr(inConfiguration(second)));
    commands->answer("OK Config reload successful");
}

TEST_F(FollowOneMore, IsNotUndoneByTheAnswerToAnEarlierChange) {
    EXPECT_THAT(says("stored\n"), HasSubstr("syslog-ng has not answered yet"));
    const Port third;
    follow(rule("a", "BSD", first) + rule("b", "BSD", second) + rule("c", "RAW", third));
    ASSERT_TRUE(commands->isReload());
    commands->answer("FAIL Config reload failed, reverted to previous config");
    commands->answer("OK Config reload successful");
    EXPECT_TRUE(commands->isNoReload());
    EXPECT_THAT(configuration(), HasSubstr(inConfiguration(third)));
}

TEST_F(FollowRules, TakesUpAPortThatIsFreeAgain) {
    second.hold();
    rules(rule("a", "BSD", first) + rule("b", "BSD", second));
    start();
    EXPECT_THAT(says("in use\n"), HasSubstr("rule \"b\" is left out: port=\"" + second.text()));
    Commands commands(files.control);
    EXPECT_TRUE(commands.isNoReload());
    second.free();
    ASSERT_TRUE(commands.isReload());
    commands.answer("FAIL Config reload failed, reverted to previous config");
    EXPECT_THAT(says("it\n"),
                HasSubstr("cannot take up rules whose ports are free again: syslog-ng cannot use it"));
    ASSERT_TRUE(commands.isReload()) << "tries again";
    commands.answer("OK Config reload successful");
    EXPECT_THAT(says("in use\n"), HasSubstr("no longer so: rule \"b\" is left out"));
    EXPECT_THAT(configuration(), HasSubstr(inConfiguration(second)));
    EXPECT_TRUE(commands.isNoReload()) << "there is nothing left to take up";
}

TEST_F(FollowRules, StillTriesAfterAChangeThatCannotBeUsed) {
    second.hold();
    rules(rule("a", "BSD", first) + rule("b", "BSD", second));
    start();
    Commands commands(files.control);
    const Port third;
    follow(rule("a", "BSD", first) + rule("c", "BSD", third));
    ASSERT_TRUE(commands.isReload());
    commands.answer("FAIL Config reload failed, reverted to previous config");
    EXPECT_THAT(says("it\n"), HasSubstr("goes on as before"));
    second.free();
    EXPECT_TRUE(commands.isReload());
    EXPECT_THAT(configuration(), HasSubstr(inConfiguration(second)));
    EXPECT_THAT(configuration(), Not(HasSubstr(inConfiguration(third))));
}

class FollowCertificate : public FollowRules {
protected:
    FollowCertificate() {
        make("key.pem", "certificate.pem");
        use("key.pem", "certificate.pem");
    }
    void make(const char* keyName, const char* certificateName) const {
        const Key key(EVP_EC_gen("P-256"));
        writeKey(folder / keyName, key.get());
        writeCertificate(folder / certificateName, key.get(), -60, 3600);
    }
    void use(const char* keyName, const char* certificateName, const char* port = "514") const {
        writeSettings(places.settings.settings, {{"server_ca_key", folder / keyName},
                                                 {"server_ca_file", folder / certificateName},
                                                 {"server_port", port}});
    }
};

TEST_F(FollowCertificate, OfTheSettingsByItself) {
    rules(rule("a", "BSD", first, "yes"));
    start();
    Commands commands(files.control);
    use("key.pem", "certificate.pem", "1514");
    EXPECT_TRUE(commands.isNoReload()) << "another setting";
    make("other.pem", "newer.pem");
    use("other.pem", "newer.pem");
    ASSERT_TRUE(commands.isReload());
    EXPECT_THAT(configuration(), HasSubstr(folder / "newer.pem"));
    commands.answer("OK Config reload successful");
    EXPECT_TRUE(doesNotBegin());
}

TEST_F(FollowCertificate, AloneOfWhatCanBeUsed) {
    rules(rule("a", "BSD", first, "yes"));
    start();
    const std::string before = configuration();
    const Commands commands(files.control);
    use("key.pem", "missing.pem");
    EXPECT_THAT(says("directory\n"),
                HasSubstr("goes on as before: cannot read server_ca_file=\"" + (folder / "missing.pem")));
    EXPECT_TRUE(commands.isNoReload());
    EXPECT_EQ(configuration(), before);
}

TEST_F(FollowCertificate, NotWithoutARuleThatNeedsIt) {
    rules(rule("a", "BSD", first));
    start();
    const Commands commands(files.control);
    make("other.pem", "newer.pem");
    use("other.pem", "newer.pem");
    EXPECT_TRUE(commands.isNoReload());
}

// Syslog-ng would end in a reload that cannot read what it has already.
TEST_F(FollowCertificate, DoesNotReloadWithOneThatBroke) {
    rules(rule("a", "BSD", first, "yes"));
    start();
    const std::string before = configuration();
    EXPECT_THAT(before, HasSubstr(inConfiguration(first)));
    const Commands commands(files.control);
    writeText(folder / "certificate.pem", "junk");
    follow(rule("a", "BSD", first, "yes") + rule("b", "BSD", second));
    EXPECT_THAT(says("PEM"), HasSubstr("goes on as before: server_ca_file=\"" + (folder / "certificate.pem")));
    EXPECT_TRUE(commands.isNoReload());
    EXPECT_EQ(configuration(), before);
}

}  // namespace
}  // namespace ombrel
