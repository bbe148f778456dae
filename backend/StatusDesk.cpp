#include "backend/StatusDesk.h"

#include <string_view>

namespace veltrin::backend {

namespace {

using namespace std::chrono_literals;

/// How old a record may be when it is asked for. Devices send one a second at least.
constexpr auto recordLifetime = 2s;

/// How long a request waits for what was sent before it to reach the device.
constexpr auto sendingPatience = 4s;

/// How long it may wait at all: the filter gives up after six seconds, and a later answer would be taken for
/// that to its next request.
constexpr auto requestLifetime = 5500ms;

/// How long it waits at a device that is not connected yet.
constexpr auto connectingPatience = 2s;

/// Not empty, as that would count as no answer, and without the tag of a record.
constexpr std::string_view noRecord = "not connected yet";

} // namespace

Answer answerTo(const StatusRequest &request, Time now) {
    if (now - request.asked > requestLifetime) {
        return Answer::never;
    }
    const bool isTurnedBack =
        request.isUrgent || (request.hasSeenConnecting && now - request.asked >= connectingPatience);
    const Answer withoutRecord = isTurnedBack ? Answer::askAgain : Answer::later;
    if (!request.record) {
        return withoutRecord;
    }
    const bool isNewEnough =
        request.sent ? *request.record >= *request.sent && *request.record + recordLifetime >= request.asked
                     : now - request.asked >= sendingPatience && *request.record >= request.asked;
    return isNewEnough ? Answer::now : withoutRecord;
}

void StatusDesk::takeRecord(const ReverseRecord &record, Time now) {
    newest = record;
    recordTime = now;
}

std::optional<std::span<const std::byte>> StatusDesk::takeAnswer(Time now) {
    const Answer answer = asked ? answerTo({.asked = *asked,
                                            .sent = sent,
                                            .record = recordTime,
                                            .hasSeenConnecting = hasSeenConnecting,
                                            .isUrgent = isUrgent},
                                           now)
                                : Answer::later;
    if (answer == Answer::later) {
        return std::nullopt;
    }
    asked.reset();
    isUrgent = false;
    switch (answer) {
    case Answer::now:
        return std::as_bytes(std::span(&newest, 1));
    case Answer::askAgain:
        return std::as_bytes(std::span(noRecord));
    default:
        return std::nullopt;
    }
}

} // namespace veltrin::backend
