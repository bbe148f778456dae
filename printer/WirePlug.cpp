#include "printer/WirePlug.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

namespace veltrin::printer {

namespace {

/// Hosts that may wait for the printer; the system refuses more, or lets them knock in vain.
constexpr int waitingHosts = 4;

/// What the network may hold for the printer besides, so that a host soon feels that it takes nothing.
constexpr int networkBuffer = 16'384;

void setOption(int fd, int level, int name, int value) {
    // Without it the printer works all the same.
    static_cast<void>(setsockopt(fd, level, name, &value, sizeof value));
}

/// An address as the system writes it, in numbers.
ListenAddress addressIn(const sockaddr_storage &address, socklen_t size) {
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), size, host.data(), host.size(), port.data(),
                    port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return {};
    }
    const std::string text = std::string("[") + host.data() + "]:" + port.data();
    const auto found = parseListenAddress(
        std::strchr(host.data(), ':') != nullptr ? text : std::string(host.data()) + ":" + port.data());
    return found.value_or(ListenAddress());
}

/// A socket that listens at the address, or -1 with `errno` set.
int listeningSocket(const addrinfo &address) {
    const int fd = socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd == -1) {
        return -1;
    }
    setOption(fd, SOL_SOCKET, SO_REUSEADDR, 1); // the last printer's connections may linger
    setOption(fd, SOL_SOCKET, SO_RCVBUF, networkBuffer);
    if (address.ai_family == AF_INET6) {
        setOption(fd, IPPROTO_IPV6, IPV6_V6ONLY, 0); // "[::]" is for everybody
    }
    if (bind(fd, address.ai_addr, address.ai_addrlen) != 0 || ::listen(fd, waitingHosts) != 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

} // namespace

void WirePlug::Socket::reset(int with) {
    if (fd != -1) {
        ::close(fd);
    }
    fd = with;
}

WirePlug::WirePlug(VirtualPrinter &thePrinter, const PrinterClock &theClock, ListenAddress theAddress)
    : printer(thePrinter), clock(theClock), where(std::move(theAddress)) {}

WirePlug::~WirePlug() = default;

bool WirePlug::open(std::string &problem) {
    return listen(problem);
}

bool WirePlug::listen(std::string &problem) {
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    const int failure = getaddrinfo(where.host.c_str(), std::to_string(where.port).c_str(), &hints, &found);
    if (failure != 0) {
        problem = "cannot listen on " + textOf(where) + ": " + gai_strerror(failure);
        return false;
    }
    const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> addresses(found, freeaddrinfo);
    const int fd = listeningSocket(*addresses);
    if (fd == -1) {
        problem = "cannot listen on " + textOf(where) + ": " + std::strerror(errno) +
                  (errno == EADDRINUSE ? "; end the program that does, or choose another port" : "");
        return false;
    }
    listener.reset(fd);
    sockaddr_storage own{};
    socklen_t size = sizeof own;
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size) == 0) {
        where = addressIn(own, size);
    }
    printer.tell(now(), "listening on " + textOf(where));
    return true;
}

/// Does what is due.
bool WirePlug::act(std::string &problem) {
    end.advance(now());
    while (const auto deed = end.takeDeed()) {
        if (!perform(*deed, problem)) {
            return false;
        }
    }
    sendRecords();
    return true;
}

bool WirePlug::perform(WireDeed deed, std::string &problem) {
    switch (deed) {
    case WireDeed::close:
        hangUp(true);
        return true;
    case WireDeed::breakOff:
        hangUp(false);
        return true;
    case WireDeed::stopListening:
        listener.reset();
        return true;
    case WireDeed::listen:
        break;
    }
    return listener.isOpen() || listen(problem);
}

void WirePlug::hangUp(bool inOrder) {
    if (connection.isOpen() && !inOrder) {
        const linger atOnce{1, 0}; // the host gets a reset
        static_cast<void>(setsockopt(connection.get(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce));
    }
    connection.reset();
    unsent.clear();
}

void WirePlug::close() {
    listener.reset();
    hangUp(true);
}

// ---- A turn

PrinterTime WirePlug::turnLength() const {
    std::optional<PrinterTime> due = end.nextDue();
    // A host that does not read its records is waited for by poll().
    if (const auto record = end.nextRecordDue(); record && unsent.empty()) {
        due = std::min(due.value_or(*record), *record);
    }
    const PrinterTime until = now();
    return std::clamp(due.value_or(until + longestTurn) - until, PrinterTime(0), longestTurn);
}

void WirePlug::turn() {
    const auto wanted = [this] {
        const int in = end.room() != 0 ? POLLIN : 0;
        const int out = unsent.empty() ? 0 : POLLOUT;
        return static_cast<short>(in | out);
    };
    // Without anything wanted poll() would still report a connection that is lost, again and again.
    const bool isWanted = connection.isOpen() && wanted() != 0;
    std::array<pollfd, 2> sources{{{connection.isOpen() ? -1 : listener.get(), POLLIN, 0},
                                   {isWanted ? connection.get() : -1, isWanted ? wanted() : short{0}, 0}}};
    const PrinterTime length = turnLength();
    const timespec limit{0, std::chrono::nanoseconds(length).count()};
    if (ppoll(sources.data(), sources.size(), &limit, nullptr) <= 0) {
        return;
    }
    if (sources[0].revents != 0) {
        accept();
    }
    if ((sources[1].revents & POLLOUT) != 0) {
        write();
    }
    if ((sources[1].revents & ~POLLOUT) != 0 && connection.isOpen()) {
        read();
    }
}

void WirePlug::accept() {
    sockaddr_storage host{};
    socklen_t size = sizeof host;
    const int fd =
        accept4(listener.get(), reinterpret_cast<sockaddr *>(&host), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd == -1) {
        return; // it has thought better of it
    }
    setOption(fd, SOL_SOCKET, SO_KEEPALIVE, 1); // a host may go without a word
    connection.reset(fd);
    end.connected(textOf(addressIn(host, size)), now());
}

void WirePlug::read() {
    std::array<std::byte, WireEnd::lineBuffer> block{};
    const std::size_t room = std::min(end.room(), block.size());
    if (room == 0) {
        return;
    }
    const ssize_t got = recv(connection.get(), block.data(), room, 0);
    if (got > 0) {
        end.received(std::span(block).first(static_cast<std::size_t>(got)), now());
    } else if (got == 0) {
        end.hostEnded(now());
    } else if (errno != EAGAIN && errno != EINTR) {
        end.hostLost(now());
    }
}

/// One record at a time: what a host does not read must not pile up.
void WirePlug::sendRecords() {
    while (connection.isOpen() && unsent.empty()) {
        auto record = end.takeRecord();
        if (!record) {
            return;
        }
        unsent = std::move(*record);
        write();
    }
}

void WirePlug::write() {
    const ssize_t sent = send(connection.get(), unsent.data(), unsent.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
        unsent.erase(unsent.begin(), unsent.begin() + sent);
    } else if (errno != EAGAIN && errno != EINTR) {
        unsent.clear(); // reading will tell that the host is lost
    }
}

} // namespace veltrin::printer
