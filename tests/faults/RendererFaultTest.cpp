#include "driver/stream/PageStream.h"
#include "tests/faults/FaultInjector.h"
#include "tests/faults/FaultReport.h"
#include "tests/jobs/JobFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"
#include "tests/support/PPD.h"
#include "tests/support/RasterText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

// Every call of one kind that the renderer makes fails once, the first, the second, ... to the last.
//
// To run one of them alone, name its number: VELTRIN_FAULT_CALL=17 renderer-fault-tests --gtest_filter=...

namespace veltrin::test {
namespace {

constexpr const char *inputFile = "/tmp/document.ras";
constexpr const char *printedFile = "/tmp/printed";
constexpr const char *errorFile = "/tmp/errors";
constexpr const char *reportFile = "/tmp/injector";
constexpr const char *ppdFile = "/tmp/queue.ppd";

/// A renderer that starts the filter, and one that is to write the stream alone. What renders in the former
/// is a process of its own, which the injector leaves alone: the latter does the same in its own process.
struct Form {
    const char *name;
    bool isAlone;
};

constexpr Form alone = {"Stream", true};
constexpr Form withFilter = {"Filter", false};

struct Sweep {
    Form form;
    FaultKind kind;
    const char *how;
    std::string name;
};

void PrintTo(const Sweep &sweep, std::ostream *stream) {
    *stream << sweep.name;
}

std::vector<Sweep> sweeps() {
    struct Fault {
        FaultKind kind;
        const char *how;
    };

    constexpr Fault ofBoth[] = {
        {FaultKind::open, "EACCES"},       {FaultKind::open, "EMFILE"}, {FaultKind::read, "EIO"},
        {FaultKind::read, "EINTR"},        {FaultKind::read, "short"},  {FaultKind::control, "EINVAL"},
        {FaultKind::allocation, "ENOMEM"},
    };
    constexpr Fault ofTheStream[] = {
        {FaultKind::write, "EIO"},           {FaultKind::write, "EINTR"},
        {FaultKind::write, "short"},         {FaultKind::write, "ENOSPC"},
        {FaultKind::write, "EPIPE:lasting"}, {FaultKind::temporaryFile, "EACCES"},
    };
    constexpr Fault ofTheFiltersStart[] = {
        {FaultKind::descriptor, "EMFILE"},
        {FaultKind::process, "EAGAIN"},
    };
    std::vector<Sweep> result;
    const auto add = [&result](const Form &form, const Fault &fault) {
        result.push_back({form, fault.kind, fault.how,
                          caseName(std::string(form.name) + "_" +
                                   faultKindNames[static_cast<std::size_t>(fault.kind)] + "_" + fault.how)});
    };
    for (const Fault &fault : ofBoth) {
        add(alone, fault);
        add(withFilter, fault);
    }
    for (const Fault &fault : ofTheStream) {
        add(alone, fault);
    }
    for (const Fault &fault : ofTheFiltersStart) {
        add(withFilter, fault);
    }
    return result;
}

/// What became of a job.
struct RenderedJob : FaultReport {
    ProcessResult end;
    std::vector<std::string> errors;
    std::string stream; ///< without the time at which it was made
    std::vector<std::string> left;
};

class RendererFaultTest : public JobFixture, public testing::WithParamInterface<Sweep> {
  protected:
    /// Two copies, page by page: the second one of each comes out of the temporary file.
    RendererFaultTest() {
        cups_page_header2_t header = rasterHeader(36);
        header.NumCopies = 2;
        writeFile(inputFile, rasterText({{header, numbered(1)}, {header, numbered(2)}}));
        writeFile(ppdFile, ppdWith("*NickName: \"Test\"\n*DefaultPaperType: Plain\n"));
        const std::filesystem::path bundle = bundleFolder;
        std::filesystem::create_directories(bundle);
        std::filesystem::copy_file(hostPath(VELTRIN_RASTER), bundle / "veltrin-raster");
        std::filesystem::copy_file(filterProgram, bundle / "veltrin");
    }

    ~RendererFaultTest() override {
        for (const char *file : {inputFile, printedFile, errorFile, reportFile, ppdFile}) {
            std::filesystem::remove(file);
        }
    }

    [[nodiscard]] RenderedJob render(const std::string &fault) const {
        std::filesystem::remove(reportFile);
        Command command{.program = std::string(bundleFolder) + "/veltrin-raster",
                        .arguments = {"queue", "17", "anna", "a title", "2", "", inputFile},
                        .environment = environment,
                        .output = File{printedFile},
                        .errors = File{errorFile}};
        if (GetParam().form.isAlone) {
            command.arguments.insert(command.arguments.begin() + 1, "--stream");
        }
        (*command.environment)["PPD"] = ppdFile;
        injectFaults(command, fault, reportFile);
        Process renderer(command);
        const ProcessResult end = finishAtOnce(renderer);
        RenderedJob job{readFaultReport(reportFile, {}), end, {}, {}, {}};
        job.errors = linesOf(readFile(errorFile));
        job.stream = withoutTime(readFile(printedFile));
        job.left = takeAway(spoolFolder, {});
        return job;
    }

    [[nodiscard]] static std::string withoutTime(std::string stream) {
        const std::size_t time =
            (GetParam().form.isAlone ? identifierSize : 0) + offsetof(FileHeader, dwJobSubmittedTime);
        if (stream.size() >= time + sizeof(BigEndian32)) {
            stream.replace(time, sizeof(BigEndian32), sizeof(BigEndian32), '\0');
        }
        return stream;
    }

    /// What is wrong with a job in which a call may have failed: it is to be whole, or to say why it is not.
    [[nodiscard]] static std::vector<std::string>
    objectionsTo(const RenderedJob &job, const std::string &whole, const std::string &how) {
        std::vector<std::string> objections;
        const auto object = [&objections](const std::string &objection) { objections.push_back(objection); };
        const bool isWhole = job.stream == whole;
        const bool isTold = std::any_of(job.errors.begin(), job.errors.end(), [](const std::string &line) {
            return line.starts_with("ERROR: ") && line.size() > std::string("ERROR: ").size();
        });
        if (job.end.timedOut) {
            object("it does not end");
        } else if (job.end.signal) {
            // Whoever reads no more need not be told.
            if (job.end.signal != SIGPIPE || !how.starts_with("EPIPE") || isWhole) {
                object("signal " + std::to_string(*job.end.signal));
            }
        } else if (job.end.exitStatus == 0 && !isWhole) {
            object("it is not whole, and its exit status is 0");
        } else if (job.end.exitStatus == 1 && !isTold && GetParam().form.isAlone) {
            object("nothing says why it failed");
        } else if (job.end.exitStatus > 1) {
            object("exit status " + std::to_string(*job.end.exitStatus));
        }
        if (job.end.exitStatus != 0 && GetParam().form.isAlone &&
            (isWhole || !whole.starts_with(job.stream))) {
            object("a failed job's stream is to lack its end");
        }
        if ((how == "EINTR" || how == "short") && !isWhole) {
            object("it may go on, and does not");
        }
        if (const std::string words = lastWordsIn(job.errors); !words.empty()) {
            object(words);
        }
        for (const std::string &path : job.left) {
            object("it left " + path);
        }
        return objections;
    }
};

TEST_P(RendererFaultTest, IsSurvivedAndTold) {
    const Sweep &sweep = GetParam();
    const std::string callKind = faultKindNames[static_cast<std::size_t>(sweep.kind)];
    const RenderedJob sound = render("");
    ASSERT_EQ(sound.end.exitStatus, 0) << testing::PrintToString(sound.errors);
    ASSERT_GT(sound.stream.size(), sizeof(FileHeader));
    long first = 1;
    long last = sound.counts.at(callKind);
    ASSERT_GE(last, first) << "the job makes no such calls";
    if (const char *call = std::getenv("VELTRIN_FAULT_CALL")) {
        first = last = std::stol(call);
    }
    long hits = 0;
    for (long call = first; call <= last; ++call) {
        const RenderedJob job = render(callKind + ":" + std::to_string(call) + ":" + sweep.how);
        hits += job.hit ? 1 : 0;
        EXPECT_THAT(objectionsTo(job, sound.stream, sweep.how), testing::IsEmpty())
            << "VELTRIN_FAULT_CALL=" << call << (job.hit ? " " + job.hit->call + " " + job.hit->target : "")
            << ", standard error: " << testing::PrintToString(job.errors);
    }
    EXPECT_GT(hits, 0) << "no call was failed";
}

INSTANTIATE_TEST_SUITE_P(Faults, RendererFaultTest, testing::ValuesIn(sweeps()), nameOfCase<Sweep>);

} // namespace
} // namespace veltrin::test
