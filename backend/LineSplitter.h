#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <string>

namespace veltrin::backend {

/// Makes lines of what another program writes, whatever its writes are like.
class LineSplitter {
  public:
    using Taker = std::function<void(const std::string &line)>;

    /// A line is cut when it is longer than any that the scheduler takes.
    static constexpr std::size_t longestLine = 8192;

    /// `taker` gets each line without its end.
    explicit LineSplitter(Taker theTaker) : taker(std::move(theTaker)) {}

    void take(std::span<const std::byte> bytes);

    /// Hands over what is left as a line, if anything is.
    void finish();

  private:
    Taker taker;
    std::string line;
};

} // namespace veltrin::backend
