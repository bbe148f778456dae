// What a device's backend says, on its back channel and in its lines. The input: a byte for what is read, one
// for how it is cut, and the bytes.

#include "backend/DeviceLine.h"
#include "backend/DeviceMessage.h"
#include "backend/DeviceUri.h"
#include "backend/LineSplitter.h"
#include "backend/RecordSearch.h"
#include "backend/StateKeywords.h"
#include "backend/TonerLevels.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::fuzz {

namespace {

constexpr std::string_view tag = "GDIR";
constexpr std::size_t recordSize = 64;

std::string_view textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

std::string textOf(const ReverseRecord &record) {
    std::string text(sizeof record, '\0');
    std::memcpy(text.data(), &record, sizeof record);
    return text;
}

/// Hands over the bytes in pieces.
template <typename Take>
void inPieces(std::span<const std::byte> bytes, std::size_t piece, Take take) {
    while (!bytes.empty()) {
        const auto next = bytes.first(std::min(piece, bytes.size()));
        take(next);
        bytes = bytes.subspan(next.size());
    }
}

void searchRecords(std::span<const std::byte> bytes, std::size_t piece) {
    backend::RecordSearch search;
    std::optional<ReverseRecord> before;
    inPieces(bytes, piece, [&](std::span<const std::byte> next) {
        const auto record = search.take(next);
        if (!record) {
            return;
        }
        const std::string text = textOf(*record);
        require(text.starts_with(tag), "a record begins with its tag");
        require(textOf(bytes).find(text) != std::string_view::npos, "a record is one that has come, whole");
        require(text.find(tag, 1) == std::string::npos, "no record holds the beginning of another");
        require(backend::tonerLines(before, *record).size() <= 6, "the toner is told of in few lines");
        for (const std::string &line : backend::stateLines(std::nullopt, backend::stateKeywords(*record))) {
            require(line.starts_with("STATE: ") && line.find('\n') == std::string::npos,
                    "the printer's state is told of in lines of its kind");
        }
        require(backend::stateLines(backend::stateKeywords(*record), backend::stateKeywords(*record)).empty(),
                "what has not changed is not told of again");
        before = *record;
    });
    // However it has come: a whole record that follows is found.
    const std::string whole = std::string(tag) + std::string(recordSize - tag.size(), '\1');
    const auto found = search.take(std::as_bytes(std::span(whole)));
    require(found && textOf(*found) == whole, "whatever came before, a whole record is found");
}

void splitLines(std::span<const std::byte> bytes, std::size_t piece) {
    std::string joined;
    backend::LineSplitter splitter([&](const std::string &line) {
        require(line.find('\n') == std::string::npos, "a line has no end inside");
        require(line.size() <= backend::LineSplitter::longestLine, "a line is not too long");
        joined += line;
        if (const auto passed = backend::passedOn(line)) {
            require(passed->find('\n') == std::string::npos, "a line is passed on as one");
            for (const auto keyword : backend::allStateKeywords()) {
                require(!backend::keywordIn(*passed, keyword).value_or(false),
                        "what the records tell of is not told of twice");
            }
            require(backend::passedOn(*passed) == passed, "what was passed on may be passed on");
        }
        static_cast<void>(backend::connectingIn(line));
    });
    inPieces(bytes, piece, [&](std::span<const std::byte> next) { splitter.take(next); });
    splitter.finish();
    std::string expected(textOf(bytes));
    std::erase(expected, '\n');
    require(joined == expected, "the lines are what was written");
}

std::string quoted(const std::string &word) {
    std::string text = "\"";
    for (const char character : word) {
        if (character == '"' || character == '\\') {
            text += '\\';
        }
        text += character;
    }
    return text + "\"";
}

void readDeviceLine(std::string_view line) {
    const auto device = backend::parseDeviceLine(line);
    if (!device) {
        return;
    }
    std::string again;
    for (const std::string *word : {&device->deviceClass, &device->uri, &device->makeAndModel, &device->info,
                                    &device->id, &device->location}) {
        again += quoted(*word) + " ";
    }
    require(backend::parseDeviceLine(again) == device, "a device's line is read as it would be written");
    static_cast<void>(backend::isOneOfOurs(device->id));
    static_cast<void>(backend::hasBackChannel(device->uri));
}

void readUri(std::string_view uri) {
    std::string problem;
    const auto device = backend::parseDeviceUri(uri, problem);
    require(device.has_value() == problem.empty(), "a URI that is refused has something wrong");
    if (device) {
        require(backend::uriForDevice(device->device) == uri, "a device's URI is the rest of the queue's");
        require(device->scheme.find('/') == std::string::npos && device->scheme.front() != '.',
                "a scheme leads to no other folder");
    }
    const std::string shown = backend::withoutCredentials(uri);
    require(shown.size() <= uri.size(), "nothing is added where something is hidden");
    const std::size_t authority = shown.find("://");
    if (authority != std::string::npos && authority == uri.find("://")) {
        const std::string_view rest = std::string_view(shown).substr(authority + 3);
        require(rest.substr(0, rest.find_first_of("/?#")).find('@') == std::string_view::npos,
                "no name and no password is shown");
    }
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t what = input.byte() % 4;
    const std::size_t piece = std::size_t{input.byte()} + 1;
    const auto bytes = input.remaining();
    if (what == 0) {
        searchRecords(bytes, piece);
    } else if (what == 1) {
        splitLines(bytes, piece);
    } else if (what == 2) {
        readDeviceLine(textOf(bytes));
    } else {
        readUri(textOf(bytes));
    }
    return 0;
}
