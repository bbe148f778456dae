#include "tests/support/TcpClient.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace veltrin::test {

namespace {

/// The system keeps about twice as much. Where nothing is taken, that shows soon.
constexpr int sendBuffer = 16'384;

bool connectTo(int fd, const char *address, std::uint16_t port) {
    if (std::strchr(address, ':') != nullptr) {
        sockaddr_in6 there{};
        there.sin6_family = AF_INET6;
        there.sin6_port = htons(port);
        inet_pton(AF_INET6, address, &there.sin6_addr);
        return connect(fd, reinterpret_cast<const sockaddr *>(&there), sizeof there) == 0;
    }
    sockaddr_in there{};
    there.sin_family = AF_INET;
    there.sin_port = htons(port);
    inet_pton(AF_INET, address, &there.sin_addr);
    return connect(fd, reinterpret_cast<const sockaddr *>(&there), sizeof there) == 0;
}

} // namespace

TcpClient::TcpClient(std::uint16_t port, const char *address)
    : fd(socket(std::strchr(address, ':') != nullptr ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &sendBuffer, sizeof sendBuffer);
    // To a port of this machine that is at once or never.
    connected = connectTo(fd, address, port);
    fcntl(fd, F_SETFL, O_NONBLOCK);
}

TcpClient::~TcpClient() {
    close(fd);
}

void TcpClient::work() {
    if (!connected || isClosed()) {
        return;
    }
    while (!queued.empty()) {
        const ssize_t size = ::send(fd, queued.data(), queued.size(), MSG_NOSIGNAL);
        if (size < 0) {
            noteFailure();
            break;
        }
        queued.erase(0, static_cast<std::size_t>(size));
        sentBytes += static_cast<std::uint64_t>(size);
    }
    if (queued.empty() && std::exchange(finishes, false)) {
        shutdown(fd, SHUT_WR);
    }
    std::array<char, 4096> block{};
    ssize_t size = 0;
    while ((size = recv(fd, block.data(), block.size(), 0)) > 0) {
        received.append(block.data(), static_cast<std::size_t>(size));
    }
    if (size == 0) {
        closed = true;
    } else {
        noteFailure();
    }
}

void TcpClient::noteFailure() {
    reset = reset || (errno != EAGAIN && errno != EINTR);
}

} // namespace veltrin::test
