// The queue's PPD, in the hands of the filter and of the renderer. The input: a line with the job's options,
// and the PPD.

#include "filter/CUPSFilter.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "raster/QueuePPD.h"
#include "tests/support/Arguments.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrin::fuzz {

namespace {

constexpr const char *queuePPD = "/tmp/none/ppd/queue.ppd";
constexpr const char *temporary = "/tmp/temporary";

/// A filter that does nothing but start.
class StartingFilter final : public CUPSFilter {
  public:
    using CUPSFilter::CUPSFilter;

    void requireSense(const std::string &file) const {
        const auto end = std::find(DefaultPaperType.begin(), DefaultPaperType.end(), '\0');
        require(end != DefaultPaperType.end(), "a paper type has its end");
        const std::string type(DefaultPaperType.begin(), end);
        require(file.find(type) != std::string::npos, "a paper type is one of the PPD");
        require(printerName.empty() || file.find("Name") != std::string::npos, "so is the printer's name");
    }
};

} // namespace

} // namespace veltrin::fuzz

/// The library forgets some of the strings of a PPD that says the same thing twice. The processes that read
/// one live no longer than a job.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c): the sanitizer asks for it by this name.
extern "C" const char *__lsan_default_suppressions();

extern "C" const char *__lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier,cert-dcl37-c)
    return "leak:_ppdOpen";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::string options = input.line();
    const std::string file = input.remainingText();
    if (options.find('\0') != std::string::npos) {
        return 0;
    }
    std::filesystem::create_directories(temporary);
    setenv("TMPDIR", temporary, 1);
    setenv("DEVICE_URI", "file:///dev/null", 1);
    setenv("LANG", "en.UTF-8", 1);
    test::writeFile(queuePPD, file);
    const std::size_t descriptors = openDescriptors();
    std::string problem;
    {
        const Caught errors(STDERR_FILENO);
        const test::CapturedLog log;
        test::FakePlatform platform;
        test::Arguments arguments({"queue", "1", "user", "title", "1", options});
        const auto started = CUPSFilter::initWithArgc(std::make_unique<StartingFilter>(platform),
                                                      arguments.count(), arguments.vector());
        require(started != nullptr, "a PPD of whatever kind keeps no filter from starting");
        static_cast<const StartingFilter &>(*started).requireSense(file);

        const raster::PPDChoices choices = raster::choicesInPPD(queuePPD, options, problem);
        for (const auto &choice : {choices.collate, choices.inputSlot, choices.paperType}) {
            require(!choice || problem.empty(), "a PPD that cannot be read has no choices");
        }
        // A whole message: words of the PPD are in others.
        const std::vector<std::string> messages = log.messages();
        const bool isRefused =
            std::find(messages.begin(), messages.end(), "ASSERT: Unable to open ppd file") != messages.end();
        require(isRefused == !problem.empty(), "filter and renderer agree on what a PPD is");
    }
    require(problem.find('\n') == std::string::npos, "what is wrong is told in one line");
    require(std::filesystem::is_empty(temporary), "no copy of the PPD is left behind");
    require(openDescriptors() == descriptors, "every file is closed");
    return 0;
}
