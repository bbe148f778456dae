#pragma once

#include "platform/Platform.h"
#include "tools/printer/JobReport.h"
#include "tools/printer/VirtualPrinter.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace veltrin {

/// From now on SIGTERM and SIGINT only make `endWanted()` true, and a closed pipe is a failed write.
void catchEndSignals();

[[nodiscard]] bool endWanted();

/// A virtual printer at work on its end of the channel.
class PrinterRun {
  public:
    struct Wishes {
        std::string uri; ///< the device URI that the channel is named after
        Scenario scenario;
        PrinterListener listener;
        /// Called at every turn, about ten times a second and more while something happens. Returns whether
        /// to go on.
        std::function<bool(VirtualPrinter &printer, PrinterTime now)> goOn;
    };

    PrinterRun(platform::Platform &channelPlatform, Wishes whatToDo);

    /// Serves the channel until it is told not to go on, or the printer has vanished for good. Returns false,
    /// with `problem` set, where there is no channel to serve.
    [[nodiscard]] bool run(std::string &problem);

    [[nodiscard]] const PrinterModel &model() const { return printer.printer(); }

  private:
    [[nodiscard]] bool connect(std::string &problem);
    [[nodiscard]] bool perform(const ChannelDeed &deed, std::string &problem);
    void post(const PostNotification &notification);
    void turn();
    void tell(const std::string &line);
    [[nodiscard]] PrinterTime now() const;

    platform::Platform &platform;
    Wishes wishes;
    std::chrono::steady_clock::time_point switchedOn = std::chrono::steady_clock::now();
    VirtualPrinter printer;
    std::unique_ptr<platform::NotificationCenter> center; ///< null while the printer has vanished
};

} // namespace veltrin
