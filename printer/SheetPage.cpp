#include "printer/SheetPage.h"

#include "platform/Counted.h"
#include "printer/HtmlText.h"
#include "printer/SheetReport.h"
#include "status/MediaNames.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string_view>

namespace veltrin::printer {

namespace {

constexpr const char *style =
    R"(:root { color-scheme: light dark; --ground: #e9e9e5; --card: #fafaf8; --line: #c6c6c0; --text: #222;
  --soft: #5c5c57; --bad: #a61b1b; --pause: #ffe9a8; --pause-text: #4a3800; --link: #1a5a9e; }
@media (prefers-color-scheme: dark) { :root { --ground: #1c1d1f; --card: #2a2b2e; --line: #4c4e53; --text: #e8e8e6;
  --soft: #b0b0ac; --bad: #ff9a8f; --pause: #5a4700; --pause-text: #ffeab0; --link: #8ec1f5; } }
body { font: 16px/1.45 system-ui, sans-serif; margin: 2em auto; max-width: 72em; padding: 0 1em; color: var(--text);
  background: var(--ground); overflow-wrap: anywhere; }
h1 { font-size: 1.6em; } h2 { font-size: 1.3em; margin: 2em 0 .3em; } h3 { font-size: 1.05em; margin: 1.5em 0 .6em; }
a { color: var(--link); } p { margin: .4em 0; }
.bad { color: var(--bad); font-weight: 600; } .soft { color: var(--soft); }
.order { list-style: none; padding: 0; margin: .6em 0; display: flex; flex-wrap: wrap; gap: .3em; }
.order li { border: 1px solid var(--line); border-radius: .3em; background: var(--card); padding: 0 .5em; }
.order .blank { border-style: dashed; color: var(--soft); }
.order .pause { background: var(--pause); color: var(--pause-text); border-color: transparent; }
.sheets { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 19em), 1fr)); gap: 1.2em; }
.sheet { background: var(--card); border: 1px solid var(--line); padding: .8em; break-inside: avoid; }
.sides { display: flex; gap: .8em; align-items: flex-start; }
figure { margin: 0; flex: 1 1 0; min-width: 0; }
figcaption, .sheet p { font-size: .85em; margin: .4em 0 0; }
.paper { display: flex; align-items: center; justify-content: center; max-height: 30em; overflow: hidden;
  background: #fff; color: #5c5c57; border: 1px solid #999; box-shadow: 0 1px 4px #0004; font-size: .85em; text-align: center; }
.paper img { width: 100%; height: 100%; object-fit: contain; } .unprinted img { opacity: .4; }
.none { background: none; color: var(--soft); border: 1px dashed var(--line); box-shadow: none; }
@media print { :root { color-scheme: light; --ground: #fff; --card: #fff; --line: #bbb; --text: #000; --soft: #444; --bad: #a61b1b;
  --pause: #ffe9a8; --pause-text: #000; } body { margin: 0; max-width: none; font-size: 10pt; print-color-adjust: exact; }
  .sheets { grid-template-columns: 1fr 1fr; } h2, h3 { break-after: avoid; } .chart { min-width: 0; break-inside: avoid; } }
)";

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

std::string numberOf(const PageRead &page) {
    return std::to_string(page.header.wPageNumber);
}

/// Nothing is on it, and nothing was to be.
bool isBlank(const PageRead &page) {
    return page.complete && page.received == 0;
}

/// A job and what the page shows of it.
struct JobOnPage {
    const JobReport &report;
    const ShownJob &shown;

    [[nodiscard]] const PageRead &firstOf(const Sheet &sheet) const {
        return report.pages[sheet.front ? *sheet.front : *sheet.back];
    }

    [[nodiscard]] ShownSide side(std::size_t place) const {
        return place < shown.sides.size() ? shown.sides[place] : ShownSide();
    }
};

struct NumberedSheet {
    std::size_t number; ///< through all jobs, in the order in which they were begun
    Sheet sheet;
};

/// The job's sheets by the copy that they are of, from 1: by how often their page has come so far.
std::map<unsigned, std::vector<NumberedSheet>> copiesIn(const JobOnPage &job, std::size_t firstNumber) {
    std::map<unsigned, unsigned> seen;
    std::map<unsigned, std::vector<NumberedSheet>> copies;
    for (const Sheet &sheet : sheetsOf(job.report.pages)) {
        copies[++seen[job.firstOf(sheet).header.wPageNumber]].push_back({firstNumber++, sheet});
    }
    return copies;
}

/// The proportions of the paper, for the browser to keep the room.
std::string shapeOf(const ShownSide &side) {
    if (side.dots == 0 || side.lines == 0) {
        return " style='aspect-ratio: 210 / 297'";
    }
    return " style='aspect-ratio: " + std::to_string(side.dots) + " / " + std::to_string(side.lines) + "'";
}

std::string troubleOf(const JobOnPage &job, std::size_t place) {
    std::string html;
    if (!job.report.pages[place].complete) {
        const ShownSide side = job.side(place);
        html += " <span class='bad'>broke off at line " + std::to_string(side.linesBegun) + " of " +
                std::to_string(side.lines) + "</span>";
    }
    const auto &overruns = job.report.overruns;
    if (std::any_of(overruns.begin(), overruns.end(),
                    [place](const MemoryOverrun &overrun) { return overrun.page == place; })) {
        html += " <span class='bad'>overran the memory</span>";
    }
    if (place >= job.report.pagesPrinted) {
        html += " <span class='bad'>not printed</span>";
    }
    return html;
}

std::string pictureHtml(const JobOnPage &job, std::size_t place, const std::string &title) {
    const ShownSide side = job.side(place);
    if (side.picture.empty()) {
        return "<div class='paper'" + shapeOf(side) + ">cannot be shown</div>";
    }
    const char *const kind = place < job.report.pagesPrinted ? "paper" : "paper unprinted";
    return "<a class='" + std::string(kind) + "'" + shapeOf(side) + " href='" + side.picture +
           "'><img loading='lazy' src='" + side.picture + "' alt='" + title + "'></a>";
}

std::string sideHtml(const char *name, const std::optional<std::size_t> &place, const NumberedSheet &sheet,
                     const JobOnPage &job) {
    if (!place) {
        const ShownSide other = job.side(sheet.sheet.front ? *sheet.sheet.front : *sheet.sheet.back);
        return "<figure><div class='paper none'" + shapeOf(other) + ">not printed on</div><figcaption>" +
               name + "</figcaption></figure>\n";
    }
    const PageRead &page = job.report.pages[*place];
    const std::string title = "page " + numberOf(page) + (isBlank(page) ? ", blank" : "");
    return "<figure>" +
           pictureHtml(job, *place, "Sheet " + std::to_string(sheet.number) + ", " + name + ": " + title) +
           "<figcaption>" + name + ": " + title + troubleOf(job, *place) + "</figcaption></figure>\n";
}

std::string sheetHtml(const NumberedSheet &numbered, unsigned copy, const JobOnPage &job) {
    return "<div class='sheet'><div class='sides'>\n" +
           sideHtml("Front", numbered.sheet.front, numbered, job) +
           sideHtml("Back", numbered.sheet.back, numbered, job) + "</div><p>Sheet " +
           std::to_string(numbered.number) + ", copy " + std::to_string(copy) + ": " +
           paperOf(job.firstOf(numbered.sheet).header) + "</p></div>\n";
}

std::string sheetsHtml(const JobOnPage &job, std::size_t firstNumber) {
    std::string html;
    for (const auto &[copy, sheets] : copiesIn(job, firstNumber)) {
        html += "<h3>Copy " + std::to_string(copy) + "</h3>\n<div class='sheets'>\n";
        for (const NumberedSheet &sheet : sheets) {
            html += sheetHtml(sheet, copy, job);
        }
        html += "</div>\n";
    }
    return html;
}

/// The sides in their order, and where the stack was turned.
std::string orderHtml(const JobReport &job) {
    if (job.pages.empty()) {
        return "<p>Not a single page came.</p>\n";
    }
    const std::vector<std::size_t> pauses = pausesOf(job.pages);
    std::string html = "<p>The pages in the order of printing:</p>\n<ol class='order'>\n";
    for (std::size_t place = 0; place < job.pages.size(); ++place) {
        if (std::find(pauses.begin(), pauses.end(), place) != pauses.end()) {
            html += "<li class='pause'>pause: the stack is turned by hand</li>\n";
        }
        const PageRead &page = job.pages[place];
        html += isBlank(page) ? "<li class='blank'>" + numberOf(page) + " blank</li>\n"
                              : "<li>" + numberOf(page) + "</li>\n";
    }
    return html + "</ol>\n";
}

std::string problemsHtml(const JobOnPage &job) {
    std::string html;
    const auto add = [&html](const std::string &text) { html += "<li class='bad'>" + text + "</li>\n"; };
    for (const ProblemFound &found : job.report.problems) {
        add("at byte " + std::to_string(found.offset) + ": " + htmlText(found.text));
    }
    for (const raster::PageProblemFound &found : job.shown.problems) {
        add("at byte " + std::to_string(found.offset) + ": " + htmlText(found.text));
    }
    if (job.shown.problemCount > job.shown.problems.size()) {
        add("and " + std::to_string(job.shown.problemCount - job.shown.problems.size()) + " more like it");
    }
    if (!job.report.overruns.empty()) {
        add(counted(job.report.overruns.size(), "memory overrun", "memory overruns"));
    }
    return html.empty() ? "" : "<ul>\n" + html + "</ul>\n";
}

/// How both sides of the paper were printed on.
const char *sidesOf(const JobReport &job) {
    const bool withUnit = std::any_of(job.pages.begin(), job.pages.end(), [](const PageRead &page) {
        return (page.header.bType & pageTypeFirstOfSheet) != 0;
    });
    if (!pausesOf(job.pages).empty()) {
        return "two-sided by hand";
    }
    return withUnit ? "two-sided by the duplex unit" : "one-sided";
}

std::string summaryHtml(const JobOnPage &job) {
    const JobReport &report = job.report;
    const std::string word = nameOf(report.outcome());
    const std::string user = job.shown.user.empty() ? "" : "Of <bdi>" + htmlText(job.shown.user) + "</bdi>, ";
    return "<p>" + user + "<strong" + (report.outcome() == JobOutcome::whole ? "" : " class='bad'") + ">" +
           word + "</strong>: " + counted(report.pages.size(), "side", "sides") + " on " +
           counted(sheetsOf(report.pages).size(), "sheet", "sheets") + ", " +
           counted(copiesOf(report.pages), "copy", "copies") + ", " + std::to_string(report.pagesPrinted) +
           " printed, " + sidesOf(report) + ", " + counted(report.totals.bytes, "byte", "bytes") + ".</p>\n";
}

std::string jobHtml(const JobOnPage &job, std::size_t firstNumber) {
    const std::string name = job.shown.name.empty() ? "<span class='soft'>without a name</span>"
                                                    : "<bdi>" + htmlText(job.shown.name) + "</bdi>";
    return "<section>\n<h2>Job " + std::to_string(job.report.number) + ": " + name + "</h2>\n" +
           summaryHtml(job) + problemsHtml(job) + orderHtml(job.report) + sheetsHtml(job, firstNumber) +
           "</section>\n";
}

} // namespace

std::string sheetPage(const std::vector<JobReport> &jobs, const std::vector<ShownJob> &shown,
                      const Course &course) {
    std::string html =
        "<!DOCTYPE html>\n<html lang='en'>\n<head>\n<meta charset='utf-8'>\n<meta name='viewport' "
        "content='width=device-width'>\n<title>What came out of the printer</title>\n<style>\n";
    html.append(style).append(timeChartStyle());
    html += "</style>\n</head>\n<body>\n<h1>What came out of the printer</h1>\n";
    html += jobs.empty() ? "<p>No job has come.</p>\n" : "";
    std::size_t sheet = 1;
    std::vector<MemoryOverrun> overruns;
    for (std::size_t i = 0; i < jobs.size() && i < shown.size(); ++i) {
        html += jobHtml({jobs[i], shown[i]}, sheet);
        sheet += sheetsOf(jobs[i].pages).size();
        overruns.insert(overruns.end(), jobs[i].overruns.begin(), jobs[i].overruns.end());
    }
    return html + timeChart(course, overruns) + "</body>\n</html>\n";
}

} // namespace veltrin::printer
