#include "tools/dump/TextReport.h"

#include "platform/Counted.h"
#include "tools/dump/Meanings.h"

#include <iomanip>
#include <variant>

namespace veltrin {

namespace {

constexpr int offsetWidth = 10;
constexpr std::size_t lineWidth = 80;

const char *nameOfCommand(const CommandRecord &record) {
    if (record == cancelCommand) {
        return "cancel record: the job was cancelled";
    }
    return record == reverseDataReset ? "reverse data reset record" : "unknown command record";
}

std::string trayContents(std::uint8_t size, std::uint8_t type) {
    return "size " + withName(size, nameOfPaperSize(size)) + ", type " +
           withName(type, nameOfMediaType(type));
}

/// Where a page's paper comes from, and which.
std::string paperOf(const PageHeader &page) {
    return "tray " + withName(page.bPaperTray, nameOfPageTray(page.bPaperTray)) + ", media " +
           withName(page.bMediaType, nameOfMediaType(page.bMediaType)) + ", paper " +
           withName(page.bPaperSize, nameOfPaperSize(page.bPaperSize));
}

std::string typeOf(const PageHeader &page) {
    return hexadecimal(page.bType, 2) + "  " + listed(meaningsOfPageType(page.bType));
}

std::string settingOf(const BandHeader &band) {
    const std::uint32_t others = band.dwBandSetting & ~bandSettingLastOfPage;
    std::string text = band.isLastOfPage() ? "  last" : "";
    if (others != 0) {
        text += "  bits " + hexadecimal(others, 8);
    }
    return text;
}

} // namespace

void TextReport::show(const StreamEvent &event) {
    std::visit([this](const auto &part) { showPart(part); }, event);
}

void TextReport::show(const raster::PageProblemFound &found) {
    showProblem(found.offset, found.text);
}

/// The line of its page stands below it.
void TextReport::show(const PictureWritten & /*picture*/) {
    ++pictures;
}

void TextReport::showTotals(const StreamTotals &totals) {
    out << '\n'
        << counted(totals.pages, "page", "pages") << ", " << counted(totals.bands, "band", "bands") << ", "
        << counted(totals.dataBytes, "byte", "bytes") << " of data; "
        << counted(totals.bytes, "byte", "bytes") << " in all";
    out << '\n';
    if (totals.skipped != 0) {
        out << counted(totals.skipped, "byte was", "bytes were") << " skipped.\n";
    }
    if (totals.unread != 0) {
        out << (totals.unread == 1 ? "The last byte was"
                                   : "The last " + std::to_string(totals.unread) + " bytes were")
            << " not read.\n";
    }
    if (totals.cancelled) {
        out << "The job was cancelled.\n";
    }
    if (pictures != 0) {
        out << counted(pictures, "picture", "pictures") << " written\n";
    }
    if (totals.problems != 0) {
        out << counted(totals.problems, "problem", "problems") << '\n';
    }
}

void TextReport::showPart(const IdentifierRead &identifier) {
    beginPart(identifier.offset, "identifier");
    line("text", escaped({identifier.text.data(), identifier.text.size()}));
}

void TextReport::showPart(const FileHeaderRead &read) {
    const FileHeader &header = read.header;
    beginPart(read.offset, "job file header");
    line("file name", escaped(stringIn(header.szFileName)));
    line("job setting",
         hexadecimal(header.wJobSetting, 4) + "  " + listed(meaningsOfJobSetting(header.wJobSetting)));
    line("job extension", hexadecimal(header.wJobExtend, 4));
    line("version", std::to_string(header.Version));
    line("copy count", std::to_string(header.wCopyCount));
    line("submitted", std::to_string(header.dwJobSubmittedTime));
    line("resolution", std::to_string(header.wResolution));
    line("colour mode", std::to_string(header.bColorMode));
    line("compression", hexadecimal(header.wCompressMode, 4));
    line("toner saving", std::to_string(header.bTonerSaving));
    line("EET setting", std::to_string(header.bEETSetting));
    line("darkness", std::to_string(header.bDarkness));
}

void TextReport::showPart(const FileHeaderExRead &read) {
    const FileHeaderEx &header = read.header;
    beginPart(read.offset, "extended job file header");
    line("host name", escaped(stringIn(header.szHostName)));
    line("user name", escaped(stringIn(header.szUserName)));
    line("tray 1", trayContents(header.bTray1Size, header.bTray1Type));
    line("tray 2", trayContents(header.bTray2Size, header.bTray2Type));
    line("tray 3", trayContents(header.bTray3Size, header.bTray3Type));
    line("tray 4", trayContents(header.bTray4Size, header.bTray4Type));
    line("bypass tray", trayContents(header.bBypassSize, header.bBypassType));
}

void TextReport::showPart(const PageBegun &page) {
    showsBands = true;
    table = Table::none;
    out << '\n';
    beginPart(page.offset, "page " + std::to_string(page.header.wPageNumber.value()));
    line("type", typeOf(page.header));
    line("paper", paperOf(page.header));
}

void TextReport::showPart(const BandRead &read) {
    showsBands = true;
    beginTable(Table::bands);
    const BandHeader &band = read.header;
    out << std::setw(offsetWidth) << read.offset << "  " << std::setw(5);
    if (read.pageOffset) {
        out << read.number;
    } else {
        out << '-';
    }
    for (const std::uint32_t size : {band.dwKSize, band.dwYSize, band.dwMSize, band.dwCSize}) {
        out << "  " << std::setw(8) << size;
    }
    out << "  " << std::setw(5) << band.wBandWidth << "  " << std::setw(5) << band.wBandHeight
        << settingOf(band) << '\n';
}

/// It is not asked for.
void TextReport::showPart(const BandDataRead & /*data*/) {}

void TextReport::showPart(const PageRead &page) {
    const char *const state = page.complete ? "" : ", INCOMPLETE";
    if (showsBands) {
        table = Table::ended;
        out << std::string(offsetWidth + 2, ' ') << counted(page.bands, "band", "bands") << ", "
            << counted(page.received, "byte", "bytes") << " of data" << state << '\n';
        return;
    }
    beginTable(Table::pages);
    if (const std::string its = paperOf(page.header); paper != its) {
        paper = its;
        out << std::string(offsetWidth + 2, ' ') << paper << '\n';
    }
    out << std::setw(offsetWidth) << page.offset << "  " << std::setw(5) << page.header.wPageNumber << "  "
        << std::setw(5) << page.bands << "  " << std::setw(10) << page.received << "  " << typeOf(page.header)
        << state << '\n';
}

void TextReport::showPart(const EndOfJobRead &end) {
    beginPart(end.offset, "end-of-job mark");
}

void TextReport::showPart(const CommandRead &command) {
    beginPart(command.offset, nameOfCommand(command.record));
}

void TextReport::showPart(const ProblemFound &problem) {
    showProblem(problem.offset, problem.text);
}

void TextReport::showProblem(std::uint64_t offset, const std::string &text) {
    paragraph(offset, "PROBLEM (at " + hexadecimal(offset, 1) + "): " + text);
}

void TextReport::showPart(const SearchEnded &search) {
    if (!search.next) {
        paragraph(search.offset, "no header that makes sense follows");
        return;
    }
    const std::string place = "(at " + hexadecimal(*search.next, 1) + ")";
    const std::string part = partName(search.tag);
    const std::string bytes = counted(*search.next - search.offset, "byte", "bytes");
    paragraph(*search.next, search.goesOn ? "goes on " + place + " with " + part + "; " + bytes + " skipped"
                                          : "next header that makes sense " + place + ": " + part + ", " +
                                                bytes + " on; --resync goes on there");
}

void TextReport::beginPart(std::uint64_t offset, const std::string &name) {
    if (table != Table::none) {
        table = Table::none;
        out << '\n';
    }
    out << std::setw(offsetWidth) << offset << "  " << name << '\n';
}

void TextReport::line(const std::string &name, const std::string &value) {
    out << std::string(offsetWidth + 4, ' ') << std::left << std::setw(15) << name << std::right << value
        << '\n';
}

/// A text behind its offset, broken at a blank where a line is full.
void TextReport::paragraph(std::uint64_t offset, std::string_view text) {
    out << std::setw(offsetWidth) << offset << "  ";
    std::size_t room = lineWidth - (offsetWidth + 2);
    while (text.size() > room) {
        const std::size_t blank = text.rfind(' ', room);
        if (blank == std::string_view::npos) {
            break;
        }
        out << text.substr(0, blank) << '\n' << std::string(offsetWidth + 4, ' ');
        text.remove_prefix(blank + 1);
        room = lineWidth - (offsetWidth + 4);
    }
    out << text << '\n';
}

void TextReport::beginTable(Table next) {
    if (table == next) {
        return;
    }
    table = next;
    paper.clear();
    out << '\n' << std::setw(offsetWidth) << "byte";
    if (next == Table::pages) {
        out << "   page  bands        data  type\n";
    } else {
        out << "   band     black    yellow   magenta      cyan  width  lines\n";
    }
}

} // namespace veltrin
