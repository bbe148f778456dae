#pragma once

#include "printer/PrinterModel.h"

#include <chrono>
#include <string>

namespace veltrin::printer {

/// How often a plug looks at everything else when nothing comes in.
inline constexpr PrinterTime longestTurn = std::chrono::milliseconds(100);

/// The time since the printer was switched on.
class PrinterClock {
  public:
    [[nodiscard]] PrinterTime now() const {
        return std::chrono::duration_cast<PrinterTime>(std::chrono::steady_clock::now() - switchedOn);
    }

  private:
    std::chrono::steady_clock::time_point switchedOn = std::chrono::steady_clock::now();
};

/// By what a printer is reached: a filter's channel, or a wire. It brings the printer what comes in, and
/// sends what the printer has to say.
class Plug {
  public:
    Plug() = default;
    Plug(const Plug &) = delete;
    Plug &operator=(const Plug &) = delete;
    virtual ~Plug() = default;

    /// Makes the printer one that can be reached. Returns false, with `problem` set, where that cannot be.
    [[nodiscard]] virtual bool open(std::string &problem) = 0;

    /// Does what is due. Returns false, with `problem` set, where the printer can be reached no more.
    [[nodiscard]] virtual bool act(std::string &problem) = 0;

    /// It has vanished for good, as its scenario says.
    [[nodiscard]] virtual bool isGone() const = 0;

    /// Waits for what comes in, for `longestTurn` at most and not beyond what is due, and takes it.
    virtual void turn() = 0;

    /// Takes leave of whoever is still there.
    virtual void close() = 0;
};

} // namespace veltrin::printer
