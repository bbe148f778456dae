#include "platform/linux/NotificationMessage.h"

#include "platform/linux/BusHandles.h"

#include <unistd.h>

#include <cstring>
#include <string_view>
#include <utility>

namespace veltrin::platform {

namespace {

constexpr const char *argumentTypes = "sva{sv}";
constexpr const char *dataKey = "data";

int appendVariantBlock(sd_bus_message *message, std::span<const std::byte> block) {
    if (const int result = sd_bus_message_open_container(message, SD_BUS_TYPE_VARIANT, "ay"); result < 0) {
        return result;
    }
    if (const int result = sd_bus_message_append_array(message, SD_BUS_TYPE_BYTE, block.data(), block.size());
        result < 0) {
        return result;
    }
    return sd_bus_message_close_container(message);
}

int appendVariantMemoryFile(sd_bus_message *message, std::span<const std::byte> block) {
    const int descriptor = makeSealedMemory(block);
    if (descriptor < 0) {
        return descriptor;
    }
    const int result = sd_bus_message_append(message, "v", "h", descriptor); // duplicates the descriptor
    close(descriptor);
    return result;
}

int appendUserInfo(sd_bus_message *message, std::span<const std::byte> block) {
    int result = sd_bus_message_open_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv");
    if (result >= 0) {
        result = sd_bus_message_append(message, "s", dataKey);
    }
    if (result >= 0) {
        result = block.size() < memoryFileThreshold ? appendVariantBlock(message, block)
                                                    : appendVariantMemoryFile(message, block);
    }
    return result >= 0 ? sd_bus_message_close_container(message) : result;
}

/// Reads the variant that comes next where it is a text, and skips it where it is anything else. Returns a
/// negative error number where it cannot be read.
int readObject(sd_bus_message *message, std::optional<std::string> &object) {
    const char *contents = nullptr;
    if (const int result = sd_bus_message_peek_type(message, nullptr, &contents); result < 0) {
        return result;
    }
    if (std::string_view(contents) != "s") {
        return sd_bus_message_skip(message, "v");
    }
    const char *text = nullptr;
    const int result = sd_bus_message_read(message, "v", "s", &text);
    if (result >= 0) {
        object = text;
    }
    return result;
}

/// Reads the variant under "data". Returns false with `problem` set where it holds no block.
bool readData(sd_bus_message *message, ReceivedNotification &received, std::string &problem) {
    const char *contents = nullptr;
    if (sd_bus_message_peek_type(message, nullptr, &contents) < 0) {
        problem = "its data cannot be read";
        return false;
    }
    if (std::string_view(contents) == "ay") {
        const void *bytes = nullptr;
        std::size_t size = 0;
        if (sd_bus_message_enter_container(message, SD_BUS_TYPE_VARIANT, "ay") < 0 ||
            sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &bytes, &size) < 0 ||
            sd_bus_message_exit_container(message) < 0) {
            problem = "its data cannot be read";
            return false;
        }
        received.notification.data.emplace(static_cast<const std::byte *>(bytes), size);
        return true;
    }
    if (std::string_view(contents) == "h") {
        int descriptor = -1; // remains the message's
        if (sd_bus_message_read(message, "v", "h", &descriptor) < 0) {
            problem = "its data cannot be read";
            return false;
        }
        if (std::optional<SealedMemory> memory = SealedMemory::map(descriptor)) {
            received.memory.emplace(std::move(*memory));
            received.notification.data = received.memory->bytes();
            return true;
        }
        problem = "its data is a descriptor, but not of sealed memory";
        return false;
    }
    problem = std::string("its data has the type \"") + contents + "\"";
    return false;
}

/// Reads one entry of the user info, of which only "data" counts. Returns false with `problem` set where it
/// cannot be used.
bool readEntry(sd_bus_message *message, ReceivedNotification &received, std::string &problem) {
    const char *key = nullptr;
    if (sd_bus_message_read(message, "s", &key) < 0) {
        problem = "its user info cannot be read";
        return false;
    }
    if (std::strcmp(key, dataKey) == 0) {
        return readData(message, received, problem);
    }
    if (sd_bus_message_skip(message, "v") < 0) {
        problem = "its user info cannot be read";
        return false;
    }
    return true;
}

bool readUserInfo(sd_bus_message *message, ReceivedNotification &received, std::string &problem) {
    problem = "its user info cannot be read";
    if (sd_bus_message_enter_container(message, SD_BUS_TYPE_ARRAY, "{sv}") < 0) {
        return false;
    }
    while (true) {
        const int entered = sd_bus_message_enter_container(message, SD_BUS_TYPE_DICT_ENTRY, "sv");
        if (entered == 0) {
            return sd_bus_message_exit_container(message) >= 0;
        }
        if (entered < 0 || !readEntry(message, received, problem) ||
            sd_bus_message_exit_container(message) < 0) {
            return false;
        }
    }
}

} // namespace

bool canCarryText(sd_bus *bus, const std::string &text) {
    sd_bus_message *raw = nullptr;
    if (sd_bus_message_new_signal(bus, &raw, "/", notificationInterface, notificationMember) < 0) {
        return false;
    }
    const BusMessage message(raw);
    const char *carried = nullptr;
    return sd_bus_message_append(raw, "s", text.c_str()) >= 0 && sd_bus_message_seal(raw, 1, 0) >= 0 &&
           sd_bus_message_rewind(raw, 1) >= 0 && sd_bus_message_read(raw, "s", &carried) > 0 &&
           carried == text;
}

int appendNotification(sd_bus_message *message, const std::string &name, const std::string &object,
                       std::optional<std::span<const std::byte>> data) {
    int result = sd_bus_message_append(message, "sv", name.c_str(), "s", object.c_str());
    if (result >= 0) {
        result = sd_bus_message_open_container(message, SD_BUS_TYPE_ARRAY, "{sv}");
    }
    if (result >= 0 && data) {
        result = appendUserInfo(message, *data);
    }
    return result >= 0 ? sd_bus_message_close_container(message) : result;
}

std::optional<std::string> objectOf(sd_bus_message *message) {
    std::optional<std::string> object;
    if (sd_bus_message_has_signature(message, argumentTypes) <= 0 || sd_bus_message_rewind(message, 1) < 0 ||
        sd_bus_message_skip(message, "s") < 0 || readObject(message, object) < 0) {
        return std::nullopt;
    }
    return object;
}

std::optional<ReceivedNotification> readNotification(sd_bus_message *message, std::string &problem) {
    if (sd_bus_message_has_signature(message, argumentTypes) <= 0 || sd_bus_message_rewind(message, 1) < 0) {
        problem = "its arguments are not those of a notification";
        return std::nullopt;
    }
    ReceivedNotification received;
    const char *name = nullptr;
    if (sd_bus_message_read(message, "s", &name) < 0 ||
        readObject(message, received.notification.object) < 0) {
        problem = "its name and object cannot be read";
        return std::nullopt;
    }
    received.name = name;
    if (!readUserInfo(message, received, problem)) {
        return std::nullopt;
    }
    return received;
}

int answerAsTaken(sd_bus_message *message) {
    return sd_bus_message_get_expect_reply(message) > 0 ? sd_bus_reply_method_return(message, "") : 0;
}

void answerWithError(sd_bus_message *message, const char *error, const std::string &reason) {
    if (sd_bus_message_get_expect_reply(message) > 0) {
        static_cast<void>(sd_bus_reply_method_errorf(message, error, "%s", reason.c_str()));
    }
}

} // namespace veltrin::platform
