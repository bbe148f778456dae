// Makes the seeds that the fuzzer begins with: a folder for each target.

#include "driver/stream/StreamMaker.h"
#include "fuzz/Seeds.h"
#include "tests/support/ExpectedOutput.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

namespace veltrin::fuzz {

SeedFolder::SeedFolder(const std::filesystem::path &seeds, std::string_view target) : path(seeds / target) {
    std::filesystem::remove_all(path);
    std::filesystem::create_directories(path);
}

void SeedFolder::add(const std::string &name, std::string_view contents) const {
    std::ofstream file(path / name, std::ios::binary);
    file << contents;
    if (!file.flush()) {
        std::cerr << (path / name) << " cannot be written\n";
        std::exit(EXIT_FAILURE);
    }
}

void SeedFolder::addFiles(const std::filesystem::path &folder, std::string_view ending,
                          std::string_view lead) const {
    for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().filename().string().ends_with(ending)) {
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
            add(entry.path().parent_path().filename().string() + "-" + entry.path().filename().string(),
                std::string(lead) + text);
        }
    }
}

namespace {

struct NamedStream {
    std::string name;
    std::string text;
};

StreamOptions document(std::uint32_t pages, std::uint32_t copies = 1, CopyOrder order = CopyOrder::collated) {
    StreamOptions options;
    options.pages = pages;
    options.copies = copies;
    options.order = order;
    options.bandsPerPage = 2;
    options.planeSizes = {3, 2, 1, 0};
    return options;
}

/// Streams as a renderer makes them, and damaged ones.
std::vector<NamedStream> streams() {
    std::vector<NamedStream> all = {
        {"one-page", makeStream(document(1))},       {"six-pages", makeStream(document(6))},
        {"three-twice", makeStream(document(3, 2))}, {"pairs", makeStream(document(4, 2, CopyOrder::pairs))},
        {"no-pages", makeStream(document(0))},
    };
    StreamOptions blank = document(3);
    blank.blankPage = true;
    all.push_back({"blank-page", makeStream(blank)});
    const std::string whole = makeStream(document(2));
    all.push_back({"cut", whole.substr(0, whole.size() - 9)});
    all.push_back({"second-stream", whole + whole});
    std::string damaged = whole;
    damaged.replace(36 + 272 + 64, 4, "DAMAGE");
    all.push_back({"damaged", damaged});
    return all;
}

void makeJobSeeds(const std::filesystem::path &seeds) {
    const SeedFolder folder(seeds, "job");
    const std::vector<test::JobOptions> jobs = {
        {},
        {.copies = 2, .collate = true},
        {.duplexing = 2, .sidesImaged = 6},
        {.copies = 2, .duplexing = 3, .sidesImaged = 8},
        {.copies = 2, .collate = true, .duplexing = 2, .sidesImaged = 6},
        {.duplexing = 2, .sidesImaged = 3, .jobName = "@letters 3)", .others = "media=A4 PaperType=Plain"},
    };
    std::size_t number = 0;
    for (const NamedStream &stream : streams()) {
        for (const test::JobOptions &job : jobs) {
            // Every configuration comes with some job.
            folder.add(stream.name + "-" + std::to_string(number),
                       static_cast<char>(number) + job.argument() + "\n" + stream.text);
            ++number;
        }
    }
}

void makePageReaderSeeds(const std::filesystem::path &seeds) {
    const SeedFolder folder(seeds, "page-reader");
    const std::string page = makePage(document(1), 1);
    StreamOptions large = document(1);
    large.planeSizes = {700, 700, 0, 0};
    const std::string largePage = makePage(large, 1);
    for (const char failing : {'\0', '\1', '\2', '\3', 'U'}) {
        std::string pages;
        for (const std::string &text : {page, largePage, page + "JIDG"}) {
            const std::size_t units = (text.size() + 15) / 16;
            pages += static_cast<char>(units - 1) + text + std::string(units * 16 - text.size(), 'J');
        }
        folder.add("runs-" + std::to_string(failing), std::string{failing, 1} + pages);
        folder.add("headers-" + std::to_string(failing), std::string{failing, 0} + pages);
    }
}

void makeInspectorSeeds(const std::filesystem::path &seeds) {
    const SeedFolder folder(seeds, "inspector");
    unsigned char how = 0;
    for (const NamedStream &stream : streams()) {
        for (const std::string &text :
             {stream.text, stream.text.substr(36), test::resetRecord() + stream.text.substr(36),
              stream.text + test::cancelRecord(), "rubbish" + stream.text}) {
            folder.add(stream.name + "-" + std::to_string(how),
                       static_cast<char>(how) + std::string(1, '\6') + text);
            how = static_cast<unsigned char>(how + 7);
        }
    }
}

std::string numberText(std::uint32_t number) {
    std::string text;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        text += static_cast<char>(number >> shift & 0xFFU);
    }
    return text;
}

void makeStatusRecordSeeds(const std::filesystem::path &seeds) {
    const SeedFolder folder(seeds, "status-record");
    // The codes by which the catalogue is chosen from are counted through by the fuzzer.
    for (const unsigned code : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 16U, 32U, 64U, 128U, 255U}) {
        std::string record("GDIR", 4);
        record.resize(64, '\0');
        record[36] = static_cast<char>(code);
        record[37] = static_cast<char>(code / 2);
        record[59] = static_cast<char>(code * 3 & 0xFFU);
        const std::string text = "@" + record + "@" + record;
        folder.add("english-" + std::to_string(code), "\n" + text);
        folder.add("translated-" + std::to_string(code),
                   "%@ leer %1$@ 100%%\n" + text.substr(0, 65) + "\3abc");
    }
}

void makeSelectionSeeds(const std::filesystem::path &seeds) {
    const SeedFolder folder(seeds, "selection");
    unsigned switches = 0;
    for (const char *order : {"214365", "642135", "246135", "654321", ""}) {
        for (const std::uint32_t pages : {0U, 1U, 2U, 6U, 7U, 12U}) {
            for (const std::uint32_t copies : {1U, 2U, 3U}) {
                folder.add(std::to_string(switches), static_cast<char>(switches % 64) + std::string(order) +
                                                         "\n" + numberText(pages) + numberText(copies) +
                                                         numberText(pages) + numberText(5000) +
                                                         numberText(2000000) + "@" + numberText(9000));
                switches += 1;
            }
        }
    }
}

void makeOptionsSeeds(const std::filesystem::path &seeds) {
    const SeedFolder folder(seeds, "options");
    const std::vector<std::string> texts = {
        "",
        test::JobOptions({.copies = 3, .collate = true, .duplexing = 2, .sidesImaged = 12}).argument(),
        "media=A4,Thick160 sides=two-sided-long-edge Collate=True copies=2 number-up=2",
        "PaperType=Labels media=Custom.100x200mm InputSlot=Tray2 job-uuid=urn:uuid:"
        "01234567-89ab-cdef-0123-456789abcdef",
        "noCollate multiple-document-handling=separate-documents-collated-copies media={A=1 B=2}",
        R"(title="a \"quoted\" name" a='single quoted' b=back\ slashed media-type=stationery-letterhead)",
        "cupsPrintQuality=Normal PAPERTYPE=Plain Media=a5 com.apple.print.JobInfo.PMJobName='@a 3)'",
    };
    unsigned switches = 0;
    for (const std::string &text : texts) {
        folder.add(std::to_string(switches), static_cast<char>(switches) + std::string("2\n") + text);
        folder.add("ppd-" + std::to_string(switches),
                   static_cast<char>(15 - switches) + std::string("1\n") + text);
        ++switches;
    }
}

} // namespace

} // namespace veltrin::fuzz

/// Called with the folder of all seeds, the source tree and the build tree.
int main(int argc, char **argv) {
    using namespace veltrin::fuzz;
    if (argc != 4) {
        return EXIT_FAILURE;
    }
    const std::filesystem::path seeds = argv[1];
    const SeedSources sources = {argv[2], argv[3]};
    makeJobSeeds(seeds);
    makePageReaderSeeds(seeds);
    makeInspectorSeeds(seeds);
    makeStatusRecordSeeds(seeds);
    makeSelectionSeeds(seeds);
    makeOptionsSeeds(seeds);
    return EXIT_SUCCESS;
}
