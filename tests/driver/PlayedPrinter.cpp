#include "tests/driver/PlayedPrinter.h"

#include "filter/Cancellation.h"

#include <algorithm>
#include <chrono>

namespace veltrin::test {

using namespace std::chrono_literals;

std::vector<std::byte> bytesOf(const std::string &text) {
    std::vector<std::byte> bytes;
    for (const char character : text) {
        bytes.push_back(std::byte(static_cast<unsigned char>(character)));
    }
    return bytes;
}

std::string textOf(const std::vector<std::byte> &bytes) {
    std::string text;
    for (const std::byte byte : bytes) {
        text += static_cast<char>(byte);
    }
    return text;
}

std::vector<std::byte> PrinterState::record() const {
    std::vector<std::byte> bytes(64);
    const auto put = [&bytes](std::size_t offset, std::uint32_t value) {
        bytes[offset] = std::byte(value & 0xFFU);
    };
    put(0, 'G');
    put(1, 'D');
    put(2, 'I');
    put(3, 'R');
    put(8, port);
    for (std::size_t i = 0; i < 4; ++i) {
        put(24 + i, headerMemory >> (24 - 8 * i));
        put(28 + i, imageMemory >> (24 - 8 * i));
    }
    put(36, status);
    put(37, sub1);
    put(48, 33); // paper types: bypass, tray 1, tray 2
    put(49, 11);
    put(50, 22);
    put(57, duplexUnit ? 0x80 : 0);
    return bytes;
}

PlayedPrinter::PlayedPrinter() {
    gSigTerm = 0;
    gSigPipe = 0;
    platform.fakeClock.now = 1000s;
    center().afterPost = [this](const FakeNotificationCenter::Post &post) {
        if (post.object == "fronted-alive" && backendPresent) {
            center().deliver("backend-alive");
        } else if (post.object == "readPipe") {
            answer();
        } else if (post.object == "writePipe") {
            received += textOf(post.data.value_or(std::vector<std::byte>()));
        }
    };
}

PlayedPrinter::~PlayedPrinter() {
    gSigTerm = 0;
    gSigPipe = 0;
}

void PlayedPrinter::cancelAfterSleeps(std::size_t count) {
    platform.fakeClock.afterSleep = [this, count] {
        if (platform.fakeClock.sleeps.size() >= count) {
            gSigTerm = 1;
        }
    };
}

std::vector<std::string> PlayedPrinter::postedObjects() {
    std::vector<std::string> objects;
    for (const auto &post : center().posts) {
        objects.push_back(post.object);
    }
    return objects;
}

long PlayedPrinter::readings() {
    const std::vector<std::string> objects = postedObjects();
    return std::count(objects.begin(), objects.end(), "readPipe");
}

} // namespace veltrin::test
