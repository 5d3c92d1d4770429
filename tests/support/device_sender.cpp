// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
//
// Plays the devices of a network: sends numbered RFC 3164 messages over one UDP or TCP socket, or the lines
// of a file as one host's own log. Each message carries its stream's name and its number, in the text
// ("seq=NAME:12") or, for a file, in the brackets behind the program's name, so that an audit can tell what
// was lost or doubled. With --reconnect it does what relays do: it looks whether the receiver has closed the
// connection before it writes, connects again until it is taken, and goes on with what it could not write.
// Prints the number of messages sent.
#include <arpa/inet.h>
#include <getopt.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sysexits.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

namespace {

struct Options {
    bool udp = false;
    bool counted = false;  ///< over TCP: octet counting (RFC 6587 section 3.4.1) instead of lines
    bool reconnect = false;
    std::string address = "127.0.0.1";
    int port = 5514;
    long count = 1000;
    int devices = 20;
    long rate = 0;         ///< messages a second; 0 as fast as the socket takes them
    std::size_t size = 0;  ///< bytes a message is filled up to; 0 leaves it as it is
    std::string stream = "a";
    std::string file;
    std::string host = "localhost";
    std::string program = "log";
};

struct Kind {
    const char* host;
    const char* program;
    int pri;
    const char* text;
};

constexpr Kind kKinds[] = {
    {"router", "pppd", 30, "LCP terminated by peer, link up again after 3 s"},
    {"switch", "stp", 134, "port 12 changed from learning to forwarding"},
    {"printer", "lpd", 54, "job 4711 printed, 3 pages, tray 2 nearly empty"},
    {"server", "sshd", 86, "Accepted publickey for backup from 192.0.2.17 port 50022 ssh2"},
    {"firewall", "filter", 4, "drop in=eth0 src=198.51.100.23 dst=203.0.113.5 proto=tcp dport=23"},
};

[[noreturn]] void die(const char* what) {
    (void)fprintf(stderr, "device-sender: %s: %s\n", what, strerror(errno));
    exit(EX_OSERR);
}

// A receiver that ends passes attempts over; the kernel would try again only after a second.
void setPatience(int fd, timeval patience) {
    if (setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0) die("socket");
}

int tryToConnect(const Options& options) {
    const int fd = socket(AF_INET, (options.udp ? SOCK_DGRAM : SOCK_STREAM) | SOCK_CLOEXEC, 0);
    if (fd < 0) die("socket");
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(static_cast<std::uint16_t>(options.port));
    if (inet_pton(AF_INET, options.address.c_str(), &to.sin_addr) != 1) die("address");
    if (options.reconnect) setPatience(fd, {0, 20'000});
    if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0) {
        if (options.reconnect) setPatience(fd, {});
        return fd;
    }
    close(fd);
    return -1;
}

// Nothing tells when a receiver listens again, so it is asked a hundred times a second, a minute at most.
int connectTo(const Options& options) {
    for (int tries = options.reconnect ? 6000 : 1; tries > 0; --tries) {
        const int fd = tryToConnect(options);
        if (fd >= 0) return fd;
        if (tries > 1) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    die("connect");
}

/// `Mmm dd hh:mm:ss`, formatted once a second.
const std::string& stamp() {
    static time_t last = 0;
    static std::string text;
    const time_t now = time(nullptr);
    if (now != last) {
        tm local{};
        localtime_r(&now, &local);
        char buffer[32];
        (void)strftime(buffer, sizeof buffer, "%b %e %H:%M:%S", &local);
        text = buffer;
        last = now;
    }
    return text;
}

/// Sends messages through one socket: a stream in large pieces, datagrams one by one, at most `rate` a second.
class Sender {
public:
    explicit Sender(const Options& options) : options_(options), fd_(connectTo(options)) {}
    ~Sender() { close(fd_); }
    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

    void send(const std::string& message) {
        pace();
        ++sent_;
        if (options_.udp) {
            while (::send(fd_, message.data(), message.size(), 0) < 0) {
                if (errno == ECONNREFUSED) ++refused_;
                if (errno != EINTR && errno != ECONNREFUSED && errno != ENOBUFS) die("send");
            }
            return;
        }
        pending_ += options_.counted ? std::to_string(message.size()) + " " + message : message + '\n';
        if (pending_.size() > 65536 || options_.rate != 0) flush();
    }
    void finish() {
        flush();
        if (options_.udp) return;
        (void)shutdown(fd_, SHUT_WR);
        char rest[256];
        while (read(fd_, rest, sizeof rest) > 0) {  // until the receiver has taken all of it and closes too
        }
    }
    [[nodiscard]] long sent() const { return sent_; }
    /// Datagrams that found no socket on this machine: each is told with the next one.
    [[nodiscard]] long refused() const { return refused_; }

private:
    void flush() {
        std::size_t done = 0;
        if (options_.reconnect && isClosedByReceiver()) connectAgain();
        while (done < pending_.size()) {
            const ssize_t n = ::send(fd_, pending_.data() + done, pending_.size() - done, MSG_NOSIGNAL);
            if (n > 0) done += static_cast<std::size_t>(n);
            if (n >= 0 || errno == EINTR) continue;
            if (!options_.reconnect) die("send");
            connectAgain();
            done = 0;
        }
        pending_.clear();
    }
    bool isClosedByReceiver() const {
        char byte = 0;
        const ssize_t n = recv(fd_, &byte, 1, MSG_DONTWAIT | MSG_PEEK);
        return n == 0 || (n < 0 && errno != EAGAIN);
    }
    void connectAgain() {
        close(fd_);
        fd_ = connectTo(options_);
    }
    void pace() {
        if (options_.rate == 0) return;
        const auto due = begun_ + std::chrono::nanoseconds(1000000000L * sent_ / options_.rate);
        if (due > Clock::now()) std::this_thread::sleep_until(due);
    }

    using Clock = std::chrono::steady_clock;
    const Options& options_;
    int fd_;
    long sent_ = 0;
    long refused_ = 0;
    std::string pending_;
    Clock::time_point begun_ = Clock::now();
};

void sendDevices(Sender& sender, const Options& options) {
    for (long i = 0; i < options.count; ++i) {
        const long device = i % options.devices;
        const Kind& kind = kKinds[static_cast<std::size_t>(device) % std::size(kKinds)];
        std::string message = "<" + std::to_string(kind.pri) + ">" + stamp() + " " + kind.host + "-" +
                              std::to_string(device + 1) + " " + kind.program + "[" +
                              std::to_string(100 + device) + "]: " + kind.text + " seq=" + options.stream + ":" +
                              std::to_string(i) + ";";
        if (message.size() < options.size) message.append(options.size - message.size(), '.');
        sender.send(message);
    }
}

void sendFile(Sender& sender, const Options& options) {
    std::ifstream file;
    if (options.file != "-") file.open(options.file);
    std::istream& in = options.file == "-" ? std::cin : file;
    if (!in) die(options.file.c_str());
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        sender.send("<13>" + stamp() + " " + options.host + " " + options.program + "[" + options.stream + ":" +
                    std::to_string(sender.sent()) + "]: " + line);
    }
}

int usage() {
    (void)fputs(
        "usage: device-sender [--udp] [--to ADDRESS] [--port N] [--count N] [--devices N] [--rate N] [--size N]\n"
        "                     [--counted] [--reconnect] [--stream NAME] [--file FILE|- [--host NAME] "
        "[--program NAME]]\n",
        stderr);
    return EX_USAGE;
}

bool parse(int argc, char** argv, Options& options) {
    static const option kLong[] = {
        {"counted", no_argument, nullptr, 'o'},       {"reconnect", no_argument, nullptr, 'R'},
        {"udp", no_argument, nullptr, 'u'},           {"to", required_argument, nullptr, 'a'},
        {"port", required_argument, nullptr, 'p'},    {"count", required_argument, nullptr, 'c'},
        {"devices", required_argument, nullptr, 'd'}, {"rate", required_argument, nullptr, 'r'},
        {"size", required_argument, nullptr, 'z'},    {"stream", required_argument, nullptr, 's'},
        {"file", required_argument, nullptr, 'f'},    {"host", required_argument, nullptr, 'h'},
        {"program", required_argument, nullptr, 'g'}, {nullptr, 0, nullptr, 0}};
    for (int letter = 0; (letter = getopt_long(argc, argv, "", kLong, nullptr)) != -1;) {
        const char* value = optarg != nullptr ? optarg : "";
        switch (letter) {
            case 'u':
                options.udp = true;
                break;
            case 'o':
                options.counted = true;
                break;
            case 'R':
                options.reconnect = true;
                break;
            case 'a':
                options.address = value;
                break;
            case 'p':
                options.port = atoi(value);
                break;
            case 'c':
                options.count = atol(value);
                break;
            case 'd':
                options.devices = atoi(value);
                break;
            case 'r':
                options.rate = atol(value);
                break;
            case 'z':
                options.size = static_cast<std::size_t>(atol(value));
                break;
            case 's':
                options.stream = value;
                break;
            case 'f':
                options.file = value;
                break;
            case 'h':
                options.host = value;
                break;
            case 'g':
                options.program = value;
                break;
            default:
                return false;
        }
    }
    return optind == argc && options.devices > 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) return usage();
    Sender sender(options);
    if (options.file.empty()) {
        sendDevices(sender, options);
    } else {
        sendFile(sender, options);
    }
    sender.finish();
    if (sender.refused() > 0) (void)fprintf(stderr, "%ld datagrams found nobody\n", sender.refused());
    (void)printf("%ld\n", sender.sent());
    return EX_OK;
}
