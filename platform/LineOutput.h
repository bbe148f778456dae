#pragma once

#include <string>
#include <string_view>

namespace veltrin {

/// Lines for people or for the scheduler on a descriptor, many in one write: a system call for each would
/// hold up the channel.
///
/// A write holds whole lines and at most PIPE_BUF bytes, or one line that is longer. So what others write
/// into the same pipe stands between lines, never inside of one.
class LineOutput {
  public:
    /// Leaves the descriptor open at its end.
    explicit LineOutput(int theFd) : fd(theFd) {}

    LineOutput(const LineOutput &) = delete;
    LineOutput &operator=(const LineOutput &) = delete;

    /// Writes what is left.
    ~LineOutput() { write(); }

    /// Takes a line, without its end.
    void add(std::string_view line);

    /// Writes the lines taken so far.
    void write();

    /// The system's number of what went wrong first, or 0. Nothing is written after it.
    [[nodiscard]] int error() const { return failure; }

  private:
    void writeWhole(std::string_view lines);

    int fd;
    std::string pending;
    int failure = 0;
};

} // namespace veltrin
