#pragma once

#include "ipc/BackendEnd.h"
#include "platform/Platform.h"
#include "printer/ChannelEnd.h"
#include "printer/Plug.h"
#include "printer/VirtualPrinter.h"

#include <sys/types.h>

#include <functional>
#include <optional>
#include <set>
#include <string>

namespace veltrin::printer {

/// The printer and its backend at the other end of a filter's channel.
class ChannelPlug final : public Plug {
  public:
    struct Wishes {
        std::string uri; ///< the device URI that the channel is named after
        /// Asked about ten times a second while another backend serves the URI. Returns whether to wait on;
        /// without it that is a problem at once.
        std::function<bool()> waitsForOther = nullptr;
        /// What is against serving a process; empty where nothing is. Without it every host is served.
        std::function<std::string(pid_t process)> objectionTo = nullptr;
        /// Whether to go on when the bus is lost, and to come back once it is there again.
        bool stays = false;
    };

    ChannelPlug(platform::Platform &platform, VirtualPrinter &printer, const PrinterClock &clock,
                Wishes wishes);

    [[nodiscard]] bool open(std::string &problem) override;
    [[nodiscard]] bool act(std::string &problem) override;

    [[nodiscard]] bool isGone() const override { return end.isGone(); }

    void turn() override;
    void close() override;

  private:
    [[nodiscard]] bool awaitBus(std::string &problem);
    void overheard(const std::string &name);
    void hintAtDeafness();
    [[nodiscard]] bool perform(const ChannelDeed &deed, std::string &problem);
    void post(const PostNotification &notification);
    void tell(const std::string &line);

    [[nodiscard]] PrinterTime now() const { return clock.now(); }

    platform::Platform &platform;
    VirtualPrinter &printer;
    const PrinterClock &clock;
    Wishes wishes;
    ChannelEnd end{printer};
    BackendEnd backendEnd;  ///< closed while the printer has vanished, or the bus
    bool isBusLost = false; ///< and waited for

    std::set<std::string> strangeHosts;   ///< hinted at already
    std::optional<PrinterTime> announced; ///< at first, for all to hear, oneself included
    bool hearsAnything = false;
    bool isDeafnessTold = false;
};

} // namespace veltrin::printer
