#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace veltrin::bench {

/// Where a child's output goes.
enum class Sink {
    pipe, ///< to this process, which reads it and drops it, as a backend would take it
    file, ///< into a file
};

struct Measurement {
    std::chrono::duration<double> time{}; ///< from before the start to after the end
    long peakKibibytes = 0;               ///< the child's largest resident set
};

/// Runs a program to its end with its standard input from /dev/null. Ends this process with a message where
/// the child cannot be started or does not exit with 0: a figure of a failed run is worth nothing.
[[nodiscard]] Measurement runChild(const std::string &program, const std::vector<std::string> &arguments,
                                   Sink sink, const std::string &sinkPath);

} // namespace veltrin::bench
