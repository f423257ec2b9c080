#include "QLSDKCoreKit/platform/linux/testing/TlsServer.h"

#include <cerrno>
#include <cstdlib>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qlsdk::platform::testing_support {

namespace {

// The server's writes to a connection that the session has cut must not look like the session's own.
void blockPipeSignal() {
    sigset_t pipe;
    sigemptyset(&pipe);
    sigaddset(&pipe, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
}

std::size_t bodyLength(const std::string& head) {
    constexpr std::string_view kField = "\r\nContent-Length: ";
    const std::size_t at = head.find(kField);
    return at == std::string::npos ? 0 : std::strtoul(head.c_str() + at + kField.size(), nullptr, 10);
}

void makeCloseReset(int socket) {
    const linger now{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &now, sizeof now);
}

}  // namespace

std::string Connection::readRequest() {
    std::string request;
    std::size_t wanted = 0;
    while (wanted == 0 || request.size() < wanted) {
        char buffer[4096];
        const int count = SSL_read(tls_, buffer, sizeof buffer);
        if (count <= 0) return {};
        request.append(buffer, static_cast<std::size_t>(count));
        const std::size_t end = request.find("\r\n\r\n");
        if (end != std::string::npos) wanted = end + 4 + bodyLength(request.substr(0, end + 2));
    }
    return request;
}

std::string Connection::readExactly(std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t done = 0;
    while (done < size) {
        const int count = SSL_read(tls_, bytes.data() + done, static_cast<int>(size - done));
        if (count <= 0) break;
        done += static_cast<std::size_t>(count);
    }
    bytes.resize(done);
    return bytes;
}

bool Connection::write(std::string_view bytes) {
    return SSL_write(tls_, bytes.data(), static_cast<int>(bytes.size())) > 0;
}

void Connection::waitForPeer() {
    char byte = 0;
    while (recv(socket_, &byte, 1, 0) > 0) {
    }
}

bool Connection::staysFor(std::chrono::milliseconds time) {
    pollfd left{socket_, POLLRDHUP, 0};
    return poll(&left, 1, static_cast<int>(time.count())) == 0;
}

void Connection::resetOnClose() {
    makeCloseReset(socket_);
}

TlsServer::TlsServer(std::shared_ptr<SSL_CTX> context, Script script, Handshake handshake, Start start)
    : context_(std::move(context)), script_(std::move(script)), handshake_(handshake) {
    listener_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(listener_, reinterpret_cast<const sockaddr*>(&address), size);
    listen(listener_, SOMAXCONN);
    getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
    port_ = ntohs(address.sin_port);
    if (start == Start::now) this->start();
}

void TlsServer::start() {
    acceptor_ = std::thread([this] { accept(); });
}

TlsServer::~TlsServer() {
    shutdown(listener_, SHUT_RDWR);
    if (acceptor_.joinable()) acceptor_.join();
    {
        const std::lock_guard lock(mutex_);
        for (const int socket : sockets_) shutdown(socket, SHUT_RDWR);
    }
    for (std::thread& thread : threads_) thread.join();
    for (const int socket : sockets_) close(socket);
    close(listener_);
}

void TlsServer::accept() {
    blockPipeSignal();
    for (;;) {
        const int socket = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket == -1 && errno == ECONNABORTED) continue;
        if (socket == -1) return;
        ++connections_;
        const std::lock_guard lock(mutex_);
        sockets_.push_back(socket);
        threads_.emplace_back([this, socket] { serve(socket); });
    }
}

void TlsServer::serve(int socket) {
    if (handshake_ == Handshake::answered) {
        serveTls(socket);
    } else if (handshake_ == Handshake::ignored) {
        Connection(socket, nullptr).waitForPeer();
    } else {
        char hello = 0;
        recv(socket, &hello, 1, 0);
        makeCloseReset(socket);
    }
    // Closed here, so that the peer learns of it; the number is given up only when nobody can use it any
    // more.
    const std::lock_guard lock(mutex_);
    std::erase(sockets_, socket);
    close(socket);
    ++closed_;
}

void TlsServer::serveTls(int socket) {
    const std::unique_ptr<SSL, decltype(&SSL_free)> tls(SSL_new(context_.get()), SSL_free);
    SSL_set_fd(tls.get(), socket);
    if (SSL_accept(tls.get()) != 1) return;
    Connection connection(socket, tls.get());
    script_(connection);
}

TlsServer::Script answering(std::string response) {
    return [response = std::move(response)](Connection& connection) {
        while (!connection.readRequest().empty() && connection.write(response)) {
        }
    };
}

}  // namespace qlsdk::platform::testing_support
