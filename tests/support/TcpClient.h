#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace veltrin::test {

/// A host of a device on this machine's TCP. It never waits: `work()` moves what can be moved.
class TcpClient {
  public:
    /// Connects to the port, at "127.0.0.1" or "::1".
    explicit TcpClient(std::uint16_t port, const char *address = "127.0.0.1");
    TcpClient(const TcpClient &) = delete;
    TcpClient &operator=(const TcpClient &) = delete;
    ~TcpClient();

    [[nodiscard]] bool isConnected() const { return connected; }

    /// Queues bytes, which `work()` sends.
    void send(std::string_view bytes) { queued += bytes; }

    /// Says that there is no more to come, once everything is sent.
    void finish() { finishes = true; }

    /// Sends what the device takes, and receives what it has sent.
    void work();

    [[nodiscard]] std::uint64_t sent() const { return sentBytes; }

    [[nodiscard]] bool hasSentAll() const { return queued.empty(); }

    /// The device has closed the connection, in order or not.
    [[nodiscard]] bool isClosed() const { return closed || reset; }

    [[nodiscard]] bool isReset() const { return reset; }

    std::string received;

  private:
    void noteFailure();

    int fd = -1;
    std::string queued;
    std::uint64_t sentBytes = 0;
    bool connected = false;
    bool finishes = false;
    bool closed = false;
    bool reset = false;
};

} // namespace veltrin::test
