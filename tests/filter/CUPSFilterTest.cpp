#include "filter/CUPSFilter.h"

#include "filter/Cancellation.h"
#include "filter/ProcessEntry.h"
#include "log/DebugLog.h"
#include "tests/support/Arguments.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"
#include "tests/support/PPD.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

bool sigactionFails = false;

} // namespace

// The linker puts these between the code under test and the C library (see CMakeLists.txt).
extern "C" int __real_sigaction(int signal, const struct sigaction *action, struct sigaction *former);
extern "C" int __wrap_sigaction(int signal, const struct sigaction *action, struct sigaction *former);

extern "C" int __wrap_sigaction(int signal, const struct sigaction *action, struct sigaction *former) {
    if (sigactionFails) {
        errno = EINVAL;
        return -1;
    }
    return __real_sigaction(signal, action, former);
}

namespace veltrin {
namespace {

using test::CapturedLog;
using test::ppdWith;
using test::writeFile;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// A filter whose insides can be looked at.
class OpenFilter : public CUPSFilter {
  public:
    using CUPSFilter::CUPSFilter;

    ~OpenFilter() override { events.emplace_back("released"); }

    [[nodiscard]] bool init() override {
        uriSeenByInit = uri ? uri->absoluteString() : "(none)";
        if (!CUPSFilter::init()) {
            return false;
        }
        needsPPD = wantsPPD;
        return !initFails;
    }

    [[nodiscard]] bool run() override {
        events.emplace_back("run");
        return CUPSFilter::run() && runSucceeds;
    }

    using CUPSFilter::cupsICCProfile;
    using CUPSFilter::DefaultPaperType;
    using CUPSFilter::objectForInfoDictionaryKey;
    using CUPSFilter::printerName;
    using CUPSFilter::settings;
    using CUPSFilter::sourceFD;
    using CUPSFilter::uri;

    std::string uriSeenByInit;
    inline static bool wantsPPD = false;
    inline static bool initFails = false;
    inline static bool runSucceeds = true;
    inline static std::vector<std::string> events;
};

constexpr const char *serverRoot = "/tmp/cups";
constexpr const char *temporaryDirectory = "/tmp/spool";

class CUPSFilterTest : public testing::Test {
  protected:
    CUPSFilterTest() {
        OpenFilter::wantsPPD = false;
        OpenFilter::initFails = false;
        OpenFilter::runSucceeds = true;
        OpenFilter::events.clear();
        std::filesystem::create_directories(temporaryDirectory);
        std::filesystem::create_directories(std::string(serverRoot) + "/ppd");
        setenv("CUPS_SERVERROOT", serverRoot, 1);
        setenv("TMPDIR", temporaryDirectory, 1);
        setenv("DEVICE_URI", "file:///dev/null", 1);
        setenv("LANG", "de_DE.UTF-8", 1);
        gSigTerm = 0;
        gSigPipe = 0;
    }

    ~CUPSFilterTest() override {
        std::filesystem::remove_all(serverRoot);
        std::filesystem::remove_all(temporaryDirectory);
        gSigTerm = 0;
        gSigPipe = 0;
    }

    /// Initialises a filter with these options and, unless told otherwise, six arguments.
    std::unique_ptr<OpenFilter> filterWith(const std::string &options) {
        return filterWithArguments({"queue", "1", "user", "title", "1", options});
    }

    std::unique_ptr<OpenFilter> filterWithArguments(const std::vector<std::string> &words) {
        arguments = test::Arguments(words);
        std::unique_ptr<CUPSFilter> filter = CUPSFilter::initWithArgc(std::make_unique<OpenFilter>(platform),
                                                                      arguments.count(), arguments.vector());
        return std::unique_ptr<OpenFilter>(static_cast<OpenFilter *>(filter.release()));
    }

    void installPPD(const std::string &contents) {
        writeFile(std::string(serverRoot) + "/ppd/queue.ppd", contents);
    }

    test::FakePlatform platform;
    test::Arguments arguments{{}};
    CapturedLog log;
};

TEST_F(CUPSFilterTest, LogsItsInitialisationInOrder) {
    // The CUPS library keeps options in the order of their names.
    const auto filter = filterWith("media=A4 Duplex");
    ASSERT_NE(filter, nullptr);
    EXPECT_THAT(log.messages(),
                ElementsAre("CUPSFilter initWithArgc:argv", "AppleLanguages = \"de_DE.UTF-8\"",
                            "CUPSFilter init exiting with result: 1", "ASSERT: Unable to get ppd file",
                            "ASSERT: Unable to open ppd file", "Option Duplex = true", "Option media = A4",
                            "CUPSFilter initWithArgc:argv exiting with result: 1"));
}

TEST_F(CUPSFilterTest, KnowsTheDeviceURIBeforeTheDesignatedInitialiserRuns) {
    setenv("DEVICE_URI", "usb://Morvex/LX", 1);
    EXPECT_EQ(filterWith("")->uriSeenByInit, "usb://Morvex/LX");
}

TEST_F(CUPSFilterTest, GoesOnWithoutADeviceURI) {
    for (const bool empty : {false, true}) {
        empty ? setenv("DEVICE_URI", "", 1) : unsetenv("DEVICE_URI");
        const auto filter = filterWith("");
        ASSERT_NE(filter, nullptr);
        EXPECT_FALSE(filter->uri.has_value());
    }
}

TEST_F(CUPSFilterTest, MakesStandardErrorUnbuffered) {
    std::setvbuf(stderr, nullptr, _IOFBF, BUFSIZ);
    ASSERT_NE(filterWith(""), nullptr);
    EXPECT_EQ(stderr->_IO_buf_end - stderr->_IO_buf_base, 1);
}

TEST_F(CUPSFilterTest, SetsTheLanguageOfItsTextsFromTheEnvironmentAsItStands) {
    static_cast<void>(filterWith(""));
    EXPECT_EQ(platform.fakeBundle.language, "de_DE.UTF-8");
}

TEST_F(CUPSFilterTest, LeavesTheLanguageAloneWithoutOneInTheEnvironment) {
    unsetenv("LANG");
    platform.fakeBundle.language = "untouched";
    static_cast<void>(filterWith(""));
    EXPECT_EQ(platform.fakeBundle.language, "untouched");
    EXPECT_THAT(log.messages(), Contains("LANG environment variable missing."));
    EXPECT_THAT(log.messages(), Not(Contains(testing::StartsWith("AppleLanguages"))));
}

TEST_F(CUPSFilterTest, ReleasesItselfWhenTheDesignatedInitialiserFails) {
    OpenFilter::initFails = true;
    EXPECT_EQ(filterWith("media=A4"), nullptr);
    EXPECT_THAT(OpenFilter::events, ElementsAre("released"));
    EXPECT_THAT(log.messages(),
                ElementsAre("CUPSFilter initWithArgc:argv", "AppleLanguages = \"de_DE.UTF-8\"",
                            "CUPSFilter init exiting with result: 1", "ASSERT: Bad self",
                            "CUPSFilter initWithArgc:argv exiting with result: 0"));
}

TEST_F(CUPSFilterTest, RefusesFewerThanSixArguments) {
    for (const std::size_t count : {0U, 1U, 2U, 3U, 4U, 5U}) {
        log.clear();
        const std::vector<std::string> words = {"queue", "1", "user", "title", "1"};
        EXPECT_EQ(filterWithArguments({words.begin(), words.begin() + static_cast<std::ptrdiff_t>(count)}),
                  nullptr)
            << count;
        EXPECT_THAT(log.messages(),
                    ElementsAre("CUPSFilter initWithArgc:argv", "AppleLanguages = \"de_DE.UTF-8\"",
                                "CUPSFilter init exiting with result: 1", "ASSERT: Not enough arguments",
                                "CUPSFilter initWithArgc:argv failed",
                                "CUPSFilter initWithArgc:argv exiting with result: 0"))
            << count;
    }
}

TEST_F(CUPSFilterTest, ReadsTheSeventhOfExactlySevenArguments) {
    writeFile("/tmp/input", "stream");
    const auto filter = filterWithArguments({"queue", "1", "user", "title", "1", "", "/tmp/input"});
    ASSERT_NE(filter, nullptr);
    std::string text(6, '\0');
    EXPECT_EQ(read(filter->sourceFD, text.data(), text.size()), 6);
    EXPECT_EQ(text, "stream");
}

TEST_F(CUPSFilterTest, ClosesTheInputThatItHasOpenedAndNoOther) {
    writeFile("/tmp/input", "stream");
    auto filter = filterWithArguments({"queue", "1", "user", "title", "1", "", "/tmp/input"});
    ASSERT_NE(filter, nullptr);
    const int input = filter->sourceFD;
    filter.reset();
    EXPECT_EQ(fcntl(input, F_GETFD), -1);

    filter = filterWith("");
    ASSERT_EQ(filter->sourceFD, STDIN_FILENO);
    filter.reset();
    EXPECT_NE(fcntl(STDIN_FILENO, F_GETFD), -1);
}

TEST_F(CUPSFilterTest, ReadsStandardInputWithSixOrMoreThanSevenArguments) {
    EXPECT_EQ(filterWithArguments({"queue", "1", "user", "title", "1", ""})->sourceFD, 0);
    EXPECT_EQ(filterWithArguments({"queue", "1", "user", "title", "1", "", "/tmp/none", "more"})->sourceFD,
              0);
    EXPECT_EQ(
        filterWithArguments({"queue", "1", "user", "title", "1", "", "/tmp/none", "more", "yet"})->sourceFD,
        0);
}

TEST_F(CUPSFilterTest, FailsWhenTheInputFileCannotBeOpenedButReadsTheOptionsAllTheSame) {
    EXPECT_EQ(filterWithArguments({"queue", "1", "user", "title", "1", "media=A4", "/tmp/none"}), nullptr);
    EXPECT_THAT(log.messages(),
                ElementsAre("CUPSFilter initWithArgc:argv", "AppleLanguages = \"de_DE.UTF-8\"",
                            "CUPSFilter init exiting with result: 1", "ASSERT: Unable to open argv[6]",
                            "Option media = A4", "CUPSFilter initWithArgc:argv failed",
                            "CUPSFilter initWithArgc:argv exiting with result: 0"));
}

TEST_F(CUPSFilterTest, FailsWithoutAPPDOnlyWhereOneIsNeeded) {
    OpenFilter::wantsPPD = true;
    EXPECT_EQ(filterWith("media=A4"), nullptr);
    EXPECT_THAT(log.messages(), testing::IsSupersetOf({"ASSERT: Unable to get ppd file", "Option media = A4",
                                                       "CUPSFilter initWithArgc:argv failed"}));
    EXPECT_THAT(log.messages(), Not(Contains("ASSERT: Unable to open ppd file")));
}

TEST_F(CUPSFilterTest, GoesOnWithoutAPPDThatCannotBeParsed) {
    OpenFilter::wantsPPD = true;
    platform.fakeBundle.infoDictionary["cupsICCProfile"] = "bundle.icc";
    installPPD("this is no PPD\n");
    const auto filter = filterWith("");
    ASSERT_NE(filter, nullptr);
    EXPECT_THAT(log.messages(), Contains("ASSERT: Unable to open ppd file"));
    EXPECT_THAT(log.messages(), Not(Contains("ASSERT: Unable to get ppd file")));
    EXPECT_EQ(filter->printerName, "");
    EXPECT_EQ(filter->cupsICCProfile, std::nullopt);
    EXPECT_STREQ(filter->DefaultPaperType.data(), "");
}

TEST_F(CUPSFilterTest, WalksThePPDInFileOrder) {
    installPPD(ppdWith("*NickName: \"Morvex LX 410N\"\n"
                       "*DefaultPaperType: Plain\n"
                       "*cupsICCProfile Gray../first: \"first.icc\"\n"
                       "*cupsICCProfile RGB../second: \"second.icc\"\n"
                       "*defaultpapertype: Small\n"));
    const auto filter = filterWith("");
    ASSERT_NE(filter, nullptr);
    EXPECT_EQ(filter->printerName, "Morvex LX 410N");
    EXPECT_STREQ(filter->DefaultPaperType.data(), "Plain");
    EXPECT_EQ(filter->cupsICCProfile, "first.icc");
    std::vector<std::string> walked;
    for (const std::string &message : log.messages()) {
        if (message.find("aper") != std::string::npos || message.find("ICC") != std::string::npos) {
            walked.push_back(message);
        }
    }
    EXPECT_THAT(walked,
                ElementsAre("ppd attr DefaultPaperType = Plain", "DefaultPaperType: Plain",
                            "ppd attr cupsICCProfile = first.icc", "ppd attr cupsICCProfile = second.icc",
                            "ppd attr defaultpapertype = Small"));
}

TEST_F(CUPSFilterTest, APPDWithoutANickNameGivesNoPrinterName) {
    installPPD(ppdWith("*DefaultPaperType: Plain\n"));
    const auto filter = filterWith("");
    EXPECT_EQ(filter->printerName, "");
    EXPECT_STREQ(filter->DefaultPaperType.data(), "Plain");
}

TEST_F(CUPSFilterTest, TakesTheLastDefaultPaperType) {
    installPPD(ppdWith("*NickName: \"x\"\n*DefaultPaperType: Plain\n*DefaultPaperType: Thick\n"));
    EXPECT_STREQ(filterWith("")->DefaultPaperType.data(), "Thick");
}

TEST_F(CUPSFilterTest, RefusesADefaultPaperTypeThatDoesNotFit) {
    struct Case {
        std::string value;
        std::string kept;
    };

    const std::string longest(19, 'x');
    const std::vector<Case> cases = {{longest, longest}, {longest + "x", ""}, {std::string(40, 'x'), ""}};
    for (const Case &one : cases) {
        log.clear();
        installPPD(ppdWith("*NickName: \"x\"\n*DefaultPaperType: " + one.value + "\n"));
        const auto filter = filterWith("");
        ASSERT_NE(filter, nullptr);
        EXPECT_STREQ(filter->DefaultPaperType.data(), one.kept.c_str());
        const auto refusal =
            Contains("ASSERT: CUPSFilter initWithArgc:argv DefaultPaperType is longer than 19 "
                     "characters: " +
                     one.value);
        if (one.kept.empty()) {
            EXPECT_THAT(log.messages(), refusal);
            EXPECT_THAT(log.messages(), Not(Contains("DefaultPaperType: " + one.value)));
        } else {
            EXPECT_THAT(log.messages(), Not(refusal));
            EXPECT_THAT(log.messages(), Contains("DefaultPaperType: " + one.value));
        }
    }
}

TEST_F(CUPSFilterTest, TakesTheProfileFromTheInformationDictionaryWhenThePPDHasNone) {
    installPPD(ppdWith("*NickName: \"x\"\n"));
    platform.fakeBundle.infoDictionary["cupsICCProfile"] = "bundle.icc";
    EXPECT_EQ(filterWith("")->cupsICCProfile, "bundle.icc");
    platform.fakeBundle.infoDictionary.clear();
    log.clear();
    EXPECT_EQ(filterWith("")->cupsICCProfile, std::nullopt);
    EXPECT_THAT(log.messages(), Not(Contains(testing::HasSubstr("ASSERT"))));
}

TEST_F(CUPSFilterTest, RemovesThePPDCopyThatCUPSMadeForIt) {
    for (const std::string &contents : {ppdWith("*NickName: \"x\"\n"), std::string("no PPD\n")}) {
        installPPD(contents);
        static_cast<void>(filterWith(""));
        EXPECT_THAT(test::namesIn(temporaryDirectory), IsEmpty());
    }
}

TEST_F(CUPSFilterTest, ReadsOptionsAsCUPSParsesThem) {
    const auto filter = filterWith("bare nobare2 empty= quoted=\"a b\" twice=1 twice=2 Case=x flag..b.=true");
    ASSERT_NE(filter, nullptr);
    EXPECT_EQ(filter->stringForOption("bare"), "true");
    EXPECT_EQ(filter->stringForOption("bare2"), "false");
    EXPECT_EQ(filter->stringForOption("empty"), "");
    EXPECT_EQ(filter->stringForOption("quoted"), "a b");
    EXPECT_EQ(filter->stringForOption("twice"), "2");
    EXPECT_EQ(filter->stringForOption("Case"), "x");
    EXPECT_EQ(filter->stringForOption("absent"), std::nullopt);
    EXPECT_TRUE(filter->boolForOption("flag..b."));
    EXPECT_FALSE(filter->boolForOption("empty"));
    EXPECT_FALSE(filter->boolForOption("absent"));
    EXPECT_EQ(filter->intForOption("twice"), 2);
    EXPECT_EQ(filter->intForOption("absent"), 0);
}

TEST_F(CUPSFilterTest, AsksThePaperRuleAboutItsOptionsAlone) {
    const auto isTwoSided = [this](const std::string &options) {
        const auto filter = filterWith("com.apple.print.PrintSettings.PMDuplexing..n.=2 " + options);
        EXPECT_TRUE(filter->run());
        return filter->settings.duplex;
    };
    // The PPD's default paper type is not consulted.
    installPPD(ppdWith("*NickName: \"x\"\n*DefaultPaperType: Labels\n"));
    EXPECT_FALSE(isTwoSided("media=A5"));
    EXPECT_TRUE(isTwoSided("media=a5"));
    EXPECT_FALSE(isTwoSided("media=Custom.100x150mm"));
    EXPECT_TRUE(isTwoSided("media=Letter PaperType=Plain"));
    EXPECT_FALSE(isTwoSided("PaperType=Labels"));
    EXPECT_TRUE(isTwoSided("media=A5,Tray1"));
    EXPECT_TRUE(isTwoSided("media=iso_a5_148x210mm"));
    EXPECT_TRUE(isTwoSided("PageSize=A5"));
    EXPECT_TRUE(isTwoSided(""));
}

TEST_F(CUPSFilterTest, LooksConfigurationKeysUpInTheInformationDictionary) {
    platform.fakeBundle.infoDictionary = {{"a", "TRUE"}, {"b", "yes"}, {"c", "1"}, {"d", ""}};
    const auto filter = filterWith("");
    log.clear();
    EXPECT_EQ(filter->stringForPPDAttr("a"), "TRUE");
    EXPECT_TRUE(filter->boolForPPDAttr("a"));
    EXPECT_TRUE(filter->boolForPPDAttr("b"));
    EXPECT_FALSE(filter->boolForPPDAttr("c"));
    EXPECT_FALSE(filter->boolForPPDAttr("d"));
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_FALSE(filter->boolForPPDAttr("none"));
    EXPECT_EQ(filter->stringForPPDAttr("none"), std::nullopt);
    const std::string missing = "ASSERT: CUPSFilter stringForPPDAttr: failed to get value for PPD attr none";
    EXPECT_THAT(log.messages(), ElementsAre(missing, missing));
}

TEST_F(CUPSFilterTest, LogsTheLackOfADictionaryOnce) {
    platform.fakeBundle.problem = "there is no Info.plist";
    const auto filter = filterWith("");
    log.clear();
    EXPECT_EQ(filter->objectForInfoDictionaryKey("x"), std::nullopt);
    EXPECT_EQ(filter->stringForPPDAttr("y"), std::nullopt);
    EXPECT_THAT(log.messages(),
                ElementsAre("ASSERT: CUPSFilter: no information dictionary: there is no Info.plist",
                            "ASSERT: CUPSFilter stringForPPDAttr: failed to get value for PPD attr y"));
}

TEST_F(CUPSFilterTest, ReadsTheJobSettings) {
    struct Case {
        std::string options;
        JobSettings settings;
    };

    const std::string copies = "com.apple.print.PrintSettings.PMCopies..n.=";
    const std::string collate = "com.apple.print.PrintSettings.PMCopyCollate..b.=";
    const std::string name = "com.apple.print.JobInfo.PMJobName=";
    const std::string duplexing = "com.apple.print.PrintSettings.PMDuplexing..n.=";
    const std::string sides = "com.apple.print.PrintSettings.PMTotalSidesImaged..n.=";
    const std::vector<Case> cases = {
        {"", {.copies = 1, .sidesImaged = 1}},
        {copies + "0", {.copies = 1, .sidesImaged = 1}},
        {copies + "7", {.copies = 7, .sidesImaged = 1}},
        {copies + "-1", {.copies = 4294967295, .sidesImaged = 1}},
        {copies + "99999999999", {.copies = 2147483647, .sidesImaged = 1}},
        {collate + "true", {.copies = 1, .collate = true, .sidesImaged = 1}},
        {collate + "Yes", {.copies = 1, .collate = true, .sidesImaged = 1}},
        {collate + "1", {.copies = 1, .sidesImaged = 1}},
        {collate, {.copies = 1, .sidesImaged = 1}},
        {name + "\"@(3)\"", {.jobName = "@(3)", .copies = 1, .sidesImaged = 1}},
        {name, {.jobName = "", .copies = 1, .sidesImaged = 1}},
        {duplexing + "1", {.copies = 1, .sidesImaged = 1}},
        {duplexing + "2", {.copies = 1, .duplex = true, .longEdge = true, .sidesImaged = 1}},
        {duplexing + "3", {.copies = 1, .duplex = true, .shortEdge = true, .sidesImaged = 1}},
        {duplexing + "4", {.copies = 1, .sidesImaged = 1}},
        {duplexing + "2 media=A5", {.copies = 1, .longEdge = true, .sidesImaged = 1}},
        {duplexing + "3 PaperType=Bond", {.copies = 1, .shortEdge = true, .sidesImaged = 1}},
        {sides + "0", {.copies = 1, .sidesImaged = 1}},
        {sides + "12", {.copies = 1, .sidesImaged = 12}},
    };
    for (const Case &one : cases) {
        const auto filter = filterWith(one.options);
        ASSERT_NE(filter, nullptr);
        ASSERT_TRUE(filter->run());
        const JobSettings &settings = filter->settings;
        EXPECT_EQ(settings.copies, one.settings.copies) << one.options;
        EXPECT_EQ(settings.collate, one.settings.collate) << one.options;
        EXPECT_EQ(settings.jobName, one.settings.jobName) << one.options;
        EXPECT_EQ(settings.duplex, one.settings.duplex) << one.options;
        EXPECT_EQ(settings.longEdge, one.settings.longEdge) << one.options;
        EXPECT_EQ(settings.shortEdge, one.settings.shortEdge) << one.options;
        EXPECT_EQ(settings.sidesImaged, one.settings.sidesImaged) << one.options;
        EXPECT_EQ(settings.priorityTray, 0U) << one.options;
    }
}

TEST_F(CUPSFilterTest, LogsTheNumbersAsTheyAreBeforeTheirDefaults) {
    const auto filter = filterWith("com.apple.print.PrintSettings.PMCopies..n.=-1");
    log.clear();
    ASSERT_TRUE(filter->run());
    EXPECT_THAT(log.messages(), ElementsAre("CUPSFIlter run: ", "copies: -1", "sidesImaged: 0",
                                            "CUPSFIlter run: exiting with result 1"));
}

TEST_F(CUPSFilterTest, SigtermCancelsAndIsLoggedAtEveryAsking) {
    const auto filter = filterWith("");
    log.clear();
    EXPECT_FALSE(filter->cancelled());
    EXPECT_THAT(log.messages(), IsEmpty());
    std::raise(SIGTERM);
    EXPECT_TRUE(filter->cancelled());
    EXPECT_TRUE(filter->cancelled());
    EXPECT_THAT(log.messages(), ElementsAre("Detected SIGTERM", "Detected SIGTERM"));
}

TEST_F(CUPSFilterTest, SigpipeAloneIsLoggedAndDoesNotCancel) {
    const auto filter = filterWith("");
    log.clear();
    std::raise(SIGPIPE);
    EXPECT_FALSE(filter->cancelled());
    std::raise(SIGTERM);
    EXPECT_TRUE(filter->cancelled());
    EXPECT_THAT(log.messages(), ElementsAre("Detected SIGPIPE", "Detected SIGTERM", "Detected SIGPIPE"));
}

TEST_F(CUPSFilterTest, HandlesItsSignalsWithRestartedCallsAndNothingBlocked) {
    static_cast<void>(filterWith(""));
    for (const int signal : {SIGTERM, SIGPIPE}) {
        struct sigaction action {};

        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(action.sa_sigaction, signalHandler);
        EXPECT_EQ(action.sa_flags & (SA_SIGINFO | SA_RESTART), SA_SIGINFO | SA_RESTART);
        for (int other = 1; other < SIGRTMIN; ++other) {
            EXPECT_EQ(sigismember(&action.sa_mask, other), 0) << other;
        }
    }
    signalHandler(SIGHUP, nullptr, nullptr);
    EXPECT_EQ(gSigTerm + gSigPipe, 0);
}

TEST_F(CUPSFilterTest, GoesOnWithoutAHandlerThatCannotBeInstalled) {
    testing::internal::CaptureStderr();
    sigactionFails = true;
    const auto filter = filterWith("");
    sigactionFails = false;
    const std::vector<std::string> lines = test::linesOf(testing::internal::GetCapturedStderr());
    EXPECT_NE(filter, nullptr);
    EXPECT_THAT(lines, ElementsAre("DEBUG: Failed to set SIGTERM handler: Invalid argument",
                                   "DEBUG: Failed to set SIGPIPE handler: Invalid argument"));
}

TEST_F(CUPSFilterTest, ProcessEntryRunsAndReleasesTheFilter) {
    struct Case {
        bool initFails;
        bool runSucceeds;
        int status;
        std::vector<std::string> events;
    };

    const std::vector<Case> cases = {
        {false, true, 0, {"run", "released"}},
        {false, false, 1, {"run", "released"}},
        {true, true, 1, {"released"}},
    };
    for (const Case &one : cases) {
        OpenFilter::events.clear();
        OpenFilter::initFails = one.initFails;
        OpenFilter::runSucceeds = one.runSucceeds;
        log.clear();
        arguments = test::Arguments({"queue", "1", "user", "title", "1", ""});
        EXPECT_EQ(filterMain(arguments.count(), arguments.vector(), platform,
                             [](platform::Platform &thePlatform) {
                                 return std::make_unique<OpenFilter>(thePlatform);
                             }),
                  one.status);
        EXPECT_EQ(OpenFilter::events, one.events);
        EXPECT_EQ(log.messages().front(), "veltrin starting");
        EXPECT_EQ(log.messages().back(), "veltrin ending with result " + std::to_string(one.status));
    }
    DebugUseClock(platform::systemClock());
}

TEST_F(CUPSFilterTest, ProcessEntryEndsInOrderWhenMemoryRunsOut) {
    arguments = test::Arguments({"queue", "1", "user", "title", "1", ""});
    log.clear();
    EXPECT_EQ(filterMain(arguments.count(), arguments.vector(), platform,
                         [](platform::Platform & /*platform*/) -> std::unique_ptr<CUPSFilter> {
                             throw std::bad_alloc();
                         }),
              1);
    EXPECT_THAT(log.messages(), ElementsAre("veltrin starting", "ASSERT: filterMain: not enough memory",
                                            "veltrin ending with result 1"));
    DebugUseClock(platform::systemClock());
}

} // namespace
} // namespace veltrin
