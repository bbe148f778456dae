#include "Version.h"
#include "driver/stream/CommandRecord.h"
#include "driver/stream/StreamMaker.h"
#include "tests/raster/DrawnPage.h"
#include "tests/raster/ReadPicture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <ostream>
#include <regex>
#include <set>
#include <string>
#include <vector>

// The programs as people run them.

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::Command;
using test::ProcessResult;
using test::readFile;
using test::run;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

struct Program {
    const char *name;
    const char *path;
    const char *manPage;
};

void PrintTo(const Program &program, std::ostream *out) {
    *out << program.name;
}

const Program mkstream = {"veltrin-mkstream", VELTRIN_MKSTREAM, VELTRIN_MKSTREAM_MAN_PAGE};
const Program dump = {"veltrin-dump", VELTRIN_DUMP, VELTRIN_DUMP_MAN_PAGE};
const Program printer = {"veltrin-printer", VELTRIN_PRINTER, VELTRIN_PRINTER_MAN_PAGE};
const Program installQueue = {"veltrin-install-queue", VELTRIN_INSTALL_QUEUE, VELTRIN_INSTALL_QUEUE_MAN_PAGE};

Command command(const Program &program, const std::vector<std::string> &arguments) {
    Command result{test::hostPath(program.path), {program.name}};
    result.arguments.insert(result.arguments.end(), arguments.begin(), arguments.end());
    return result;
}

Command dumpOf(const std::string &stream, const std::vector<std::string> &arguments = {}) {
    Command result = command(dump, arguments);
    result.input = test::Text{stream};
    return result;
}

/// The long options that a text names.
std::set<std::string> longOptionsIn(const std::string &text) {
    static const std::regex longOption("--[a-z][a-z-]*");
    std::set<std::string> options;
    for (std::sregex_iterator match(text.begin(), text.end(), longOption), end; match != end; ++match) {
        options.insert(match->str());
    }
    return options;
}

class EveryProgram : public testing::TestWithParam<Program> {};

INSTANTIATE_TEST_SUITE_P(Tools, EveryProgram, testing::Values(mkstream, dump, printer, installQueue),
                         [](const auto &test) {
                             std::string name =
                                 std::string(test.param.name).substr(std::string("veltrin-").size());
                             return std::regex_replace(name, std::regex("-"), "_");
                         });

TEST_P(EveryProgram, ShowsItsHelp) {
    for (const char *option : {"--help", "-h"}) {
        const ProcessResult result = run(command(GetParam(), {option}));
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_THAT(result.output, StartsWith(std::string("Usage: ") + GetParam().name + " "));
        EXPECT_EQ(result.errors, "");
        for (const std::string &line : test::linesOf(result.output)) {
            EXPECT_LE(line.size(), 80U) << line;
        }
    }
}

TEST_P(EveryProgram, ShowsTheVersionOfTheBuild) {
    for (const char *option : {"--version", "-V"}) {
        const ProcessResult result = run(command(GetParam(), {option}));
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.output, std::string(GetParam().name) + " " + version + "\n");
    }
}

TEST_P(EveryProgram, FailsWhenItsHelpCannotBeWritten) {
    for (const char *option : {"--help", "--version"}) {
        Command full = command(GetParam(), {option});
        full.output = test::File{"/dev/full"};
        const ProcessResult result = run(full);
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.errors,
                  std::string(GetParam().name) + ": standard output: No space left on device\n");
    }
}

TEST_P(EveryProgram, RefusesAnUnknownOption) {
    const ProcessResult result = run(command(GetParam(), {"--no-such-option"}));
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, std::string(GetParam().name) +
                                 ": unrecognized option '--no-such-option'\nTry '" + GetParam().name +
                                 " --help'.\n");
}

TEST_P(EveryProgram, HasEveryOptionInItsManPageAndNoOther) {
    const std::string help = run(command(GetParam(), {"--help"})).output;
    const std::string page = readFile(test::hostPath(GetParam().manPage));
    // The man page writes every option with escaped minus signs, which are minus signs in the output, too.
    const std::string plainPage = std::regex_replace(page, std::regex(R"(\\-)"), "-");
    EXPECT_THAT(longOptionsIn(help), testing::Contains("--version"));
    EXPECT_EQ(longOptionsIn(plainPage), longOptionsIn(help));
    EXPECT_THAT(longOptionsIn(page), IsEmpty());
}

TEST_P(EveryProgram, HasTheVersionInItsManPage) {
    EXPECT_THAT(readFile(test::hostPath(GetParam().manPage)), HasSubstr(std::string("Veltrin ") + version));
}

#ifdef VELTRIN_GROFF
TEST_P(EveryProgram, HasAManPageWithoutWarnings) {
    const ProcessResult result =
        run({VELTRIN_GROFF, {"groff", "-man", "-ww", "-Tutf8", test::hostPath(GetParam().manPage)}});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr(GetParam().name));
}
#endif

TEST(Mkstream, WritesADocumentOfOnePageByDefault) {
    const ProcessResult result = run(command(mkstream, {}));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(Bytes(result.output), BytesAre(makeStream(StreamOptions())));
}

TEST(Mkstream, HandsEveryOptionToTheStream) {
    StreamOptions base;
    base.pages = 3; // so that an order makes a difference
    base.copies = 2;

    struct OptionCase {
        std::vector<std::string> arguments;
        void (*change)(StreamOptions &options);
    };

    const OptionCase cases[] = {
        {{"--pages=5"}, [](StreamOptions &options) { options.pages = 5; }},
        {{"-n", "5"}, [](StreamOptions &options) { options.pages = 5; }},
        {{"--copies=3"}, [](StreamOptions &options) { options.copies = 3; }},
        {{"-c3"}, [](StreamOptions &options) { options.copies = 3; }},
        {{"--order=collated"}, [](StreamOptions &options) { options.order = CopyOrder::collated; }},
        {{"--order=uncollated"}, [](StreamOptions &options) { options.order = CopyOrder::uncollated; }},
        {{"--order=pairs"}, [](StreamOptions &options) { options.order = CopyOrder::pairs; }},
        {{"--blank-page"}, [](StreamOptions &options) { options.blankPage = true; }},
        {{"--bands", "7"}, [](StreamOptions &options) { options.bandsPerPage = 7; }},
        {{"-b", "7"}, [](StreamOptions &options) { options.bandsPerPage = 7; }},
        {{"--band-size=1001"},
         [](StreamOptions &options) {
             options.planeSizes = {251, 250, 250, 250};
         }},
        {{"-s", "0"}, [](StreamOptions &options) { options.planeSizes = {}; }},
        {{"--plane-sizes=1,0x20,3,4"},
         [](StreamOptions &options) {
             options.planeSizes = {1, 32, 3, 4};
         }},
        {{"--paper-size=9"}, [](StreamOptions &options) { options.paperSize = 9; }},
        {{"--tray=255"}, [](StreamOptions &options) { options.paperTray = 255; }},
        {{"--media=8"}, [](StreamOptions &options) { options.mediaType = 8; }},
        {{"--page-type=0x1C"}, [](StreamOptions &options) { options.pageType = 0x1C; }},
        {{"--seed=18446744073709551615"}, [](StreamOptions &options) { options.seed = ~std::uint64_t{0}; }},
        {{"--job-setting=0x0400"}, [](StreamOptions &options) { options.jobSetting = 0x0400; }},
        {{"--identifier=abcdefghijklmnopqrstuvwxyz0123456789"},
         [](StreamOptions &options) { options.identifier = "abcdefghijklmnopqrstuvwxyz0123456789"; }},
        {{"--no-identifier"}, [](StreamOptions &options) { options.identifier.reset(); }},
    };
    for (const OptionCase &option : cases) {
        std::vector<std::string> arguments = {"--pages=3", "--copies=2"};
        arguments.insert(arguments.end(), option.arguments.begin(), option.arguments.end());
        StreamOptions expected = base;
        option.change(expected);
        const ProcessResult result = run(command(mkstream, arguments));
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        EXPECT_THAT(Bytes(result.output), BytesAre(makeStream(expected))) << option.arguments.front();
    }
}

TEST(Mkstream, WritesToAFileOverWhatWasThere) {
    for (const char *option : {"--output", "-o"}) {
        writeFile("/tmp/job.gdi", std::string(100'000, 'x'));
        const ProcessResult result = run(command(mkstream, {option, "/tmp/job.gdi"}));
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(Bytes(readFile("/tmp/job.gdi")), BytesAre(makeStream(StreamOptions())));
    }
}

TEST(Mkstream, RefusesBadValuesInOneLineAndWritesNothing) {
    const std::pair<std::vector<std::string>, const char *> cases[] = {
        {{"--pages=many"}, "--pages does not take 'many'"},
        {{"--pages=-1"}, "--pages does not take '-1'"},
        {{"--pages="}, "--pages does not take ''"},
        {{"-n", "4294967296"}, "--pages does not take '4294967296'"},
        {{"--pages=65536"}, "the pages, a blank page included, are numbered up to 65535"},
        {{"--copies=0"}, "the number of copies is 1 to 65535"},
        {{"--order=random"}, "--order does not take 'random'"},
        {{"--bands=0"}, "a page has 1 to 65535 bands"},
        {{"--band-size=2147483648"}, "the planes of a band hold at most 2147483647 bytes together"},
        {{"--plane-sizes=1,2,3"}, "--plane-sizes does not take '1,2,3'"},
        {{"--plane-sizes=1,2,3,4,5"}, "--plane-sizes does not take '1,2,3,4,5'"},
        {{"--tray=256"}, "--tray does not take '256'"},
        {{"--media=1x"}, "--media does not take '1x'"},
        {{"--paper-size=256"}, "--paper-size does not take '256'"},
        {{"--page-type=0x100"}, "--page-type does not take '0x100'"},
        {{"--job-setting=65536"}, "--job-setting does not take '65536'"},
        {{"--seed=one"}, "--seed does not take 'one'"},
        {{"--identifier=short"}, "the identifier is 36 bytes long, not 5"},
        {{"--output="}, "--output does not take ''"},
        {{"stray"}, "does not take the argument 'stray'"},
    };
    for (const auto &[arguments, problem] : cases) {
        const ProcessResult result = run(command(mkstream, arguments));
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors,
                  std::string("veltrin-mkstream: ") + problem + "\nTry 'veltrin-mkstream --help'.\n");
    }
}

TEST(Mkstream, RefusesAnOptionWithoutItsValue) {
    const ProcessResult result = run(command(mkstream, {"--pages"}));
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_THAT(result.errors, StartsWith("veltrin-mkstream: option '--pages' requires an argument\n"));
}

TEST(Mkstream, LeavesTheOutputFileAloneWhenItRefuses) {
    writeFile("/tmp/job.gdi", "precious");
    EXPECT_EQ(run(command(mkstream, {"--output=/tmp/job.gdi", "--copies=0"})).exitStatus, 2);
    EXPECT_EQ(readFile("/tmp/job.gdi"), "precious");
}

TEST(Mkstream, FailsWhenTheStreamCannotBeWritten) {
    EXPECT_EQ(run(command(mkstream, {"--output=/dev/full"})).exitStatus, 1);
    EXPECT_EQ(run(command(mkstream, {"--output=/dev/full"})).errors,
              "veltrin-mkstream: /dev/full: No space left on device\n");
    EXPECT_EQ(run(command(mkstream, {"--output=/no/such/directory/job"})).errors,
              "veltrin-mkstream: /no/such/directory/job: No such file or directory\n");

    Command full = command(mkstream, {});
    full.output = test::File{"/dev/full"};
    ProcessResult result = run(full);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-mkstream: standard output: No space left on device\n");

    full.output = test::Closed();
    result = run(full);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-mkstream: standard output: Bad file descriptor\n");
}

TEST(Mkstream, WritesAFileWithStandardOutputClosed) {
    Command closed = command(mkstream, {"--output=/tmp/job.gdi"});
    closed.output = test::Closed();
    closed.errors = test::Closed();
    closed.input = test::Closed();
    EXPECT_EQ(run(closed).exitStatus, 0);
    EXPECT_THAT(Bytes(readFile("/tmp/job.gdi")), BytesAre(makeStream(StreamOptions())));
}

/// A cancelled two-sided job of two pages as the printer receives it, with a name that is up to no good.
std::string goldenStream() {
    StreamOptions options;
    options.pages = 2;
    options.bandsPerPage = 2;
    options.planeSizes = {40, 30, 20, 10};
    options.fileName = "r\xC3\xA9sum\xC3\xA9 \"final\"\x1B[2J";
    options.hostName = "desk";
    options.userName = "ada";
    options.jobSetting = jobSettingDuplex;
    options.identifier.reset();
    std::string stream(reverseDataReset.begin(), reverseDataReset.end());
    stream += makeJobHeaders(options);
    options.pageType = pageTypeFirstOfSheet;
    stream += makePage(options, 2);
    options.pageType = pageTypeSecondOfSheet;
    options.paperTray = 3;
    stream += makePage(options, 1);
    stream += "JIDG";
    stream.append(cancelCommand.begin(), cancelCommand.end());
    return stream;
}

std::string golden(const char *name) {
    return readFile(test::hostPath(std::string(VELTRIN_GOLDEN_FILES) + "/" + name));
}

TEST(Dump, ShowsAJobToPeople) {
    const ProcessResult result = run(dumpOf(goldenStream()));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, golden("cancelled-job.txt"));
}

TEST(Dump, ShowsAJobToPrograms) {
    for (const char *option : {"--json", "-j"}) {
        const ProcessResult result = run(dumpOf(goldenStream(), {option}));
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.output, golden("cancelled-job.json"));
    }
}

TEST(Dump, ShowsWhatIsWrongWhereItIs) {
    StreamOptions options;
    options.bandsPerPage = 1;
    options.planeSizes = {100, 0, 0, 0};
    const std::string stream = *options.identifier + makeJobHeaders(options) + makePage(options, 1) +
                               makePage(options, 1).substr(64) + "PIDG" + "the rest";
    const ProcessResult result = run(dumpOf(stream));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.output, golden("broken-job.txt"));
}

TEST(Dump, GoesOnBehindAFaultWhenAskedTo) {
    StreamOptions options;
    options.pages = 2;
    options.bandsPerPage = 1;
    const std::string stream = makeJobHeaders(options) + "rubbish" + makePage(options, 2) + "JIDG";
    for (const char *option : {"--resync", "-r"}) {
        const ProcessResult result = run(dumpOf(stream, {option}));
        EXPECT_EQ(result.exitStatus, 1);
        EXPECT_EQ(result.errors, "");
        EXPECT_THAT(result.output,
                    HasSubstr("       279  goes on (at 0x117) with a page header; 7 bytes skipped\n"));
        EXPECT_THAT(result.output, HasSubstr("1 page, 1 band, 1024 bytes of data; "));
    }
    const ProcessResult result = run(dumpOf(stream));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.output,
                HasSubstr("       279  next header that makes sense (at 0x117): a page header, 7 "
                          "bytes on;\n              --resync goes on there\n"));
    EXPECT_THAT(result.output, HasSubstr("0 pages, 0 bands, 0 bytes of data; "));
}

TEST(Dump, ReadsFurtherStreamsWhenAskedTo) {
    const std::string stream = makeStream(StreamOptions());
    EXPECT_EQ(run(dumpOf(stream)).exitStatus, 0);
    const ProcessResult first = run(dumpOf(stream + stream));
    EXPECT_EQ(first.exitStatus, 1);
    EXPECT_THAT(first.output, HasSubstr("a second stream begins at byte " + std::to_string(stream.size())));
    EXPECT_THAT(first.output, HasSubstr("1 page, "));
    const ProcessResult both = run(dumpOf(stream + stream, {"--resync"}));
    EXPECT_EQ(both.exitStatus, 1);
    EXPECT_THAT(both.output, HasSubstr("2 pages, "));
}

TEST(Dump, NamesWhatIsNoPageStream) {
    const ProcessResult result = run(dumpOf("%PDF-1.7\n"));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.output, StartsWith("         0  PROBLEM (at 0x0): this is a PDF document, not a page "
                                          "stream: it has\n              to be rendered first\n"));
    EXPECT_THAT(result.output, Not(HasSubstr("identifier")));
}

TEST(Dump, ListsBandsWhenAskedTo) {
    const std::string stream = makeStream(StreamOptions());
    const std::string band = "       372      1       256       256       256       256   4960   1754\n";
    for (const char *option : {"--bands", "-b"}) {
        const ProcessResult result = run(dumpOf(stream, {option}));
        EXPECT_EQ(result.exitStatus, 0);
        EXPECT_THAT(result.output, HasSubstr(band));
    }
    EXPECT_THAT(run(dumpOf(stream)).output, Not(HasSubstr(band)));
    const std::string document = run(dumpOf(stream, {"--bands", "--json"})).output;
    EXPECT_FALSE(nlohmann::json::parse(document, nullptr, false).is_discarded());
    EXPECT_THAT(document, HasSubstr("\n  {\"kind\":\"band\",\"offset\":372,\"dwBandSetting\":0,"));
}

/// A job of two pages, a marked one and a small blank one.
std::string picturedStream(raster::CompressMode mode) {
    return test::jobHeaders(mode) + test::markedPage(120, 60).page(mode, 16) +
           test::DrawnPage(40, 20).page(mode) + "JIDG";
}

TEST(Dump, WritesPicturesOfThePages) {
    const test::DrawnPage drawn = test::markedPage(120, 60);
    for (const raster::CompressMode mode : {raster::CompressMode::raw, raster::CompressMode::zstd}) {
        for (const std::string &identifier : {std::string(), std::string(36, 'i')}) {
            std::filesystem::remove_all("/tmp/pictures");
            const std::string stream = identifier + picturedStream(mode);
            const ProcessResult result = run(dumpOf(stream, {"--pictures=/tmp/pictures"}));
            EXPECT_EQ(result.exitStatus, 0);
            EXPECT_EQ(result.errors, "");
            EXPECT_THAT(result.output, testing::EndsWith(" bytes in all\n2 pictures written\n"));
            EXPECT_THAT(test::namesIn("/tmp/pictures"), ElementsAre("page-0001.png", "page-0002.png"));
            const test::ReadPicture first = test::readPicture("/tmp/pictures/page-0001.png");
            EXPECT_EQ(first.width, 120U);
            EXPECT_EQ(first.height, 60U);
            EXPECT_EQ(first.dotsPerMetre, 23622U);
            for (unsigned y = 0; y < 60; ++y) {
                for (unsigned x = 0; x < 120; ++x) {
                    ASSERT_EQ(first.at(x, y),
                              raster::colourOf(static_cast<raster::InkMix>(drawn.mixAt(x, y))))
                        << x << ' ' << y;
                }
            }
            EXPECT_EQ(test::readPicture("/tmp/pictures/page-0002.png").height, 20U);
        }
    }
}

TEST(Dump, WritesSmallerPicturesWhenAskedTo) {
    const std::string stream = picturedStream(raster::CompressMode::zstd);
    const ProcessResult result = run(dumpOf(stream, {"--pictures=/tmp/pictures", "--dpi=100", "--json"}));
    EXPECT_EQ(result.exitStatus, 0);
    const test::ReadPicture first = test::readPicture("/tmp/pictures/page-0001.png");
    EXPECT_EQ(first.width, 20U);
    EXPECT_EQ(first.height, 10U);
    EXPECT_EQ(first.dotsPerMetre, 3937U);
    const auto document = nlohmann::json::parse(result.output, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << result.output;
    EXPECT_EQ(document["records"][2], nlohmann::json::parse(R"({"kind": "picture", "offset": 272,
        "file": "page-0001.png", "width": 20, "height": 10, "resolution": 100})"));
    EXPECT_EQ(document["records"][3]["kind"], "page");
    EXPECT_EQ(document["records"][4]["file"], "page-0002.png");
    EXPECT_EQ(document["totals"]["problems"], 0);
}

TEST(Dump, ShowsTheSameBesidesItsPictures) {
    const std::string stream = picturedStream(raster::CompressMode::raw);
    for (const std::vector<std::string> &arguments : {std::vector<std::string>{}, {"--bands"}}) {
        std::vector<std::string> withPictures = arguments;
        withPictures.emplace_back("--pictures=/tmp/pictures");
        EXPECT_EQ(run(dumpOf(stream, withPictures)).output,
                  run(dumpOf(stream, arguments)).output + "2 pictures written\n");
    }
}

TEST(Dump, TellsWhatCannotBeShown) {
    const std::string headers = test::jobHeaders(raster::CompressMode::raw);
    const std::string damaged = test::pageHeader(48, 30) + test::bandOf(48, 30, {"", "", "rows", ""}, true);
    const std::string stream = headers + test::pageHeader(0, 30) + test::bandOf(48, 30, {}, true) + damaged +
                               test::markedPage(40, 20).page(raster::CompressMode::raw) + "JIDG";
    EXPECT_EQ(run(dumpOf(stream)).exitStatus, 0);
    const ProcessResult result = run(dumpOf(stream, {"-p", "/tmp/pictures-of-some"}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output,
                HasSubstr("       272  PROBLEM (at 0x110): the page header tells no size: 0 x 30 "
                          "dots\n"));
    EXPECT_THAT(result.output,
                HasSubstr("       464  PROBLEM (at 0x1d0): the magenta plane of lines 0 to 30 "));
    EXPECT_THAT(result.output, testing::EndsWith("\n2 pictures written\n2 problems\n"));
    EXPECT_THAT(test::namesIn("/tmp/pictures-of-some"), ElementsAre("page-0002.png", "page-0003.png"));

    const ProcessResult json = run(dumpOf(stream, {"--pictures=/tmp/pictures-of-some", "--json"}));
    EXPECT_EQ(json.exitStatus, 1);
    const auto document = nlohmann::json::parse(json.output, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << json.output;
    EXPECT_EQ(document["records"][2]["problem"], "page-without-size");
    EXPECT_EQ(document["records"][4]["problem"], "damaged-plane");
    EXPECT_EQ(document["records"][4]["offset"], 464);
    EXPECT_EQ(document["totals"]["problems"], 2);
}

TEST(Dump, ShowsACutPageAsFarAsItCame) {
    const test::DrawnPage drawn = test::markedPage(120, 60);
    const std::string stream = picturedStream(raster::CompressMode::raw);
    const std::vector<std::string> bands = drawn.bands(raster::CompressMode::raw, 16);
    const std::size_t twoBands = 272 + 64 + bands[0].size() + bands[1].size();
    const ProcessResult result = run(dumpOf(stream.substr(0, twoBands + 40), {"--pictures=/tmp/pictures"}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.output, testing::EndsWith("1 picture written\n1 problem\n"));
    const test::ReadPicture picture = test::readPicture("/tmp/pictures/page-0001.png");
    EXPECT_EQ(picture.height, 60U);
    EXPECT_EQ(picture.at(10, 30), raster::colourOf(static_cast<raster::InkMix>(drawn.mixAt(10, 30))));
    EXPECT_EQ(picture.at(60, 31), raster::colourOf(static_cast<raster::InkMix>(drawn.mixAt(60, 31))));
    EXPECT_NE(drawn.mixAt(60, 31), 0U);
    EXPECT_EQ(picture.at(0, 59), (raster::PictureColour{255, 255, 255}));
}

TEST(Dump, FailsWhenAPictureCannotBeWritten) {
    const std::string stream = picturedStream(raster::CompressMode::raw);
    ProcessResult result = run(dumpOf(stream, {"--pictures=/no/such/folder"}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-dump: /no/such/folder: No such file or directory\n");
    writeFile("/tmp/file", "");
    result = run(dumpOf(stream, {"--pictures=/tmp/file"}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-dump: /tmp/file/page-0001.png: Not a directory\n");
}

TEST(Dump, RefusesAResolutionThatIsNone) {
    for (const char *number : {"0", "-1", "65536", "many"}) {
        const ProcessResult result =
            run(command(dump, {"--pictures=/tmp/pictures", std::string("--dpi=") + number, "/dev/null"}));
        EXPECT_EQ(result.exitStatus, 2);
        EXPECT_THAT(result.errors,
                    StartsWith(std::string("veltrin-dump: --dpi does not take '") + number + "'\n"));
    }
    const ProcessResult result = run(command(dump, {"-d", "100", "/dev/null"}));
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_THAT(result.errors, StartsWith("veltrin-dump: --dpi is for --pictures\n"));
}

TEST(Dump, WritesAWholeJsonDocumentOfABrokenStream) {
    const ProcessResult result = run(dumpOf(goldenStream().substr(0, 500), {"--json"}));
    EXPECT_EQ(result.exitStatus, 1);
    const auto document = nlohmann::json::parse(result.output, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << result.output;
    EXPECT_EQ(document["input"], "-");
    EXPECT_EQ(document["totals"]["problems"], 1);
    EXPECT_EQ(document["totals"]["bytes"], 500);
    const auto problem = document["records"][3];
    EXPECT_EQ(problem["kind"], "problem");
    EXPECT_EQ(problem["problem"], "truncated-header");
    EXPECT_EQ(problem["offset"], 484);
    EXPECT_EQ(document["records"][4]["kind"], "page");
    EXPECT_EQ(document["records"][4]["complete"], false);
}

TEST(Dump, WritesAsciiJsonOfAnyNames) {
    StreamOptions options;
    options.fileName = "\xFF\xFE\x01\"\\";
    options.userName = "\xC3\xBC";
    const ProcessResult result = run(dumpOf(makeStream(options), {"--json"}));
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.output,
                testing::Each(testing::AnyOf('\n', testing::AllOf(testing::Ge(' '), testing::Le('~')))));
    const auto document = nlohmann::json::parse(result.output, nullptr, false);
    ASSERT_FALSE(document.is_discarded()) << result.output;
    EXPECT_EQ(document["records"][1]["szFileName"], "\xEF\xBF\xBD\xEF\xBF\xBD\x01\"\\");
    EXPECT_EQ(document["records"][2]["szUserName"], "\xC3\xBC");
}

TEST(Dump, ReadsAFileOrStandardInput) {
    const std::string stream = makeStream(StreamOptions());
    writeFile("/tmp/job.gdi", stream);
    const std::string expected = run(dumpOf(stream)).output;
    EXPECT_THAT(expected, HasSubstr("1 page, 4 bands, 4096 bytes of data; "));
    EXPECT_EQ(run(command(dump, {"/tmp/job.gdi"})).output, expected);
    EXPECT_EQ(run(dumpOf(stream, {"-"})).output, expected);
    EXPECT_THAT(run(command(dump, {"--json", "/tmp/job.gdi"})).output,
                StartsWith("{\"input\": \"/tmp/job.gdi\",\n"));
}

TEST(Dump, IsToldWhetherThereIsAnIdentifier) {
    StreamOptions options;
    const std::string with = makeStream(options);
    options.identifier.reset();
    const std::string without = makeStream(options);
    EXPECT_EQ(run(dumpOf(with, {"--identifier=detect"})).exitStatus, 0);
    EXPECT_EQ(run(dumpOf(without, {"--identifier=detect"})).exitStatus, 0);
    EXPECT_EQ(run(dumpOf(with, {"--identifier=present"})).exitStatus, 0);
    EXPECT_EQ(run(dumpOf(without, {"--identifier=present"})).exitStatus, 1);
    EXPECT_EQ(run(dumpOf(with, {"-i", "absent"})).exitStatus, 1);
    EXPECT_EQ(run(dumpOf(without, {"-i", "absent"})).exitStatus, 0);
    const ProcessResult result = run(dumpOf(with, {"--identifier=maybe"}));
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.errors,
              "veltrin-dump: --identifier does not take 'maybe'\nTry 'veltrin-dump --help'.\n");
}

TEST(Dump, RefusesASecondFile) {
    const ProcessResult result = run(command(dump, {"one", "two"}));
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_THAT(result.errors, StartsWith("veltrin-dump: reads one stream; 'two' is one too many\n"));
}

TEST(Dump, TakesAnEmptyInputAsBroken) {
    const ProcessResult result = run(dumpOf(""));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.output, HasSubstr("the input is empty: nothing was written to it\n"));
}

TEST(Dump, FailsWhenTheInputCannotBeRead) {
    ProcessResult result = run(command(dump, {"/no/such/file"}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-dump: /no/such/file: No such file or directory\n");
    result = run(command(dump, {"/tmp"}));
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-dump: /tmp: Is a directory\n");
    Command closed = command(dump, {});
    closed.input = test::Closed();
    result = run(closed);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errors, "veltrin-dump: standard input: Bad file descriptor\n");
}

TEST(Dump, FailsWhenItsOutputCannotBeWritten) {
    StreamOptions many;
    many.pages = 2000;
    many.bandsPerPage = 1;
    many.planeSizes = {};
    for (const std::string &stream : {makeStream(StreamOptions()), makeStream(many)}) {
        for (const std::vector<std::string> &arguments : {std::vector<std::string>(), {"--json"}}) {
            Command full = dumpOf(stream, arguments);
            full.output = test::File{"/dev/full"};
            const ProcessResult result = run(full);
            EXPECT_EQ(result.exitStatus, 1);
            EXPECT_EQ(result.errors, "veltrin-dump: standard output: No space left on device\n");
        }
    }
}

/// The same command with so little memory for its data that it could not keep a band of 20 MB.
Command withLittleMemory(const Command &command) {
#ifdef VELTRIN_SANITIZED
    return command; // a sanitizer alone takes more
#else
    Command limited = command;
    limited.program = "/usr/bin/prlimit";
    limited.arguments = {"prlimit", "--data=8000000", command.program};
    limited.arguments.insert(limited.arguments.end(), command.arguments.begin() + 1, command.arguments.end());
    return limited;
#endif
}

TEST(Tools, PipeALargeStreamThroughLittleMemory) {
    // Both programs at once: what one writes, the other reads.
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    Command maker = withLittleMemory(command(mkstream, {"--pages=4", "--bands=2", "--band-size=20000000"}));
    maker.output = test::Descriptor{ends[1]};
    Command reader = withLittleMemory(command(dump, {}));
    reader.input = test::Descriptor{ends[0]};
    test::Process reading(reader);
    test::Process writing(maker);
    close(ends[0]);
    close(ends[1]);
    const ProcessResult written = writing.finish();
    EXPECT_EQ(written.exitStatus, 0);
    EXPECT_EQ(written.errors, "");
    const ProcessResult result = reading.finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr("4 pages, 8 bands, 160000000 bytes of data"));
}

} // namespace
} // namespace veltrin
