#pragma once

#include "driver/stream/StreamReader.h"
#include "printer/PrinterModel.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace veltrin::printer {

enum class JobOutcome {
    whole,     ///< from its headers to its end-of-job mark, without a fault
    cancelled, ///< the host sent the cancel record
    broken,
};

[[nodiscard]] const char *nameOf(JobOutcome outcome);

/// Bytes that came although there was no room for them.
struct MemoryOverrun {
    PrinterTime when{};
    MemoryPool pool = MemoryPool::header;
    std::uint64_t bytes = 0; ///< by how much
    std::size_t page = 0; ///< the place of their page in the job's; the number of these behind the last one
};

/// What a job brought, from the first notification of its host to the last.
struct JobReport {
    std::uint64_t number = 1; ///< since the printer was switched on
    StreamTotals totals;
    std::uint16_t jobSetting = 0; ///< the bits of the job file header
    std::vector<PageRead> pages;  ///< in the order in which they came
    std::vector<CommandRead> commands;
    std::vector<ProblemFound> problems;
    std::vector<MemoryOverrun> overruns;
    std::map<std::string, std::uint64_t> notifications; ///< from the host, counted by their objects
    std::uint64_t statusRequests = 0;
    std::uint64_t replies = 0;      ///< those really sent
    std::uint64_t pagesPrinted = 0; ///< so far: the printer goes on when the host has gone

    [[nodiscard]] JobOutcome outcome() const;
};

[[nodiscard]] nlohmann::ordered_json toJson(const JobReport &job);

/// The report of all jobs, as the text of a JSON document in ASCII.
[[nodiscard]] std::string reportDocument(const std::string &uri, const std::vector<JobReport> &jobs);

/// One line for people, such as "job 1 whole: 4 pages for 2 sheets, 1 copy, 16720 bytes".
[[nodiscard]] std::string summaryOf(const JobReport &job);

/// Collects a job's report while its stream comes in.
class JobRecorder {
  public:
    explicit JobRecorder(std::uint64_t number, StreamReader::Sink sink);
    JobRecorder(const JobRecorder &) = delete;
    JobRecorder &operator=(const JobRecorder &) = delete;

    void feed(std::span<const std::byte> bytes) { reader.feed(bytes); }

    /// The stream stops where it is: what is fed next begins with a header or a command record.
    void breakOff() { reader.breakOff(); }

    [[nodiscard]] const StreamTotals &totals() const { return reader.totals(); }

    [[nodiscard]] const StreamReader &stream() const { return reader; }

    /// Ends the stream.
    void finish();

    JobReport report; ///< complete after `finish()`

  private:
    void note(const StreamEvent &event);

    StreamReader::Sink sink;
    StreamReader reader;
};

} // namespace veltrin::printer
