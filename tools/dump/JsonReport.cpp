#include "tools/dump/JsonReport.h"

#include "tools/dump/Meanings.h"

#include <nlohmann/json.hpp>

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace veltrin {

namespace {

using Json = nlohmann::ordered_json;

/// The document is ASCII; bytes that are no UTF-8 become replacement characters.
std::string written(const Json &value) {
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

Json partAt(std::uint64_t offset, const char *kind) {
    return {{"kind", kind}, {"offset", offset}};
}

Json part(const IdentifierRead &read) {
    Json json = partAt(read.offset, "identifier");
    json["text"] = std::string(read.text.data(), read.text.size());
    return json;
}

/// The name of a code; null for a code without one.
Json named(std::string_view name) {
    return name.empty() ? Json(nullptr) : Json(name);
}

const char *kindOf(Tag tag) {
    switch (tag) {
    case fileHeaderTag:
        return "file-header";
    case fileHeaderExTag:
        return "extended-file-header";
    case pageHeaderTag:
        return "page";
    case bandHeaderTag:
        return "band";
    case endOfJobTag:
        return "end-of-job";
    default:
        return "command";
    }
}

// Fields stand under their names in the format, in its order; reserved ones are left out.

Json part(const FileHeaderRead &read) {
    const FileHeader &header = read.header;
    Json json = partAt(read.offset, "file-header");
    json["dwJobHeaderLen"] = header.dwJobHeaderLen.value();
    json["Version"] = header.Version.value();
    json["wCopyCount"] = header.wCopyCount.value();
    json["bTonerSaving"] = header.bTonerSaving;
    json["bEETSetting"] = header.bEETSetting;
    json["bDarkness"] = header.bDarkness;
    json["wJobSetting"] = header.wJobSetting.value();
    json["wJobExtend"] = header.wJobExtend.value();
    json["dwJobSubmittedTime"] = header.dwJobSubmittedTime.value();
    json["bColorMode"] = header.bColorMode;
    json["wResolution"] = header.wResolution.value();
    json["wCompressMode"] = header.wCompressMode.value();
    json["szFileName"] = stringIn(header.szFileName);
    json["duplex"] = (header.wJobSetting & jobSettingDuplex) != 0;
    json["manualDuplex"] = (header.wJobSetting & jobSettingManualDuplex) != 0;
    json["meaning"] = meaningsOfJobSetting(header.wJobSetting);
    return json;
}

Json part(const FileHeaderExRead &read) {
    const FileHeaderEx &header = read.header;
    Json json = partAt(read.offset, "extended-file-header");
    json["dwJobHeaderLen"] = header.dwJobHeaderLen.value();
    json["szHostName"] = stringIn(header.szHostName);
    json["szUserName"] = stringIn(header.szUserName);
    json["bTray1Size"] = header.bTray1Size;
    json["bTray2Size"] = header.bTray2Size;
    json["bTray3Size"] = header.bTray3Size;
    json["bTray4Size"] = header.bTray4Size;
    json["bBypassSize"] = header.bBypassSize;
    json["bTray1Type"] = header.bTray1Type;
    json["bTray2Type"] = header.bTray2Type;
    json["bTray3Type"] = header.bTray3Type;
    json["bTray4Type"] = header.bTray4Type;
    json["bBypassType"] = header.bBypassType;
    json["names"] = {{"bTray1Size", named(nameOfPaperSize(header.bTray1Size))},
                     {"bTray2Size", named(nameOfPaperSize(header.bTray2Size))},
                     {"bTray3Size", named(nameOfPaperSize(header.bTray3Size))},
                     {"bTray4Size", named(nameOfPaperSize(header.bTray4Size))},
                     {"bBypassSize", named(nameOfPaperSize(header.bBypassSize))},
                     {"bTray1Type", named(nameOfMediaType(header.bTray1Type))},
                     {"bTray2Type", named(nameOfMediaType(header.bTray2Type))},
                     {"bTray3Type", named(nameOfMediaType(header.bTray3Type))},
                     {"bTray4Type", named(nameOfMediaType(header.bTray4Type))},
                     {"bBypassType", named(nameOfMediaType(header.bBypassType))}};
    return json;
}

Json part(const PageRead &page) {
    const PageHeader &header = page.header;
    Json json = partAt(page.offset, "page");
    json["dwHeaderLen"] = header.dwHeaderLen.value();
    json["bPaperSize"] = header.bPaperSize;
    json["bPaperTray"] = header.bPaperTray;
    json["bMediaType"] = header.bMediaType;
    json["bOutputTray"] = header.bOutputTray;
    json["wScanLineWidth"] = header.wScanLineWidth.value();
    json["wHeight"] = header.wHeight.value();
    json["K_Vskew"] = header.K_Vskew.value();
    json["Y_Vskew"] = header.Y_Vskew.value();
    json["M_Vskew"] = header.M_Vskew.value();
    json["C_Vskew"] = header.C_Vskew.value();
    json["K_Hskew"] = header.K_Hskew.value();
    json["Y_Hskew"] = header.Y_Hskew.value();
    json["M_Hskew"] = header.M_Hskew.value();
    json["C_Hskew"] = header.C_Hskew.value();
    json["bPlane"] = header.bPlane;
    json["bType"] = header.bType;
    json["wPageNumber"] = header.wPageNumber.value();
    json["dwKSize"] = header.dwKSize.value();
    json["dwYSize"] = header.dwYSize.value();
    json["dwMSize"] = header.dwMSize.value();
    json["dwCSize"] = header.dwCSize.value();
    json["wPageExtend"] = header.wPageExtend.value();
    json["wBandNo"] = header.wBandNo.value();
    json["wPaperWidthmm"] = header.wPaperWidthmm.value();
    json["wPaperHeightmm"] = header.wPaperHeightmm.value();
    json["meaning"] = meaningsOfPageType(header.bType);
    json["names"] = {{"bPaperSize", named(nameOfPaperSize(header.bPaperSize))},
                     {"bPaperTray", named(nameOfPageTray(header.bPaperTray))},
                     {"bMediaType", named(nameOfMediaType(header.bMediaType))}};
    json["complete"] = page.complete;
    json["bands"] = page.bands;
    json["announced"] = {{"black", page.announced.black},
                         {"yellow", page.announced.yellow},
                         {"magenta", page.announced.magenta},
                         {"cyan", page.announced.cyan}};
    json["dataBytes"] = page.received;
    return json;
}

/// The page stands behind its bands, with all that is known of it then.
Json part(const PageBegun & /*page*/) {
    return nullptr;
}

Json part(const BandRead &read) {
    const BandHeader &band = read.header;
    Json json = partAt(read.offset, "band");
    json["dwBandSetting"] = band.dwBandSetting.value();
    json["dwKSize"] = band.dwKSize.value();
    json["dwYSize"] = band.dwYSize.value();
    json["dwMSize"] = band.dwMSize.value();
    json["dwCSize"] = band.dwCSize.value();
    json["wBandWidth"] = band.wBandWidth.value();
    json["wBandHeight"] = band.wBandHeight.value();
    json["wBandExtend"] = band.wBandExtend.value();
    json["bPageSet"] = band.bPageSet;
    json["wPageNumber"] = read.pageOffset ? Json(read.pageNumber) : Json(nullptr);
    json["pageOffset"] = read.pageOffset ? Json(*read.pageOffset) : Json(nullptr);
    json["number"] = read.pageOffset ? Json(read.number) : Json(nullptr);
    json["size"] = band.dataSize();
    json["last"] = band.isLastOfPage();
    return json;
}

/// It is not asked for.
Json part(const BandDataRead & /*data*/) {
    return nullptr;
}

Json part(const EndOfJobRead &read) {
    return partAt(read.offset, "end-of-job");
}

Json part(const CommandRead &read) {
    Json json = partAt(read.offset, "command");
    json["command"] = read.record == cancelCommand      ? "cancel"
                      : read.record == reverseDataReset ? "reset"
                                                        : "unknown";
    return json;
}

Json part(const ProblemFound &found) {
    Json json = partAt(found.offset, "problem");
    json["problem"] = nameOf(found.problem);
    json["text"] = found.text;
    return json;
}

Json part(const SearchEnded &search) {
    Json json = partAt(search.offset, "search");
    json["next"] = search.next ? Json(*search.next) : Json(nullptr);
    json["nextKind"] = search.next ? Json(kindOf(search.tag)) : Json(nullptr);
    json["skipped"] = search.goesOn ? *search.next - search.offset : 0;
    return json;
}

} // namespace

JsonReport::JsonReport(std::ostream &output, const std::string &inputName) : out(output) {
    out << "{\"input\": " << written(inputName) << ",\n \"records\": [";
}

void JsonReport::show(const StreamEvent &event) {
    const Json json = std::visit([](const auto &read) { return part(read); }, event);
    if (!json.is_null()) {
        add(written(json));
    }
}

void JsonReport::show(const raster::PageProblemFound &found) {
    Json json = partAt(found.offset, "problem");
    json["problem"] = raster::nameOf(found.problem);
    json["text"] = found.text;
    add(written(json));
}

void JsonReport::show(const PictureWritten &picture) {
    Json json = partAt(picture.offset, "picture");
    json["file"] = picture.file;
    json["width"] = picture.width;
    json["height"] = picture.height;
    json["resolution"] = picture.resolution;
    add(written(json));
}

void JsonReport::add(const std::string &record) {
    out << (first ? "\n  " : ",\n  ") << record;
    first = false;
}

void JsonReport::showTotals(const StreamTotals &totals) {
    const Json json = {
        {"bytes", totals.bytes},         {"unread", totals.unread},       {"pages", totals.pages},
        {"bands", totals.bands},         {"dataBytes", totals.dataBytes}, {"endOfJob", totals.endOfJob},
        {"cancelled", totals.cancelled}, {"problems", totals.problems},   {"skipped", totals.skipped}};
    out << "\n ],\n \"totals\": " << written(json) << "}\n";
}

} // namespace veltrin
