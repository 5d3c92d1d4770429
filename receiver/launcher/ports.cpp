// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/ports.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <sstream>
#include <string_view>
#include <system_error>

#include "linux/common/fd.h"

namespace ombrel {

namespace {

int bindOne(int family, int type, std::uint16_t port) noexcept {
    const Fd socket(::socket(family, type | SOCK_CLOEXEC, 0));
    if (!socket) return errno;
    const int on = 1;
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0) return errno;
    sockaddr_in6 six{};
    six.sin6_family = AF_INET6;
    six.sin6_port = htons(port);
    sockaddr_in four{};
    four.sin_family = AF_INET;
    four.sin_port = htons(port);
    const bool isSix = family == AF_INET6;
    const auto* const address =
        isSix ? reinterpret_cast<const sockaddr*>(&six) : reinterpret_cast<const sockaddr*>(&four);
    const socklen_t size = isSix ? sizeof six : sizeof four;
    if (::bind(socket.get(), address, size) != 0) return errno;
    return type == SOCK_STREAM && ::listen(socket.get(), 1) != 0 ? errno : 0;
}

}  // namespace

bool canUseIpv6() noexcept {
    return bindOne(AF_INET6, SOCK_DGRAM, 0) == 0;
}

int tryToBind(const Source& source, bool ipv6) noexcept {
    const int type = source.kind == SourceKind::kUdp ? SOCK_DGRAM : SOCK_STREAM;
    return bindOne(ipv6 ? AF_INET6 : AF_INET, type, source.port);
}

namespace {

std::optional<unsigned long> readNumber(std::string_view digits, int base) {
    unsigned long value = 0;
    const bool read = std::from_chars(digits.data(), digits.data() + digits.size(), value, base).ec == std::errc();
    return read ? std::optional(value) : std::nullopt;
}

std::optional<unsigned long> hexadecimalAfterColon(std::string_view text) {
    return readNumber(text.substr(text.rfind(':') + 1), 16);  // from the start without one
}

// "sl local_address rem_address st tx_queue:rx_queue tr:when retrnsmt uid timeout inode": the port is behind the
// last colon of the local address.
struct SocketRow {
    std::string state;
    unsigned long waiting = 0;
    unsigned long inode = 0;
};

template <typename Taker>
void forEachOfPort(const std::string& table, std::uint16_t port, const Taker& take) {
    std::istringstream lines(table);
    std::string line;
    while (std::getline(lines, line)) {
        std::istringstream words(line);
        const std::vector<std::string> fields(std::istream_iterator<std::string>{words}, {});
        if (fields.size() < 4 || hexadecimalAfterColon(fields[1]) != port) continue;
        take(SocketRow{fields[3], fields.size() > 4 ? hexadecimalAfterColon(fields[4]).value_or(0) : 0,
                       fields.size() > 9 ? readNumber(fields[9], 10).value_or(0) : 0});
    }
}

std::string socketTable(SourceKind kind, const char* family) {
    std::ifstream file(std::string("/proc/net/") + (kind == SourceKind::kUdp ? "udp" : "tcp") + family);
    std::stringstream table;
    table << file.rdbuf();
    return table.str();
}

std::vector<unsigned long> boundSockets(const Source& source) {
    std::vector<unsigned long> inodes;
    for (const char* const family : {"", "6"}) {
        const auto some =
            boundInTable(socketTable(source.kind, family), source.kind == SourceKind::kUdp, source.port);
        inodes.insert(inodes.end(), some.begin(), some.end());
    }
    return inodes;
}

// Those of the wanted sockets that the process has open.
std::set<unsigned long> socketsOf(pid_t process, const std::vector<unsigned long>& wanted) {
    std::set<unsigned long> found;
    if (process < 0 || wanted.empty()) return found;
    std::error_code error;  // it may end meanwhile, and then has none
    std::filesystem::directory_iterator files("/proc/" + std::to_string(process) + "/fd", error);
    for (; !error && files != std::filesystem::directory_iterator(); files.increment(error)) {
        std::error_code gone;
        const std::string target = std::filesystem::read_symlink(files->path(), gone).string();
        constexpr std::string_view kSocket = "socket:[";
        if (gone || !target.starts_with(kSocket)) continue;
        const auto inode = readNumber(std::string_view(target).substr(kSocket.size()), 10);
        if (inode && std::find(wanted.begin(), wanted.end(), *inode) != wanted.end()) found.insert(*inode);
    }
    return found;
}

}  // namespace

std::vector<unsigned long> boundInTable(const std::string& table, bool udp, std::uint16_t port) {
    const std::string wanted = udp ? "07" : "0A";  // UDP without a peer; TCP in LISTEN
    std::vector<unsigned long> inodes;
    forEachOfPort(table, port, [&](const SocketRow& row) {
        if (row.state == wanted) inodes.push_back(row.inode);
    });
    return inodes;
}

PortHolder whoHolds(const Source& source, pid_t process) {
    const auto bound = boundSockets(source);
    if (bound.empty()) return PortHolder::kNobody;
    return socketsOf(process, bound).size() == bound.size() ? PortHolder::kProcess : PortHolder::kAnother;
}

bool hasBound(pid_t process, const Source& source) {
    return !socketsOf(process, boundSockets(source)).empty();
}

unsigned long waitingInTable(const std::string& table, std::uint16_t port) {
    unsigned long sum = 0;
    forEachOfPort(table, port, [&](const SocketRow& row) { sum += row.waiting; });
    return sum;
}

unsigned long waitingInKernel(const Source& source) {
    unsigned long sum = 0;
    if (!hasPort(source.kind)) return sum;
    for (const char* const family : {"", "6"})
        sum += waitingInTable(socketTable(source.kind, family), source.port);
    return sum;
}

long long largestReceiveBuffer() {
    std::ifstream file("/proc/sys/net/core/rmem_max");
    long long bytes = 0;
    return file >> bytes ? bytes : 0;
}

}  // namespace ombrel
