#pragma once

#include <functional>
#include <string>

namespace veltrin::bench {

/// The best of several runs of two things in turns: what disturbs a run only ever makes it slower.
struct Pair {
    double subject = 1e9;   // seconds
    double reference = 1e9; // seconds
};

[[nodiscard]] Pair inTurns(int runs, const std::function<double()> &subject,
                           const std::function<double()> &reference);

/// The head of a table of rows like `printRow` prints; `subject` names what is measured.
void printHead(const std::string &subject);

void printRow(const std::string &what, const std::string &subject, const std::string &reference, double ratio,
              const std::string &aim);

/// "12.3 ms", with `digits` behind the point.
[[nodiscard]] std::string milliseconds(double seconds, int digits = 1);

[[nodiscard]] std::string mebibytes(double kibibytes);

} // namespace veltrin::bench
