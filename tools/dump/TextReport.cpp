#include "tools/dump/TextReport.h"

#include "tools/dump/Meanings.h"

#include <iomanip>
#include <variant>

namespace veltrin {

namespace {

constexpr int offsetWidth = 12;

std::string counted(std::uint64_t number, const char *one, const char *many) {
    return std::to_string(number) + ' ' + (number == 1 ? one : many);
}

const char *nameOfCommand(const CommandRecord &record) {
    if (record == cancelCommand) {
        return "cancel record: the job was cancelled";
    }
    return record == reverseDataReset ? "reverse data reset record" : "unknown command record";
}

std::string trays(std::uint8_t tray1, std::uint8_t tray2, std::uint8_t tray3, std::uint8_t tray4,
                  std::uint8_t bypass) {
    return std::to_string(tray1) + ", " + std::to_string(tray2) + ", " + std::to_string(tray3) + ", " +
           std::to_string(tray4) + ", bypass " + std::to_string(bypass);
}

} // namespace

void TextReport::show(const StreamEvent &event) {
    std::visit([this](const auto &part) { showPart(part); }, event);
}

void TextReport::showTotals(const StreamTotals &totals) {
    out << '\n'
        << counted(totals.pages, "page", "pages") << ", " << counted(totals.bands, "band", "bands") << ", "
        << counted(totals.dataBytes, "byte", "bytes") << " of data; "
        << counted(totals.bytes, "byte", "bytes") << " in all";
    if (totals.unread != 0) {
        out << ", of which the last " << totals.unread << " could not be read";
    }
    out << '\n';
    if (totals.cancelled) {
        out << "The job was cancelled.\n";
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
    line("tray sizes", trays(header.bTray1Size, header.bTray2Size, header.bTray3Size, header.bTray4Size,
                             header.bBypassSize));
    line("tray types", trays(header.bTray1Type, header.bTray2Type, header.bTray3Type, header.bTray4Type,
                             header.bBypassType));
}

void TextReport::showPart(const PageRead &page) {
    if (!inPageTable) {
        inPageTable = true;
        out << '\n'
            << std::setw(offsetWidth) << "byte"
            << "   page  type  tray  media  paper  bands          data  meaning\n";
    }
    const PageHeader &header = page.header;
    out << std::setw(offsetWidth) << page.offset << "  " << std::setw(5) << header.wPageNumber << "  "
        << hexadecimal(header.bType, 2) << "  " << std::setw(4) << unsigned{header.bPaperTray} << "  "
        << std::setw(5) << unsigned{header.bMediaType} << "  " << std::setw(5) << unsigned{header.bPaperSize}
        << "  " << std::setw(5) << page.bands << "  " << std::setw(12) << page.received << "  "
        << listed(meaningsOfPageType(header.bType)) << (page.complete ? "" : ", INCOMPLETE") << '\n';
}

void TextReport::showPart(const EndOfJobRead &end) {
    beginPart(end.offset, "end-of-job mark");
}

void TextReport::showPart(const CommandRead &command) {
    beginPart(command.offset, nameOfCommand(command.record));
}

void TextReport::showPart(const ProblemFound &problem) {
    out << std::setw(offsetWidth) << problem.offset << "  PROBLEM (at " << hexadecimal(problem.offset, 1)
        << "): " << problem.text << '\n';
}

void TextReport::beginPart(std::uint64_t offset, const std::string &name) {
    if (inPageTable) {
        inPageTable = false;
        out << '\n';
    }
    out << std::setw(offsetWidth) << offset << "  " << name << '\n';
}

void TextReport::line(const char *name, const std::string &value) {
    out << std::string(offsetWidth + 4, ' ') << std::left << std::setw(15) << name << std::right << value
        << '\n';
}

} // namespace veltrin
