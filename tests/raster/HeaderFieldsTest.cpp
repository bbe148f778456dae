#include "raster/HeaderFields.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace veltrin::raster {
namespace {

constexpr PagePlacement a4Page600 = {{4961, 0, 100, 4761}, {7016, 0, 100, 6816}, 210, 297};

std::string textIn(const std::array<char, 64> &field) {
    return {field.data(), strnlen(field.data(), field.size())};
}

TEST(HeaderFields, NamesAreCutToFit) {
    EXPECT_EQ(textIn(fittedName("")), "");
    EXPECT_EQ(textIn(fittedName("letter.pdf")), "letter.pdf");
    EXPECT_EQ(textIn(fittedName(std::string(63, 'x'))), std::string(63, 'x'));
    EXPECT_EQ(textIn(fittedName(std::string(64, 'x'))), std::string(63, 'x'));
    EXPECT_EQ(textIn(fittedName(std::string(500, 'x'))), std::string(63, 'x'));
    // A character of two bytes and one of four, at and across the end of the field.
    EXPECT_EQ(textIn(fittedName(std::string(61, 'x') + "\xC3\xBC")), std::string(61, 'x') + "\xC3\xBC");
    EXPECT_EQ(textIn(fittedName(std::string(62, 'x') + "\xC3\xBC")), std::string(62, 'x'));
    EXPECT_EQ(textIn(fittedName(std::string(60, 'x') + "\xF0\x9F\x96\xA8")), std::string(60, 'x'));
    // What is no UTF-8 does not loop for ever.
    EXPECT_EQ(textIn(fittedName(std::string(100, '\x80'))), "");
    const std::array<char, 64> field = fittedName(std::string_view("a\0b", 3));
    EXPECT_EQ(std::string(field.begin(), field.end()), "a" + std::string(63, '\0'));
}

TEST(HeaderFields, TheIdentifierIsTheJobsUUID) {
    const std::string uuid = "6ba7b810-9dad-11d1-80b4-00c04fd430c8";
    EXPECT_EQ(identifierFor(JobOptions("job-uuid=urn:uuid:" + uuid), "7"), uuid);
    for (const std::string &odd :
         {std::string(""), std::string("job-uuid=" + uuid), std::string("job-uuid=urn:uuid:short"),
          std::string("job-uuid=urn:uuid:6ba7b810-9dad-11d1-80b4-00c04fd430cx"),
          std::string("job-uuid=urn:uuid:6ba7b810x9dad-11d1-80b4-00c04fd430c8")}) {
        EXPECT_EQ(identifierFor(JobOptions(odd), "17"), "00000000-0000-4000-8000-000000000017") << odd;
    }
    EXPECT_EQ(identifierFor(JobOptions(), "99999999999999999999999").size(), identifierSize);
    EXPECT_EQ(identifierFor(JobOptions(), ""), "00000000-0000-4000-8000-000000000000");
}

TEST(HeaderFields, JobFileHeader) {
    const JobIdentity identity = {"7", "letter.pdf", "anna", "desk", 1700000000};
    const FileHeader header = fileHeaderFor(identity, {600, true, CompressMode::zstd});
    EXPECT_EQ(header.MagicNumber, fileHeaderTag);
    EXPECT_EQ(header.dwJobHeaderLen, 120U);
    EXPECT_EQ(header.Version, 1);
    EXPECT_EQ(header.wCopyCount, 1);
    EXPECT_EQ(header.wJobSetting, 0) << "the filter sets the bits for two sides";
    EXPECT_EQ(header.dwJobSubmittedTime, 1700000000U);
    EXPECT_EQ(header.bColorMode, 1);
    EXPECT_EQ(header.wResolution, 600);
    EXPECT_EQ(header.wCompressMode, 1);
    EXPECT_EQ(textIn(header.szFileName), "letter.pdf");
    const FileHeader gray = fileHeaderFor(identity, {300, false, CompressMode::raw});
    EXPECT_EQ(gray.bColorMode, 0);
    EXPECT_EQ(gray.wResolution, 300);
    EXPECT_EQ(gray.wCompressMode, 0);
    const FileHeaderEx more = fileHeaderExFor(identity);
    EXPECT_EQ(more.MagicNumber, fileHeaderExTag);
    EXPECT_EQ(more.dwJobHeaderLen, 152U);
    EXPECT_EQ(textIn(more.szHostName), "desk");
    EXPECT_EQ(textIn(more.szUserName), "anna");
}

TEST(HeaderFields, Trays) {
    EXPECT_EQ(pageTray("Bypass"), 1);
    EXPECT_EQ(pageTray("Tray1"), 2);
    EXPECT_EQ(pageTray("Tray2"), 3);
    EXPECT_EQ(pageTray(""), 2);
    EXPECT_EQ(pageTray("Auto"), 2);
}

TEST(HeaderFields, SizesOfThePaper) {
    EXPECT_EQ(pageSizeCode("A4", 0, 0), 9);
    EXPECT_EQ(pageSizeCode("Custom.595.00x842.00", 210, 297), 255);
    EXPECT_EQ(pageSizeCode("", 210, 297), 9);
    EXPECT_EQ(pageSizeCode("A4Small", 210, 297), 9);
    EXPECT_EQ(pageSizeCode("iso_dl_110x220mm", 110, 220), 27);
    EXPECT_EQ(pageSizeCode("", 216, 279), 1);
    EXPECT_EQ(pageSizeCode("", 215, 280), 1) << "sizes in points are rounded";
    EXPECT_EQ(pageSizeCode("", 208, 297), 255);
    EXPECT_EQ(pageSizeCode("", 210, 299), 255);
    EXPECT_EQ(pageSizeCode("", 200, 200), 255);
    EXPECT_EQ(pageSizeCode("", 0, 0), 255);
}

TEST(HeaderFields, PageHeader) {
    JobTicket ticket;
    ticket.paperType = "Thick160";
    ticket.inputSlot = "Tray2";
    const PageHeader header = pageHeaderFor({600, true}, ticket, a4Page600, "A4", 3, {10, 20, 30, 40});
    EXPECT_EQ(header.MagicNumber, pageHeaderTag);
    EXPECT_EQ(header.dwHeaderLen, 64U);
    EXPECT_EQ(header.bPaperSize, 9);
    EXPECT_EQ(header.bPaperTray, 3);
    EXPECT_EQ(header.bMediaType, 13);
    EXPECT_EQ(header.wScanLineWidth, 4961);
    EXPECT_EQ(header.wHeight, 7016);
    EXPECT_EQ(header.bPlane, 4);
    EXPECT_EQ(header.bType, 0);
    EXPECT_EQ(header.wPageNumber, 3);
    EXPECT_EQ(header.dwKSize, 10U);
    EXPECT_EQ(header.dwYSize, 20U);
    EXPECT_EQ(header.dwMSize, 30U);
    EXPECT_EQ(header.dwCSize, 40U);
    EXPECT_EQ(header.wBandNo, 55);
    EXPECT_EQ(header.wPaperWidthmm, 210U);
    EXPECT_EQ(header.wPaperHeightmm, 297U);
    const PageHeader plain = pageHeaderFor({600, false}, {}, a4Page600, "A4", 65537, {});
    EXPECT_EQ(plain.bPaperTray, 2);
    EXPECT_EQ(plain.bMediaType, 1);
    EXPECT_EQ(plain.bPlane, 1);
    EXPECT_EQ(plain.wPageNumber, 1);
}

TEST(HeaderFields, TheBandsMakeThePage) {
    for (const std::uint32_t lines : {1U, 127U, 128U, 129U, 256U, 7016U, 65535U}) {
        PagePlacement placement = a4Page600;
        placement.down.page = lines;
        std::uint32_t sum = 0;
        for (std::uint32_t band = 0; band < bandCount(lines); ++band) {
            const BandHeader header = bandHeaderFor(placement, band, {1, 2, 3, 4});
            EXPECT_EQ(header.MagicNumber, bandHeaderTag);
            EXPECT_EQ(header.isLastOfPage(), band + 1 == bandCount(lines)) << lines;
            EXPECT_EQ(header.wBandWidth, 4961);
            EXPECT_GT(header.wBandHeight, 0);
            EXPECT_LE(header.wBandHeight, bandLines);
            EXPECT_EQ(header.dwKSize, 1U);
            EXPECT_EQ(header.dwYSize, 2U);
            EXPECT_EQ(header.dwMSize, 3U);
            EXPECT_EQ(header.dwCSize, 4U);
            sum += header.wBandHeight;
        }
        EXPECT_EQ(sum, lines);
    }
}

} // namespace
} // namespace veltrin::raster
