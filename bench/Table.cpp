#include "bench/Table.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace veltrin::bench {

namespace {

std::string withUnit(double number, int digits, const char *unit) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.*f %s", digits, number, unit);
    return text.data();
}

} // namespace

Pair inTurns(int runs, const std::function<double()> &subject, const std::function<double()> &reference) {
    Pair best;
    for (int i = 0; i < runs; ++i) {
        best.reference = std::min(best.reference, reference());
        best.subject = std::min(best.subject, subject());
    }
    return best;
}

void printHead(const std::string &subject) {
    std::printf("| %-50s | %12s | %12s | %6s | %-12s |\n", "what", subject.c_str(), "reference", "ratio",
                "aim");
    std::printf("|%s|%s|%s|%s|%s|\n", std::string(52, '-').c_str(), std::string(14, '-').c_str(),
                std::string(14, '-').c_str(), std::string(8, '-').c_str(), std::string(14, '-').c_str());
}

void printRow(const std::string &what, const std::string &subject, const std::string &reference, double ratio,
              const std::string &aim) {
    std::printf("| %-50s | %12s | %12s | %6.2f | %-12s |\n", what.c_str(), subject.c_str(), reference.c_str(),
                ratio, aim.c_str());
    std::fflush(stdout);
}

std::string milliseconds(double seconds, int digits) {
    return withUnit(seconds * 1000, digits, "ms");
}

std::string mebibytes(double kibibytes) {
    return withUnit(kibibytes / 1024, 1, "MiB");
}

} // namespace veltrin::bench
