#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace veltrin::bench {

/// Where a child's output goes.
enum class Sink {
    pipe,     ///< to this process, which reads it and drops it, as a backend would take it
    widePipe, ///< the same, through a pipe as wide as the filter makes its own
    file,     ///< into a file
};

struct Measurement {
    std::chrono::duration<double> time{}; ///< from before the start to after the end
    long peakKibibytes = 0;               ///< the child's largest resident set
};

/// A program with its standard input from /dev/null and no standard error. Throws std::runtime_error where it
/// cannot be started or does not exit with 0: a figure of a failed run is worth nothing.
class Child {
  public:
    Child(std::string program, const std::vector<std::string> &arguments, Sink sink,
          const std::string &sinkPath);

    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    /// Kills what has not been waited for.
    ~Child();

    /// Waits for the first output into the pipe; what follows is taken as it comes.
    void awaitOutput();

    /// Takes the output, if it goes to the pipe, and waits for the end.
    [[nodiscard]] Measurement finish();

  private:
    std::string program;
    std::chrono::steady_clock::time_point start;
    pid_t process = -1;
    int output = -1; ///< the reading end of the pipe, if there is one
    std::thread drainer;
};

/// Runs a program to its end.
[[nodiscard]] Measurement runChild(const std::string &program, const std::vector<std::string> &arguments,
                                   Sink sink, const std::string &sinkPath);

} // namespace veltrin::bench
