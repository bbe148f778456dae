#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace veltrin::bench {

/// A device at the end of a wire that takes everything as fast as it can and is always ready: it listens on
/// a port of this machine, and sends status records once something has come.
class WireSink {
  public:
    /// Throws std::system_error where there can be none.
    WireSink();
    WireSink(const WireSink &) = delete;
    WireSink &operator=(const WireSink &) = delete;
    ~WireSink();

    [[nodiscard]] std::string uri() const;

    struct Taken {
        std::uint64_t bytes = 0;
        std::chrono::duration<double> time{}; ///< from the first page data to the last
    };

    /// What one connection has brought, waited for until it ends.
    [[nodiscard]] Taken takeJob() const;

  private:
    /// A job's commands, which come long before its pages.
    static constexpr std::uint64_t commandBytes = 16;

    int listener = -1;
    std::uint16_t port = 0;
};

} // namespace veltrin::bench
