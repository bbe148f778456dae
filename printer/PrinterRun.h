#pragma once

#include "platform/Platform.h"
#include "printer/JobReport.h"
#include "printer/VirtualPrinter.h"

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>

namespace veltrin::printer {

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
        /// Asked about ten times a second while another backend serves the URI. Returns whether to wait on;
        /// without it that is a problem at once.
        std::function<bool()> waitsForOther = nullptr;
        /// What is against serving a process; empty where nothing is. Without it every host is served.
        std::function<std::string(pid_t process)> objectionTo = nullptr;
        /// Whether to go on when the bus is lost, and to come back once it is there again.
        bool stays = false;
        /// Called at every turn, about ten times a second and more while something happens. Returns whether
        /// to go on.
        std::function<bool(VirtualPrinter &printer, PrinterTime now)> goOn;
    };

    PrinterRun(platform::Platform &platform, Wishes wishes);

    /// Serves the channel until it is told not to go on, or the printer has vanished for good. Returns false,
    /// with `problem` set, where there is no channel to serve, or not any more.
    [[nodiscard]] bool run(std::string &problem);

    [[nodiscard]] const VirtualPrinter &virtualPrinter() const { return printer; }

  private:
    enum class Opening { done, occupied, impossible };

    [[nodiscard]] bool connect(std::string &problem);
    [[nodiscard]] Opening open(std::string &problem);
    [[nodiscard]] bool serve(std::string &problem);
    void sayGoodbye();
    [[nodiscard]] bool act(std::string &problem);
    [[nodiscard]] bool awaitBus(std::string &problem);
    void overheard(const std::string &name);
    void hintAtDeafness();
    [[nodiscard]] bool perform(const ChannelDeed &deed, std::string &problem);
    void post(const PostNotification &notification);
    void turn();
    void tell(const std::string &line);
    [[nodiscard]] PrinterTime now() const;

    platform::Platform &platform;
    Wishes wishes;
    std::chrono::steady_clock::time_point switchedOn = std::chrono::steady_clock::now();
    VirtualPrinter printer;
    std::unique_ptr<platform::NotificationCenter> center; ///< null while the printer has vanished, or the bus
    bool isBusLost = false;                               ///< and waited for

    std::set<std::string> strangeHosts;   ///< hinted at already
    std::optional<PrinterTime> announced; ///< at first, for all to hear, oneself included
    bool hearsAnything = false;
    bool isDeafnessTold = false;
};

} // namespace veltrin::printer
