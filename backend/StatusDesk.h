#pragma once

#include "status/ReverseRecord.h"

#include <chrono>
#include <optional>

namespace veltrin::backend {

using Time = std::chrono::steady_clock::time_point;

/// What becomes of a filter's request for a status record.
enum class Answer { now, later, never };

/// A request, by when things happened.
struct StatusRequest {
    Time asked;
    std::optional<Time> sent;   ///< all that the filter had sent before; nothing while some is on its way
    std::optional<Time> record; ///< the newest one
};

/// Whether the newest record answers the request.
///
/// A filter goes by what the record says is free, and counts what it sends from then on. So the record is to
/// be one that came after everything that was sent before the request. Where the device does not take that,
/// the record says why: it is given when the filter will not wait much longer. A device that lives says
/// something all the time, so that a record which is old already is not worth anything.
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
    void ask(Time now) { asked = now; }

    /// Whoever asked has gone.
    void forgetRequest() { asked.reset(); }

    /// The answer, if somebody waits for it and it is due.
    [[nodiscard]] std::optional<ReverseRecord> takeAnswer(Time now);

  private:
    std::optional<Time> asked;
    std::optional<Time> sent = Time::min();
    std::optional<Time> recordTime;
    ReverseRecord newest{};
};

} // namespace veltrin::backend
