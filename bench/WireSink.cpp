#include "bench/WireSink.h"

#include "status/ReverseRecord.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

namespace veltrin::bench {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds recordInterval{500};
constexpr std::size_t bufferSize = std::size_t{256} * 1024;

[[noreturn]] void give(const char *what) {
    throw std::system_error(errno, std::generic_category(), what);
}

ReverseRecord readyRecord() {
    ReverseRecord record{};
    record.dwFlag = reverseRecordTag;
    record.dwHeaderRemainMemory = 4'000'000'000;
    record.dwImageRemainMemory = 4'000'000'000;
    return record;
}

/// A connection, until the end of the scope.
class Connection {
  public:
    explicit Connection(int listener) : descriptor(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC)) {
        if (descriptor == -1) {
            give("accept");
        }
    }

    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    ~Connection() { close(descriptor); }

    const int descriptor;
};

} // namespace

WireSink::WireSink() : listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *const generic = reinterpret_cast<sockaddr *>(&address);
    if (listener == -1 || bind(listener, generic, length) != 0 || listen(listener, 1) != 0 ||
        getsockname(listener, generic, &length) != 0) {
        give("no port to listen on");
    }
    port = ntohs(address.sin_port);
}

WireSink::~WireSink() {
    close(listener);
}

std::string WireSink::uri() const {
    return "socket://127.0.0.1:" + std::to_string(port) + "/?snmp=false";
}

WireSink::Taken WireSink::takeJob() const {
    const Connection connection(listener);
    const ReverseRecord record = readyRecord();
    std::vector<char> buffer(bufferSize);
    Taken taken;
    steady_clock::time_point first;
    steady_clock::time_point last;
    steady_clock::time_point nextRecord;
    for (;;) {
        pollfd watched = {connection.descriptor, POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(recordInterval.count())) < 0) {
            give("poll");
        }
        const auto now = steady_clock::now();
        if (taken.bytes > 0 && now >= nextRecord) {
            // Whoever does not read them has no use for them.
            static_cast<void>(
                send(connection.descriptor, &record, sizeof record, MSG_DONTWAIT | MSG_NOSIGNAL));
            nextRecord = now + recordInterval;
        }
        if (watched.revents == 0) {
            continue;
        }
        const ssize_t got = recv(connection.descriptor, buffer.data(), buffer.size(), 0);
        if (got <= 0) {
            break;
        }
        if (taken.bytes <= commandBytes) {
            first = now;
        }
        taken.bytes += static_cast<std::uint64_t>(got);
        last = steady_clock::now();
    }
    taken.time = last - first;
    return taken;
}

} // namespace veltrin::bench
