// A message that somebody sends on the bus. The input: a byte for its signature and one for its descriptors,
// and its body as it stands on the wire, or what becomes one.

#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "fuzz/Wire.h"
#include "platform/linux/BusHandles.h"
#include "platform/linux/NotificationMessage.h"
#include "platform/linux/SealedMemory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::fuzz {

namespace {

using platform::Bus;
using platform::BusMessage;

/// A call with this body. What is not the body is in order: a bus lets nothing else through.
std::string messageWith(std::string_view signature, std::string_view body, std::uint32_t descriptors,
                        std::uint32_t serial) {
    Wire fields;
    const auto field = [&fields](unsigned code, std::string_view type, auto write) {
        fields.align(8);
        fields.byte(code);
        fields.signature(type);
        write();
    };
    field(1, "o", [&] { fields.string("/x"); });
    field(3, "s", [&] { fields.string(platform::notificationMember); });
    field(2, "s", [&] { fields.string(platform::notificationInterface); });
    if (!signature.empty()) {
        field(8, "g", [&] { fields.signature(signature); });
    }
    field(9, "u", [&] { fields.number(descriptors); });

    Wire message;
    message.append("l\1"); // little-endian, a call
    message.byte(1);       // to which no answer is wanted
    message.byte(1);       // of the protocol's version
    message.number(static_cast<std::uint32_t>(body.size()));
    message.number(serial);
    message.number(static_cast<std::uint32_t>(fields.size()));
    message.append(fields.bytes());
    message.align(8);
    message.append(body);
    return message.bytes();
}

/// Two ends of a connection without a bus between them: one is the library's, the other a plain socket.
class Connection {
  public:
    Connection() {
        std::array<int, 2> ends{};
        require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0, "there are sockets");
        peer = ends[1];
        sd_bus *raw = nullptr;
        require(sd_bus_new(&raw) >= 0, "there is memory for a connection");
        bus.reset(raw);
        sd_id128_t id{};
        require(sd_bus_set_fd(raw, ends[0], ends[0]) >= 0 && sd_bus_set_server(raw, 1, id) >= 0 &&
                    sd_bus_negotiate_fds(raw, 1) >= 0 && sd_bus_start(raw) >= 0,
                "a connection begins");
        std::string hexadecimal;
        for (const char digit : std::to_string(geteuid())) {
            hexadecimal += '3';
            hexadecimal += digit;
        }
        const std::string greeting("\0AUTH EXTERNAL ", 15);
        send(greeting + hexadecimal + "\r\nNEGOTIATE_UNIX_FD\r\nBEGIN\r\n", {});
    }

    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    ~Connection() { close(peer); }

    /// What has come of the bytes; nothing where the library takes the connection from who sends them.
    [[nodiscard]] BusMessage receive() const {
        for (int turns = 0; turns < 20; ++turns) {
            sd_bus_message *message = nullptr;
            const int result = sd_bus_process(bus.get(), &message);
            if (result < 0) {
                return nullptr;
            }
            if (message != nullptr) {
                BusMessage received(message);
                if (sd_bus_message_is_method_call(message, nullptr, nullptr) > 0) {
                    return received;
                }
            }
            drain();
        }
        return nullptr;
    }

    void send(const std::string &bytes, const std::vector<int> &descriptors) const {
        std::array<char, CMSG_SPACE(8 * sizeof(int))> control{};
        iovec part = {const_cast<char *>(bytes.data()), bytes.size()};
        msghdr header{};
        header.msg_iov = &part;
        header.msg_iovlen = 1;
        if (!descriptors.empty()) {
            header.msg_control = control.data();
            header.msg_controllen = CMSG_SPACE(descriptors.size() * sizeof(int));
            cmsghdr *first = CMSG_FIRSTHDR(&header);
            first->cmsg_level = SOL_SOCKET;
            first->cmsg_type = SCM_RIGHTS;
            first->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
            std::memcpy(CMSG_DATA(first), descriptors.data(), descriptors.size() * sizeof(int));
        }
        require(sendmsg(peer, &header, MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()),
                "a message can be sent");
    }

    [[nodiscard]] sd_bus *library() const { return bus.get(); }

  private:
    /// Answers are nobody's business.
    void drain() const {
        std::array<char, 4096> room{};
        while (recv(peer, room.data(), room.size(), MSG_DONTWAIT) > 0) {
        }
    }

    Bus bus;
    int peer = -1;
};

constexpr auto signatures = std::to_array<const char *>(
    {"sva{sv}", "sva{sv}", "sva{sv}", "sva{sv}", "", "s", "sv", "svv", "ssa{sv}", "sva{ss}", "sva{sv}s"});

/// The descriptors that come along, by a byte: sealed memory, or something that only looks like it.
std::vector<int> descriptorsFor(std::uint8_t bits, const std::string &block) {
    std::vector<int> descriptors;
    if ((bits & 1U) != 0) {
        descriptors.push_back(platform::makeSealedMemory(std::as_bytes(std::span(block))));
    }
    if ((bits & 2U) != 0) {
        descriptors.push_back(memfd_create("unsealed", MFD_CLOEXEC | MFD_ALLOW_SEALING));
        require(ftruncate(descriptors.back(), 4096) == 0, "a file of memory has a size");
    }
    if ((bits & 4U) != 0) {
        descriptors.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    if ((bits & 8U) != 0) {
        descriptors.push_back(platform::makeSealedMemory({}));
    }
    return descriptors;
}

void requireSameAgain(sd_bus *bus, const platform::ReceivedNotification &received) {
    sd_bus_message *raw = nullptr;
    require(sd_bus_message_new_signal(bus, &raw, "/x", platform::notificationInterface,
                                      platform::notificationMember) >= 0,
            "there is memory for a message");
    const BusMessage message(raw);
    if (!received.notification.object) {
        return; // nobody sends such a one
    }
    require(platform::appendNotification(raw, received.name, *received.notification.object,
                                         received.notification.data) >= 0 &&
                sd_bus_message_seal(raw, 1, 0) >= 0,
            "what was read can be sent again");
    std::string problem;
    const auto again = platform::readNotification(raw, problem);
    require(again && again->name == received.name &&
                again->notification.object == received.notification.object &&
                again->notification.data.has_value() == received.notification.data.has_value(),
            "what was sent again is read as the same");
    require(!again->notification.data ||
                std::equal(again->notification.data->begin(), again->notification.data->end(),
                           received.notification.data->begin(), received.notification.data->end()),
            "so are its data");
}

/// Reads a message as the channel does, and back again. Returns whether it is a notification.
bool readMessage(sd_bus *bus, sd_bus_message *message, const std::string &block) {
    const auto object = platform::objectOf(message);
    std::string problem;
    const auto received = platform::readNotification(message, problem);
    require(received.has_value() || !problem.empty(), "a message that is refused has something wrong");
    require(!received || received->notification.object == object, "an object is the same, alone or not");
    if (!received) {
        return false;
    }
    require(!received->memory || received->memory->bytes().empty() ||
                std::equal(block.begin(), block.end(),
                           reinterpret_cast<const char *>(received->memory->bytes().data())),
            "memory that came along is that which was sent");
    require(platform::canCarryText(bus, received->name), "a name that has come can be sent");
    requireSameAgain(bus, *received);
    return true;
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const char *signature = signatures[input.byte() % signatures.size()];
    const std::uint8_t along = input.byte();
    const std::string body = input.remainingText();
    if (std::string_view(signature).empty() != body.empty()) {
        return 0; // a bus refuses that
    }
    static auto connection = std::make_unique<Connection>();
    static std::uint32_t serial = 0;
    const std::size_t before = openDescriptors();
    const std::string block = body.substr(0, 64) + "block";
    const std::vector<int> descriptors = descriptorsFor(along, block);
    connection->send(messageWith(signature, body, static_cast<std::uint32_t>(descriptors.size()), ++serial),
                     descriptors);
    std::for_each(descriptors.begin(), descriptors.end(), close);
    {
        const BusMessage message = connection->receive();
        if (message == nullptr) {
            connection = std::make_unique<Connection>(); // the library has ended it
            return 0;
        }
        static_cast<void>(readMessage(connection->library(), message.get(), block));
        require(readMessage(connection->library(), message.get(), block) ==
                    readMessage(connection->library(), message.get(), block),
                "a message is read as often as anybody likes");
    }
    require(openDescriptors() == before, "what came along is closed with the message");
    return 0;
}
