#include "backend/StatusDesk.h"

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

} // namespace

Answer answerTo(const StatusRequest &request, Time now) {
    if (now - request.asked > requestLifetime) {
        return Answer::never;
    }
    if (!request.record) {
        return Answer::later;
    }
    const bool isNewEnough =
        request.sent ? *request.record >= *request.sent && *request.record + recordLifetime >= request.asked
                     : now - request.asked >= sendingPatience && *request.record >= request.asked;
    return isNewEnough ? Answer::now : Answer::later;
}

void StatusDesk::takeRecord(const ReverseRecord &record, Time now) {
    newest = record;
    recordTime = now;
}

std::optional<ReverseRecord> StatusDesk::takeAnswer(Time now) {
    const Answer answer =
        asked ? answerTo({.asked = *asked, .sent = sent, .record = recordTime}, now) : Answer::later;
    if (answer == Answer::later) {
        return std::nullopt;
    }
    asked.reset();
    return answer == Answer::now ? std::optional(newest) : std::nullopt;
}

} // namespace veltrin::backend
