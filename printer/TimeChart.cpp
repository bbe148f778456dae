#include "printer/TimeChart.h"

#include "platform/Counted.h"
#include "printer/HtmlText.h"
#include "printer/StatusView.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <utility>

namespace veltrin::printer {

namespace {

// The picture, from its top: memory, sides, status, seconds.
constexpr double chartWidth = 900;
constexpr double chartHeight = 300;
constexpr double plotLeft = 60;
constexpr double plotRight = 880;
constexpr double memoryTop = 26;
constexpr double memoryHeight = 90;
constexpr double sidesTop = 148;
constexpr double sidesHeight = 70;
constexpr double statusTop = 234;
constexpr double statusHeight = 26;
constexpr double statusBottom = statusTop + statusHeight;

double secondsOf(PrinterTime time) {
    return std::chrono::duration<double>(time).count();
}

std::string decimal(double number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

std::string secondsIn(double seconds) {
    return decimal(seconds) + " s";
}

std::string mebibytes(double bytes) {
    return decimal(bytes / 1048576.0) + " MiB";
}

/// Where a moment stands in the picture.
struct Axis {
    double begin;
    double end;

    [[nodiscard]] double at(double seconds) const {
        return plotLeft + (seconds - begin) / (end - begin) * (plotRight - plotLeft);
    }

    [[nodiscard]] double at(PrinterTime when) const { return at(secondsOf(when)); }

    /// A second, two, five, ten...: so that there are about ten of them. Their numbers have one digit behind
    /// the point.
    [[nodiscard]] double step() const {
        const double wanted = std::max((end - begin) / 10, 0.1);
        const double power = std::pow(10, std::floor(std::log10(wanted)));
        for (const double factor : {1.0, 2.0, 5.0}) {
            if (factor * power >= wanted) {
                return factor * power;
            }
        }
        return 10 * power;
    }
};

std::string textSvg(double x, double y, const char *kind, const std::string &text) {
    return "<text class='" + std::string(kind) + "' x='" + decimal(x) + "' y='" + decimal(y) + "'>" + text +
           "</text>\n";
}

std::string lineSvg(const char *kind, double x1, double y1, double x2, double y2) {
    return "<line class='" + std::string(kind) + "' x1='" + decimal(x1) + "' y1='" + decimal(y1) + "' x2='" +
           decimal(x2) + "' y2='" + decimal(y2) + "'/>\n";
}

/// A line that holds each value until the next, and the area below it; `heightOf` gives 0 to 1.
template <typename HeightOf>
std::string stepsSvg(const std::vector<Moment> &moments, const Axis &axis, double top, double height,
                     const std::string &kind, HeightOf heightOf) {
    std::string path;
    for (const Moment &moment : moments) {
        const std::string x = decimal(axis.at(moment.when));
        const std::string y = decimal(top + height * (1 - heightOf(moment)));
        path.append(path.empty() ? "M" + x + " " : "H" + x + "V").append(y);
    }
    const std::string bottom = decimal(top + height);
    return "<path class='" + kind + "-area' d='" + path + "V" + bottom + "H" +
           decimal(axis.at(moments.front().when)) + "Z'/>\n<path class='" + kind + "' d='" + path + "'/>\n";
}

/// The ground of a part of the picture: its lowest and highest value, and what it is.
std::string panelSvg(double top, double height, const std::string &least, const std::string &most,
                     const std::string &what) {
    return textSvg(plotLeft, top - 8, "what", what) + lineSvg("grid", plotLeft, top, plotRight, top) +
           lineSvg("grid", plotLeft, top + height, plotRight, top + height) +
           textSvg(plotLeft - 6, top + 4, "value", most) +
           textSvg(plotLeft - 6, top + height + 4, "value", least);
}

/// What the curves are drawn against.
struct Sums {
    std::uint32_t memory = 1; ///< all of it
    std::uint32_t mostUsed = 0;
    std::uint64_t printed = 0;

    [[nodiscard]] std::string memoryText() const {
        return "image memory in use: at most " + mebibytes(mostUsed) + " of " + mebibytes(memory);
    }

    [[nodiscard]] std::string printedText() const { return "sides printed: " + std::to_string(printed); }
};

Sums sumsOf(const std::vector<Moment> &moments) {
    Sums sums;
    std::uint32_t leastFree = UINT32_MAX;
    for (const Moment &moment : moments) {
        sums.memory = std::max(sums.memory, moment.freeImageMemory);
        leastFree = std::min(leastFree, moment.freeImageMemory);
    }
    sums.mostUsed = sums.memory - leastFree;
    sums.printed = moments.back().printed;
    return sums;
}

std::string memorySvg(const std::vector<Moment> &moments, const Axis &axis, const Sums &sums) {
    return panelSvg(memoryTop, memoryHeight, "0", mebibytes(sums.memory), sums.memoryText()) +
           stepsSvg(moments, axis, memoryTop, memoryHeight, "memory", [&sums](const Moment &moment) {
               return static_cast<double>(sums.memory - moment.freeImageMemory) / sums.memory;
           });
}

std::string sidesSvg(const std::vector<Moment> &moments, const Axis &axis, const Sums &sums) {
    const std::uint64_t most = std::max<std::uint64_t>(1, sums.printed);
    return panelSvg(sidesTop, sidesHeight, "0", std::to_string(most), sums.printedText()) +
           stepsSvg(moments, axis, sidesTop, sidesHeight, "sides", [most](const Moment &moment) {
               return static_cast<double>(moment.printed) / static_cast<double>(most);
           });
}

std::string timeSvg(const Axis &axis) {
    std::string svg;
    const double step = axis.step();
    const auto first = std::llround(std::ceil(axis.begin / step));
    const auto last = std::llround(std::floor(axis.end / step));
    for (auto number = first; number <= last; ++number) {
        const double seconds = static_cast<double>(number) * step;
        const double x = axis.at(seconds);
        svg += lineSvg("grid", x, memoryTop, x, statusBottom + 4) +
               textSvg(x, statusBottom + 18, "second", decimal(seconds));
    }
    return svg + textSvg(plotRight, statusBottom + 34, "value", "seconds");
}

/// The status in the time from one moment to another.
struct Phase {
    StatusCodes status;
    PrinterTime begin;
    PrinterTime end;
};

std::vector<Phase> phasesOf(const std::vector<Moment> &moments) {
    std::vector<Phase> phases;
    for (std::size_t i = 0; i + 1 < moments.size(); ++i) {
        if (phases.empty() || phases.back().status != moments[i].status) {
            phases.push_back({moments[i].status, moments[i].when, moments[i].when});
        }
        phases.back().end = moments[i + 1].when;
    }
    return phases;
}

/// A status that was shown, for how long in all, and the class of its colour.
struct Shown {
    StatusCodes status;
    double seconds;
    std::string kind;
};

/// Those of an ordinary job have a colour each; of those that want somebody to come there may be any number.
std::string kindOf(const StatusCodes &status, std::size_t &strange) {
    constexpr std::size_t strangeKinds = 4;
    switch (status.status) {
    case 0:
        return "ready";
    case 3:
        return "processing";
    case 4:
        return "printing";
    default:
        return "want" + std::to_string(strange++ % strangeKinds);
    }
}

std::vector<Shown> shownIn(const std::vector<Phase> &phases) {
    std::vector<Shown> shown;
    std::size_t strange = 0;
    for (const Phase &phase : phases) {
        auto found = std::find_if(shown.begin(), shown.end(),
                                  [&phase](const Shown &one) { return one.status == phase.status; });
        if (found == shown.end()) {
            found = shown.insert(found, {phase.status, 0, kindOf(phase.status, strange)});
        }
        found->seconds += secondsOf(phase.end - phase.begin);
    }
    return shown;
}

std::string statusSvg(const std::vector<Phase> &phases, const std::vector<Shown> &shown, const Axis &axis) {
    std::string svg = textSvg(plotLeft - 6, statusTop + statusHeight / 2 + 4, "value", "status");
    for (const Phase &phase : phases) {
        const auto found = std::find_if(shown.begin(), shown.end(),
                                        [&phase](const Shown &one) { return one.status == phase.status; });
        const double x = axis.at(phase.begin);
        svg += "<rect class='" + found->kind + "' x='" + decimal(x) + "' y='" + decimal(statusTop) +
               "' width='" + decimal(axis.at(phase.end) - x) + "' height='" + decimal(statusHeight) +
               "'><title>" + htmlText(describe(phase.status)) + "</title></rect>\n";
    }
    return svg;
}

std::string legendHtml(const std::vector<Shown> &shown) {
    std::string html = "<ul class='legend'>\n";
    for (const Shown &one : shown) {
        html += "<li><span class='" + one.kind + "'></span> " + htmlText(describe(one.status)) + ", " +
                secondsIn(one.seconds) + "</li>\n";
    }
    return html + "</ul>\n";
}

std::string overrunsSvg(const std::vector<MemoryOverrun> &overruns, const Axis &axis) {
    std::string svg;
    std::string last;
    for (const MemoryOverrun &overrun : overruns) {
        const double x = std::clamp(axis.at(overrun.when), plotLeft, plotRight);
        const std::string line = lineSvg("overrun", x, memoryTop - 4, x, memoryTop + memoryHeight);
        // They come by the hundred, and those of one moment are one line.
        svg += line != last ? line : "";
        last = line;
    }
    return svg.empty() ? ""
                       : svg + textSvg(plotRight, memoryTop - 8, "overrun-text",
                                       counted(overruns.size(), "memory overrun", "memory overruns"));
}

bool isAlike(const Moment &one, const Moment &other) {
    return one.freeImageMemory == other.freeImageMemory && one.printed == other.printed &&
           one.status == other.status;
}

} // namespace

void Course::add(const Moment &moment) {
    constexpr std::size_t most = 4000;
    // Of moments that are alike the first and the last are enough.
    if (kept.size() >= 2 && isAlike(kept.back(), moment) && isAlike(kept[kept.size() - 2], moment)) {
        kept.back().when = moment.when;
        return;
    }
    kept.push_back(moment);
    if (kept.size() > most) {
        std::size_t place = 0;
        std::erase_if(kept, [&place](const Moment &) { return place++ % 2 == 1; });
    }
}

std::string timeChart(const Course &course, const std::vector<MemoryOverrun> &overruns) {
    const std::vector<Moment> &moments = course.moments();
    if (moments.size() < 2) {
        return "";
    }
    const Axis axis = {secondsOf(moments.front().when),
                       std::max(secondsOf(moments.back().when), secondsOf(moments.front().when) + 0.001)};
    const Sums sums = sumsOf(moments);
    const std::vector<Phase> phases = phasesOf(moments);
    const std::vector<Shown> shown = shownIn(phases);
    return "<section>\n<h2>The printer&#39;s time</h2>\n<div class='scroll'><svg class='chart' viewBox='0 0 " +
           decimal(chartWidth) + " " + decimal(chartHeight) + "' role='img' aria-label='From " +
           secondsIn(axis.begin) + " to " + secondsIn(axis.end) + ": " + sums.memoryText() + "; " +
           sums.printedText() + "'>\n" + timeSvg(axis) + memorySvg(moments, axis, sums) +
           overrunsSvg(overruns, axis) + sidesSvg(moments, axis, sums) + statusSvg(phases, shown, axis) +
           "</svg></div>\n" + legendHtml(shown) + "</section>\n";
}

const char *timeChartStyle() {
    return R"(.scroll { overflow-x: auto; }
.chart { box-sizing: border-box; width: 100%; min-width: 40em; height: auto; background: var(--card); border: 1px solid var(--line); }
.chart text { font: 12px system-ui, sans-serif; fill: var(--soft); }
.chart .what { fill: var(--text); } .chart .value { text-anchor: end; } .chart .second { text-anchor: middle; }
.chart .grid { stroke: var(--line); } .chart .overrun { stroke: var(--bad); stroke-width: 2; }
.chart .overrun-text { fill: var(--bad); text-anchor: end; }
.memory, .sides { fill: none; stroke-width: 1.5; } .memory { stroke: #c2442d; } .sides { stroke: #2f6fb5; }
.memory-area { fill: #c2442d40; } .sides-area { fill: #2f6fb540; }
.ready { fill: #9aa7ad; background: #9aa7ad; } .processing { fill: #6cb2eb; background: #6cb2eb; }
.printing { fill: #5cb466; background: #5cb466; } .want0 { fill: #f0a030; background: #f0a030; }
.want1 { fill: #d9534f; background: #d9534f; } .want2 { fill: #a774c9; background: #a774c9; }
.want3 { fill: #b58b5a; background: #b58b5a; }
.legend { list-style: none; padding: 0; display: flex; flex-wrap: wrap; gap: .3em 1.5em; font-size: .9em; }
.legend span { display: inline-block; width: .8em; height: .8em; }
)";
}

} // namespace veltrin::printer
