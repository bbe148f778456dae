#pragma once

#include <string>
#include <vector>

namespace veltrin::test {

/// Switches the debug log on for the life of the object, in the private /tmp, and reads back what was
/// written.
class CapturedLog {
  public:
    CapturedLog();
    CapturedLog(const CapturedLog &) = delete;
    CapturedLog &operator=(const CapturedLog &) = delete;
    ~CapturedLog();

    /// The messages since construction or the last `clear()`, without time and process id; a failure report
    /// keeps its "ASSERT: ".
    [[nodiscard]] std::vector<std::string> messages() const;

    void clear();
};

/// The messages in the text of a debug log, without time and process id. A line that does not begin with the
/// two is kept whole.
[[nodiscard]] std::vector<std::string> messagesOf(const std::string &log);

} // namespace veltrin::test
