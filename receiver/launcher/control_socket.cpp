// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/launcher/control_socket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace ombrel {

std::optional<ControlQuestion> ControlQuestion::ask(const std::string& path, std::string_view command) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return std::nullopt;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    Fd socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket || ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        return std::nullopt;
    }
    const std::string line = std::string(command) + "\n";
    if (::send(socket.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0) return std::nullopt;
    return ControlQuestion(std::move(socket));
}

// Up to the line with a single dot: a connection closed earlier is an error in its log.
ControlQuestion::State ControlQuestion::proceed() {
    std::array<char, 4096> buffer{};
    while (!answer_.ends_with("\n.\n")) {
        const ssize_t got = ::recv(socket_.get(), buffer.data(), buffer.size(), 0);
        if (got < 0 && errno == EAGAIN) return State::kOpen;
        if (got <= 0) return State::kFailed;
        answer_.append(buffer.data(), static_cast<size_t>(got));
    }
    return State::kAnswered;
}

std::optional<std::string> answerTo(ControlQuestion& question, Deadline deadline) {
    for (;;) {
        const auto state = question.proceed();
        if (state == ControlQuestion::State::kAnswered) return question.answer();
        pollfd one{question.fd(), POLLIN, 0};
        if (state == ControlQuestion::State::kFailed || ::poll(&one, 1, pollTimeout(deadline)) != 1)
            return std::nullopt;
    }
}

std::optional<std::string> askControlSocket(const std::string& path, std::string_view command, Deadline deadline) {
    auto question = ControlQuestion::ask(path, command);
    return question ? answerTo(*question, deadline) : std::nullopt;
}

bool answersOnControlSocket(const std::string& path, std::chrono::milliseconds timeout) {
    return askControlSocket(path, "STATS", std::chrono::steady_clock::now() + timeout).has_value();
}

long long heldLines(std::string_view stats, std::string_view destination) {
    // "dst.http;d_tcp#0;http,http://...;a;processed;100": the last two fields are counter and value.
    long long held = 0;
    const std::string instance = std::string(destination) + "#";
    while (!stats.empty()) {
        const std::string_view line = stats.substr(0, stats.find('\n'));
        stats.remove_prefix(std::min(line.size() + 1, stats.size()));
        const size_t second = line.find(';') + 1;
        if (!line.starts_with("dst.") || second == 0 || !line.substr(second).starts_with(instance)) continue;
        const size_t last = line.rfind(';');
        const size_t counter = line.rfind(';', last - 1) + 1;
        const std::string_view name = line.substr(counter, last - counter);
        long long value = 0;
        if (std::from_chars(line.data() + last + 1, line.data() + line.size(), value).ec != std::errc()) continue;
        if (name == "processed") held += value;
        if (name == "written" || name == "dropped") held -= value;
    }
    return std::max(held, 0LL);
}

}  // namespace ombrel
