#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <openssl/ssl.h>

namespace qlsdk::platform::testing_support {

/// The server's end of one connection, for scripts that misbehave on purpose.
class Connection {
  public:
    Connection(int socket, SSL* tls) : socket_(socket), tls_(tls) {}

    /// One HTTP/1.1 request, headers and body as they came; empty when the peer is gone.
    [[nodiscard]] std::string readRequest();
    /// That many bytes; fewer when the peer is gone.
    [[nodiscard]] std::string readExactly(std::size_t size);
    /// False once the peer is gone.
    bool write(std::string_view bytes);
    /// Blocks until the peer closes or the server is destroyed.
    void waitForPeer();
    /// False when the peer closes within that time. Takes nothing of what it sends.
    [[nodiscard]] bool staysFor(std::chrono::milliseconds time);
    /// Makes closing send a reset instead of an orderly end.
    void resetOnClose();

  private:
    int socket_;
    SSL* tls_;
};

/// A TLS server on a loopback port, one thread for accepting and one per connection, that answers as its
/// script says. Clients may connect from the constructor on. The destructor cuts every connection and waits
/// for the threads.
class TlsServer {
  public:
    using Script = std::function<void(Connection&)>;
    /// What happens before the script gets a connection.
    enum class Handshake { answered, ignored, reset };

    /// A test that forks starts the server when its children are made: a child whose parent has another
    /// thread may find a lock of a library below taken for ever, a sanitizer's allocator's for one.
    enum class Start { now, later };

    TlsServer(std::shared_ptr<SSL_CTX> context, Script script, Handshake handshake = Handshake::answered,
              Start start = Start::now);
    ~TlsServer();
    TlsServer(const TlsServer&) = delete;
    TlsServer& operator=(const TlsServer&) = delete;

    /// Answers from now on. Once.
    void start();

    [[nodiscard]] std::string address() const { return "127.0.0.1:" + std::to_string(port_); }
    [[nodiscard]] int connections() const noexcept { return connections_; }
    /// How many connections the server has closed.
    [[nodiscard]] int closed() const noexcept { return closed_; }

  private:
    void accept();
    void serve(int socket);
    void serveTls(int socket);

    const std::shared_ptr<SSL_CTX> context_;
    const Script script_;
    const Handshake handshake_;
    int listener_ = -1;
    std::uint16_t port_ = 0;
    std::atomic<int> connections_{0};
    std::atomic<int> closed_{0};
    std::mutex mutex_;
    std::vector<int> sockets_;
    std::vector<std::thread> threads_;
    std::thread acceptor_;
};

/// A script that reads requests and answers each with the same bytes, as long as the peer stays.
[[nodiscard]] TlsServer::Script answering(std::string response);

}  // namespace qlsdk::platform::testing_support
