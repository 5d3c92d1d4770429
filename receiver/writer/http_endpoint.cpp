// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: the Ombrel authors
#include "receiver/writer/http_endpoint.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <map>
#include <new>
#include <string_view>
#include <utility>

#include "linux/common/fd.h"
#include "receiver/token.h"

namespace ombrel {

namespace {

constexpr unsigned kMaxConnections = 64;
constexpr unsigned kIdleSeconds = 300;
constexpr size_t kConnectionMemory = 512U << 10;  // one read() takes as much at most
constexpr size_t kMaxReceiverName = 32;

enum class RequestState { kReading, kWaiting, kAnswered, kSent, kDropped };

struct Request {
    BodyId id = 0;
    MHD_Connection* connection = nullptr;
    RequestState state = RequestState::kReading;
    std::string receiver;
    std::string body;
};

struct DaemonStop {
    void operator()(MHD_Daemon* daemon) const noexcept { MHD_stop_daemon(daemon); }
};
struct ResponseFree {
    void operator()(MHD_Response* response) const noexcept { MHD_destroy_response(response); }
};

bool isReceiverName(std::string_view name) noexcept {
    return !name.empty() && name.size() <= kMaxReceiverName &&
           name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-") == std::string_view::npos;
}

Fd listenOnLoopback(std::uint16_t port) {
    Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket) return {};
    const int on = 1;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // A restarted writer finds the connections of the one before it in TIME_WAIT.
    if (::setsockopt(socket.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        const int error = errno;
        socket.reset();
        errno = error;
    }
    return socket;
}

std::string_view header(MHD_Connection* connection, const char* name) {
    const char* const value = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
    return value != nullptr ? value : "";
}

std::uint64_t announcedLength(MHD_Connection* connection) {
    const std::string_view text = header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
    std::uint64_t length = 0;
    (void)std::from_chars(text.data(), text.data() + text.size(), length);  // 0 when it is not announced
    return length;
}

}  // namespace

struct HttpEndpoint::Impl {
    explicit Impl(BodyHandler& bodyHandler) : handler(bodyHandler) {}

    // The first call of a request, when its header is there. Null refuses it.
    Request* begin(MHD_Connection* connection, std::string_view url, std::string_view method);
    MHD_Result proceed(Request& request, const char* data, size_t* size);
    MHD_Result finish(Request& request);
    void settle(BodyId id, RequestState state);

    BodyHandler& handler;
    std::string authorization;
    BodyId lastId = 0;
    std::map<BodyId, Request> requests;
    Fd quiesced;
    std::uint16_t port = 0;
    std::unique_ptr<MHD_Response, ResponseFree> ok;
    std::unique_ptr<MHD_Daemon, DaemonStop> daemon;  // its end completes what is left in `requests`
};

Request* HttpEndpoint::Impl::begin(MHD_Connection* connection, std::string_view url, std::string_view method) {
    if (!sameToken(header(connection, MHD_HTTP_HEADER_AUTHORIZATION), authorization)) {
        handler.refused("a connection to the port of the receivers without the right token");
        return nullptr;
    }
    // From here on it is a receiver, which keeps its connection between two batches.
    (void)MHD_set_connection_option(connection, MHD_CONNECTION_OPTION_TIMEOUT, kIdleSeconds);
    const std::string_view name = url.empty() ? url : url.substr(1);
    if (method != MHD_HTTP_METHOD_POST || !isReceiverName(name)) {
        handler.refused("a request that is no batch: " + std::string(method) + " " + std::string(url));
        return nullptr;
    }
    const std::uint64_t length = announcedLength(connection);
    if (length > kMaxBody) {
        handler.refused("a batch of " + std::to_string(length) + " bytes, which is too large");
        return nullptr;
    }
    Request& request = requests[++lastId];
    request.id = lastId;
    request.connection = connection;
    request.receiver = name;
    request.body.reserve(length);
    return &request;
}

MHD_Result HttpEndpoint::Impl::finish(Request& request) {
    switch (request.state) {
        case RequestState::kReading:
            request.state = RequestState::kWaiting;
            MHD_suspend_connection(request.connection);
            handler.bodyArrived(request.id, request.receiver, std::move(request.body));
            return MHD_YES;
        case RequestState::kAnswered:
            request.state = RequestState::kSent;
            return MHD_queue_response(request.connection, MHD_HTTP_OK, ok.get());
        case RequestState::kDropped:
            return MHD_NO;
        case RequestState::kWaiting:
        case RequestState::kSent:
            break;
    }
    return MHD_YES;
}

MHD_Result HttpEndpoint::Impl::proceed(Request& request, const char* data, size_t* size) {
    if (*size == 0) return finish(request);
    if (request.body.size() + *size > kMaxBody) {
        handler.refused("a batch that is too large");
        return MHD_NO;
    }
    request.body.append(data, *size);
    *size = 0;
    return MHD_YES;
}

void HttpEndpoint::Impl::settle(BodyId id, RequestState state) {
    const auto found = requests.find(id);
    if (found == requests.end() || found->second.state != RequestState::kWaiting) return;
    found->second.state = state;
    MHD_resume_connection(found->second.connection);
}

namespace {

// Callbacks of a C library: no exception may leave them. A refused request is a closed connection.
MHD_Result onAccess(void* context, MHD_Connection* connection, const char* url, const char* method,
                    const char* /*version*/, const char* data, size_t* size, void** state) try {
    auto* const impl = static_cast<HttpEndpoint::Impl*>(context);
    if (*state == nullptr) {
        *state = impl->begin(connection, url, method);
        return *state != nullptr ? MHD_YES : MHD_NO;
    }
    return impl->proceed(*static_cast<Request*>(*state), data, size);
} catch (const std::bad_alloc&) {
    return MHD_NO;
}

void onCompleted(void* context, MHD_Connection* /*connection*/, void** state,
                 MHD_RequestTerminationCode /*code*/) {
    if (*state == nullptr) return;
    static_cast<HttpEndpoint::Impl*>(context)->requests.erase(static_cast<Request*>(*state)->id);
    *state = nullptr;
}

}  // namespace

HttpEndpoint::HttpEndpoint(BodyHandler& handler) : impl_(std::make_unique<Impl>(handler)) {
}

HttpEndpoint::~HttpEndpoint() {
    // The library wants every connection resumed before it ends.
    for (auto& [id, request] : impl_->requests)
        impl_->settle(id, RequestState::kDropped);
    if (impl_->daemon) run();
}

bool HttpEndpoint::start(std::uint16_t port, const std::string& token, unsigned strangerSeconds) {
    Fd socket = listenOnLoopback(port);
    if (!socket) return false;
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) return false;
    impl_->port = ntohs(address.sin_port);
    impl_->authorization = "Bearer " + token;
    impl_->ok.reset(MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT));
    errno = ENOMEM;  // what the library does not say
    if (!impl_->ok) return false;
    impl_->daemon.reset(MHD_start_daemon(
        MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME, 0, nullptr, nullptr, &onAccess, impl_.get(),
        MHD_OPTION_LISTEN_SOCKET, socket.get(), MHD_OPTION_CONNECTION_LIMIT, kMaxConnections,
        MHD_OPTION_CONNECTION_TIMEOUT, strangerSeconds, MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionMemory,
        MHD_OPTION_NOTIFY_COMPLETED, &onCompleted, impl_.get(), MHD_OPTION_END));
    if (!impl_->daemon) return false;
    (void)socket.release();  // closed with the daemon
    return true;
}

std::uint16_t HttpEndpoint::port() const noexcept {
    return impl_->port;
}

int HttpEndpoint::fd() const noexcept {
    const MHD_DaemonInfo* const info = MHD_get_daemon_info(impl_->daemon.get(), MHD_DAEMON_INFO_EPOLL_FD);
    return info != nullptr ? info->epoll_fd : -1;
}

std::optional<int> HttpEndpoint::nextTimeoutMs() const {
    // A resumed connection does not make the descriptor readable.
    for (const auto& [id, request] : impl_->requests) {
        if (request.state == RequestState::kAnswered || request.state == RequestState::kDropped) return 0;
    }
    MHD_UNSIGNED_LONG_LONG milliseconds = 0;
    if (MHD_get_timeout(impl_->daemon.get(), &milliseconds) != MHD_YES) return std::nullopt;
    return static_cast<int>(std::min<MHD_UNSIGNED_LONG_LONG>(milliseconds, 60'000));
}

void HttpEndpoint::run() {
    (void)MHD_run(impl_->daemon.get());  // fails only for a daemon with threads of its own
}

void HttpEndpoint::answer(BodyId id) {
    impl_->settle(id, RequestState::kAnswered);
}

void HttpEndpoint::drop(BodyId id) {
    impl_->settle(id, RequestState::kDropped);
}

void HttpEndpoint::stopListening() {
    impl_->quiesced.reset(MHD_quiesce_daemon(impl_->daemon.get()));
}

bool HttpEndpoint::hasUnsentAnswers() const noexcept {
    for (const auto& [id, request] : impl_->requests) {
        if (request.state == RequestState::kAnswered || request.state == RequestState::kSent) return true;
    }
    return false;
}

}  // namespace ombrel
