#include "printer/SheetPage.h"

#include "platform/Counted.h"
#include "printer/SheetReport.h"
#include "printer/StatusView.h"
#include "status/MediaNames.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string_view>

namespace veltrin::printer {

namespace {

constexpr const char *style = R"(<style>
body { font: 15px/1.45 system-ui, sans-serif; margin: 2em auto; max-width: 62em; padding: 0 1em; color: #222;
  background: #e9e9e6; }
h1 { font-size: 1.5em; } h2 { font-size: 1.2em; margin-top: 2em; } h3 { font-size: 1em; }
.sheets { display: flex; flex-wrap: wrap; gap: 1.5em; }
.sheet { background: #f7f7f5; border: 1px solid #ccc; padding: .8em; }
.sides { display: flex; gap: .8em; }
figure { margin: 0; max-width: 202px; } figcaption, .sheet p { font-size: .85em; margin: .3em 0 0; }
.paper { width: 200px; height: 285px; background: #fff; border: 1px solid #999; display: flex;
  align-items: center; justify-content: center; color: #999; font-size: .85em; text-align: center; }
.paper a { display: contents; } .paper img { max-width: 100%; max-height: 100%; }
.bad { color: #a00; } .pause { background: #fff3c4; padding: .1em .5em; white-space: nowrap; }
svg { background: #fff; border: 1px solid #ccc; width: 100%; height: auto; }
svg text { font: 11px system-ui, sans-serif; fill: #444; }
</style>
)";

/// Of anything from outside: printable ASCII as it is, or as an entity, and a dot for every other byte.
std::string shownIn(std::string_view text) {
    std::string result;
    for (const char character : text) {
        const auto number = static_cast<unsigned char>(character);
        if (number < 0x20 || number > 0x7E) {
            result += '.';
        } else if (std::string_view("<>&\"'").find(character) != std::string_view::npos) {
            result += "&#" + std::to_string(number) + ";";
        } else {
            result += character;
        }
    }
    return result;
}

const char *wordFor(Tray tray) {
    switch (tray) {
    case Tray::bypass:
        return "bypass tray";
    case Tray::tray1:
        return "tray 1";
    case Tray::tray2:
        break;
    }
    return "tray 2";
}

std::string paperOf(const PageHeader &page) {
    return std::string(paperSizeName(page.bPaperSize).english) + ", " +
           std::string(paperTypeName(page.bMediaType).english) + ", from " + wordFor(trayOfPage(page));
}

/// Which copy each sheet is of: how often its page has come by then.
std::vector<unsigned> copiesIn(const std::vector<Sheet> &sheets, const std::vector<PageRead> &pages) {
    std::map<unsigned, unsigned> seen;
    std::vector<unsigned> copies;
    copies.reserve(sheets.size());
    for (const Sheet &sheet : sheets) {
        copies.push_back(++seen[pages[sheet.front ? *sheet.front : *sheet.back].header.wPageNumber]);
    }
    return copies;
}

std::string numberOf(const PageRead &page) {
    return std::to_string(page.header.wPageNumber.value());
}

std::string sideHtml(const char *name, const std::optional<std::size_t> &place, const JobReport &job,
                     const ShownJob &shown) {
    const std::string begin = "<figure><div class='paper'>";
    if (!place) {
        return begin + "not printed on</div><figcaption>" + name + "</figcaption></figure>\n";
    }
    const PageRead &page = job.pages[*place];
    const ShownSide side = *place < shown.sides.size() ? shown.sides[*place] : ShownSide();
    const std::string title = std::string(name) + ": page " + numberOf(page);
    std::string html = begin;
    html += side.picture.empty() ? "cannot be shown"
                                 : "<a href='" + side.picture + "'><img loading='lazy' src='" + side.picture +
                                       "' alt='" + title + "'></a>";
    html += "</div><figcaption>" + title;
    if (!page.complete) {
        html += " <span class='bad'>broke off at line " + std::to_string(side.linesBegun) + " of " +
                std::to_string(side.lines) + "</span>";
    }
    if (*place >= job.pagesPrinted) {
        html += " <span class='bad'>not printed</span>";
    }
    return html + "</figcaption></figure>\n";
}

/// The sides in their order, and where the stack was turned.
std::string orderHtml(const JobReport &job) {
    const std::vector<std::size_t> pauses = pausesOf(job.pages);
    std::string html = "<p>In the order printed: ";
    for (std::size_t place = 0; place < job.pages.size(); ++place) {
        if (std::find(pauses.begin(), pauses.end(), place) != pauses.end()) {
            html += "<span class='pause'>pause: the stack is turned by hand</span> ";
        }
        html += numberOf(job.pages[place]) + (place + 1 < job.pages.size() ? ", " : "");
    }
    return html + "</p>\n";
}

std::string sheetsHtml(const JobReport &job, const ShownJob &shown, std::size_t firstSheet) {
    const std::vector<Sheet> sheets = sheetsOf(job.pages);
    const std::vector<unsigned> copies = copiesIn(sheets, job.pages);
    std::string html;
    unsigned copy = 0;
    for (std::size_t i = 0; i < sheets.size(); ++i) {
        const Sheet &sheet = sheets[i];
        if (copies[i] != copy) {
            html += copy != 0 ? "</div>\n" : "";
            copy = copies[i];
            html += "<h3>Copy " + std::to_string(copy) + "</h3>\n<div class='sheets'>\n";
        }
        const PageHeader &page = job.pages[sheet.front ? *sheet.front : *sheet.back].header;
        html += "<div class='sheet'><div class='sides'>\n" + sideHtml("Front", sheet.front, job, shown) +
                sideHtml("Back", sheet.back, job, shown) + "</div><p>Sheet " +
                std::to_string(firstSheet + i) + ", copy " + std::to_string(copy) + ": " + paperOf(page) +
                "</p></div>\n";
    }
    return html + (copy != 0 ? "</div>\n" : "");
}

std::string problemsHtml(const JobReport &job, const ShownJob &shown) {
    std::string html;
    const auto add = [&html](const std::string &text) { html += "<li class='bad'>" + text + "</li>\n"; };
    for (const ProblemFound &found : job.problems) {
        add("at byte " + std::to_string(found.offset) + ": " + shownIn(found.text));
    }
    for (const raster::PageProblemFound &found : shown.problems) {
        add("at byte " + std::to_string(found.offset) + ": " + shownIn(found.text));
    }
    if (shown.problemCount > shown.problems.size()) {
        add("and " + std::to_string(shown.problemCount - shown.problems.size()) + " more like it");
    }
    if (!job.overruns.empty()) {
        add(counted(job.overruns.size(), "memory overrun", "memory overruns"));
    }
    return html.empty() ? "" : "<ul>\n" + html + "</ul>\n";
}

// ---- The course

constexpr double chartWidth = 900;
constexpr double chartLeft = 70;
constexpr double memoryTop = 20;
constexpr double memoryHeight = 80;
constexpr double pagesTop = 125;
constexpr double pagesHeight = 60;
constexpr double statusTop = 205;
constexpr double statusHeight = 14;
constexpr double chartHeight = 265;

double secondsOf(PrinterTime time) {
    return std::chrono::duration<double>(time).count();
}

std::string decimal(double number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.1f", number);
    return text.data();
}

/// Where a moment stands in the chart.
struct Axis {
    double begin;
    double end;

    [[nodiscard]] double at(PrinterTime when) const {
        return chartLeft + (secondsOf(when) - begin) / (end - begin) * (chartWidth - chartLeft - 10);
    }
};

/// A line that holds each value until the next; `heightOf` gives 0 to 1.
template <typename HeightOf>
std::string stepsSvg(const std::vector<Moment> &moments, const Axis &axis, double top, double height,
                     const char *colour, HeightOf heightOf) {
    std::string path;
    for (const Moment &moment : moments) {
        const std::string x = decimal(axis.at(moment.when));
        path +=
            (path.empty() ? "M" + x + " " : "H" + x + "V") + decimal(top + height * (1 - heightOf(moment)));
    }
    return "<path fill='none' stroke='" + std::string(colour) + "' stroke-width='1.5' d='" + path + "'/>\n";
}

std::string textSvg(double x, double y, const std::string &text) {
    return "<text x='" + decimal(x) + "' y='" + decimal(y) + "'>" + text + "</text>\n";
}

const char *colourOf(const StatusCodes &status) {
    switch (status.status) {
    case 0:
        return "#cfd8dc";
    case 3:
        return "#90caf9";
    case 4:
        return "#81c784";
    default:
        return "#ffb74d";
    }
}

std::string statusSvg(const std::vector<Moment> &moments, const Axis &axis) {
    std::string svg;
    std::map<std::string, const char *> legend;
    for (std::size_t i = 0; i + 1 < moments.size();) {
        std::size_t next = i + 1;
        while (next + 1 < moments.size() && moments[next].status == moments[i].status) {
            ++next;
        }
        const double x = axis.at(moments[i].when);
        const std::string name = shownIn(describe(moments[i].status));
        legend[name] = colourOf(moments[i].status);
        svg += "<rect x='" + decimal(x) + "' y='" + decimal(statusTop) + "' width='" +
               decimal(axis.at(moments[next].when) - x) + "' height='" + decimal(statusHeight) + "' fill='" +
               colourOf(moments[i].status) + "'><title>" + name + "</title></rect>\n";
        i = next;
    }
    double x = chartLeft;
    for (const auto &[name, colour] : legend) {
        svg += "<rect x='" + decimal(x) + "' y='" + decimal(chartHeight - 18) +
               "' width='10' height='10' fill='" + colour + "'/>\n" + textSvg(x + 14, chartHeight - 9, name);
        x += 30 + 6.2 * static_cast<double>(name.size());
    }
    return svg;
}

std::string courseHtml(const Course &course) {
    const std::vector<Moment> &moments = course.moments();
    if (moments.size() < 2) {
        return "";
    }
    const Axis axis = {secondsOf(moments.front().when),
                       std::max(secondsOf(moments.back().when), secondsOf(moments.front().when) + 0.001)};
    std::uint32_t memory = 1;
    for (const Moment &moment : moments) {
        memory = std::max(memory, moment.freeImageMemory);
    }
    const auto pages = std::max<std::uint64_t>(1, moments.back().printed);
    std::string svg = "<h2>Its time</h2>\n<svg viewBox='0 0 " + decimal(chartWidth) + " " +
                      decimal(chartHeight) +
                      "' role='img' aria-label='memory, pages and status over time'>\n";
    svg +=
        textSvg(chartLeft, memoryTop - 6, "image memory in use, of " + decimal(memory / 1048576.0) + " MiB");
    svg += stepsSvg(moments, axis, memoryTop, memoryHeight, "#c62828", [memory](const Moment &moment) {
        return static_cast<double>(memory - moment.freeImageMemory) / memory;
    });
    svg += textSvg(chartLeft, pagesTop - 6, "sides printed: " + std::to_string(moments.back().printed));
    svg += stepsSvg(moments, axis, pagesTop, pagesHeight, "#1565c0", [pages](const Moment &moment) {
        return static_cast<double>(moment.printed) / static_cast<double>(pages);
    });
    svg += textSvg(8, statusTop + statusHeight - 3, "status");
    svg += statusSvg(moments, axis);
    svg += textSvg(chartLeft, statusTop + statusHeight + 14, decimal(axis.begin) + " s");
    svg += textSvg(chartWidth - 50, statusTop + statusHeight + 14, decimal(axis.end) + " s");
    return svg + "</svg>\n";
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

std::string sheetPage(const std::vector<JobReport> &jobs, const std::vector<ShownJob> &shown,
                      const Course &course) {
    std::string html = "<!DOCTYPE html>\n<html lang='en'>\n<head><meta charset='utf-8'><title>What came out "
                       "of the printer</title>\n";
    html += style;
    html += "</head>\n<body>\n<h1>What came out of the printer</h1>\n";
    std::size_t sheet = 1;
    for (std::size_t i = 0; i < jobs.size() && i < shown.size(); ++i) {
        const JobReport &job = jobs[i];
        html += "<h2>Job " + std::to_string(job.number) + ": " + shownIn(shown[i].name) + "</h2>\n<p>";
        html += shown[i].user.empty() ? "" : "Of " + shownIn(shown[i].user) + ". ";
        const std::size_t sheets = sheetsOf(job.pages).size();
        html += std::string(nameOf(job.outcome())) + ": " + counted(job.pages.size(), "side", "sides") +
                " on " + counted(sheets, "sheet", "sheets") + ", " +
                counted(copiesOf(job.pages), "copy", "copies") + ", " + std::to_string(job.pagesPrinted) +
                " printed, " + counted(job.totals.bytes, "byte", "bytes") + ".</p>\n";
        html += problemsHtml(job, shown[i]);
        html += orderHtml(job);
        html += sheetsHtml(job, shown[i], sheet);
        sheet += sheets;
    }
    return html + courseHtml(course) + "</body>\n</html>\n";
}

} // namespace veltrin::printer
