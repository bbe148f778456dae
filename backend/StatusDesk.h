#pragma once

#include "status/ReverseRecord.h"

#include <chrono>
#include <cstddef>
#include <optional>
#include <span>

namespace veltrin::backend {

using Time = std::chrono::steady_clock::time_point;

/// What becomes of a filter's request for a status record.
enum class Answer {
    now, ///< with the newest record
    later,
    never,
    askAgain, ///< with something that is no record, upon which a filter asks anew
};

/// A request, by when things happened.
struct StatusRequest {
    Time asked{};
    std::optional<Time> sent = {}; ///< all that the filter had sent before; nothing while some is on its way
    std::optional<Time> record = {}; ///< the newest one
    bool hasSeenConnecting = false;  ///< the device's backend was still connecting while it waited
    bool isUrgent = false;           ///< whoever asked has no time to wait
};

/// Whether the newest record answers the request.
///
/// A filter goes by what the record says is free, and counts what it sends from then on. So the record is to
/// be one that came after everything that was sent before the request. Where the device does not take that,
/// the record says why: it is given when the filter will not wait much longer. A device that lives says
/// something all the time, so that a record which is old already is not worth anything.
///
/// A filter that gets no answer tells people that the printer does not speak, until the job is cancelled. It
/// is kept from that while there is no connection yet by which the printer could.
[[nodiscard]] Answer answerTo(const StatusRequest &request, Time now);

/// Gives the newest record to those who ask for it, once it is new enough.
class StatusDesk {
  public:
    void takeRecord(const ReverseRecord &record, Time now);

    /// Something goes to the device.
    void noteSending() { sent.reset(); }

    /// Everything has gone there.
    void noteSent(Time now) { sent = now; }

    /// Another request takes the place of one that is not answered yet.
    void ask(Time now) {
        asked = now;
        hasSeenConnecting = isConnecting;
    }

    /// Whether the device's backend says that it is connecting.
    void setConnecting(bool isSo) {
        isConnecting = isSo;
        hasSeenConnecting = hasSeenConnecting || isSo;
    }

    [[nodiscard]] bool isDeviceConnecting() const { return isConnecting; }

    /// Lets whoever is asking, or asks next, not wait.
    void hurry() { isUrgent = true; }

    /// Whoever asked has gone.
    void forgetRequest() { asked.reset(); }

    /// The bytes of the answer, if somebody waits for it and it is due; valid until the next record.
    [[nodiscard]] std::optional<std::span<const std::byte>> takeAnswer(Time now);

  private:
    std::optional<Time> asked;
    std::optional<Time> sent = Time::min();
    std::optional<Time> recordTime;
    ReverseRecord newest{};
    bool isConnecting = false;
    bool hasSeenConnecting = false;
    bool isUrgent = false;
};

} // namespace veltrin::backend
