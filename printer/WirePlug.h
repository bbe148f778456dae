#pragma once

#include "printer/ListenAddress.h"
#include "printer/Plug.h"
#include "printer/VirtualPrinter.h"
#include "printer/WireEnd.h"

#include <cstddef>
#include <string>
#include <vector>

namespace veltrin::printer {

/// The printer at the end of a TCP connection, the next of which waits until the first is over.
class WirePlug final : public Plug {
  public:
    WirePlug(VirtualPrinter &printer, const PrinterClock &clock, ListenAddress address);
    ~WirePlug() override;

    [[nodiscard]] bool open(std::string &problem) override;
    [[nodiscard]] bool act(std::string &problem) override;

    [[nodiscard]] bool isGone() const override { return end.isGone(); }

    void turn() override;
    void close() override;

    /// With the port that was taken, once it is.
    [[nodiscard]] const ListenAddress &address() const { return where; }

  private:
    /// A descriptor, which is closed with its owner.
    class Socket {
      public:
        Socket() = default;
        Socket(const Socket &) = delete;
        Socket &operator=(const Socket &) = delete;

        ~Socket() { reset(); }

        void reset(int with = -1);

        [[nodiscard]] int get() const { return fd; }

        [[nodiscard]] bool isOpen() const { return fd != -1; }

      private:
        int fd = -1;
    };

    [[nodiscard]] bool listen(std::string &problem);
    [[nodiscard]] bool perform(WireDeed deed, std::string &problem);
    void hangUp(bool inOrder);
    void accept();
    void read();
    void sendRecords();
    void write();
    [[nodiscard]] PrinterTime turnLength() const;

    [[nodiscard]] PrinterTime now() const { return clock.now(); }

    VirtualPrinter &printer;
    const PrinterClock &clock;
    ListenAddress where;
    WireEnd end{printer};
    Socket listener;
    Socket connection;
    std::vector<std::byte> unsent; ///< of the record sent last
};

} // namespace veltrin::printer
