// The reader of pages where allocations fail. The input: a byte that says which allocations do, one for how
// bands are taken, and pages that are read through the same memory one after the other, as those of a job
// are: each with a byte in front that gives its length in units of 16 bytes.

#include "driver/PageInput.h"
#include "driver/stream/BandRun.h"
#include "fuzz/Allocations.h"
#include "fuzz/ExpectedJob.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "log/DebugLog.h"
#include "tests/support/CapturedLog.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <string_view>

namespace veltrin::fuzz {

namespace {

constexpr std::size_t lengthUnit = 16;

/// Fails those whose bit is set, eight in turn.
class Pattern {
  public:
    explicit Pattern(std::uint8_t theBits) : bits(theBits) {}

    [[nodiscard]] bool next() {
        const bool fails = (bits >> (count++ % 8U) & 1) != 0;
        return !fails;
    }

  private:
    std::uint8_t bits;
    unsigned count = 0;
};

void append(std::string &text, const std::byte *bytes, std::int32_t size) {
    text.append(reinterpret_cast<const char *>(bytes), static_cast<std::size_t>(size));
}

/// Takes a header with its data, and more where `inRuns`. False at the end of what can be read.
bool takeNextPart(PageInput &page, bool inRuns, std::string &taken) {
    if (const BandRun run = inRuns ? bandRunOf(page.kept()) : BandRun(); run.bands != 0) {
        require(run.size <= page.kept().size(), "a run of bands is there whole");
        append(taken, page.kept().data(), static_cast<std::int32_t>(run.size));
        page.skip(run.size);
        return true;
    }
    StreamHeader header;
    std::int32_t size = -1;
    if (!page.readHeader(header, size)) {
        return false;
    }
    append(taken, header.data(), size);
    if (!page.readHeaderData(header, size)) {
        require(size == 0, "no data is there where they could not be read");
        return false;
    }
    if (size != 0) {
        require(page.data() != nullptr, "data that were read are there");
        append(taken, page.data(), size);
    }
    return true;
}

std::string_view textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

std::uintmax_t logSize() {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(debugLogPath, error);
    return error ? 0 : size;
}

/// The same, with what the log is to say.
bool takeNext(PageInput &page, bool inRuns, std::string &taken) {
    const std::uintmax_t before = logSize();
    const bool isTaken = takeNextPart(page, inRuns, taken);
    require(isTaken == (logSize() == before), "every failure is logged, and nothing else is");
    return isTaken;
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t failing = input.byte();
    const bool isAllThere = failing == 0;
    Pattern pattern(failing);
    const bool inRuns = input.flag();
    const test::CapturedLog log;
    const std::size_t descriptors = openDescriptors();
    {
        const Allocations allocations([&pattern] { return pattern.next(); });
        InputMemory memory;
        while (!input.isEmpty()) {
            const auto text = input.bytes(lengthUnit * (std::size_t{input.byte()} + 1));
            const MemoryFile file(text);
            PageInput page(file.path(), memory);
            require(page.isOpen(), "a page's file can be opened");
            std::string taken;
            while (takeNext(page, inRuns, taken)) {
                require(taken.size() <= text.size(), "no more is read than there is");
            }
            require(taken.size() <= text.size() &&
                        (taken.empty() || std::memcmp(taken.data(), text.data(), taken.size()) == 0),
                    "what is read is what stands there, in its order");
            require(!isAllThere || taken.size() >= wholeBytes(textOf(text)),
                    "all that is whole is read where there is memory");
        }
    }
    DebugEnd();
    require(openDescriptors() == descriptors, "every page's file is closed");
    return 0;
}
