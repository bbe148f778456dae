#pragma once

#include "tests/support/Process.h"

#include <cups/cups.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// A CUPS scheduler of the test's own, on a socket in the test's private /tmp, with the filter, its MIME type
/// and its PPD installed and one queue. It ends with the object, and takes its jobs along.
class PrivateScheduler {
  public:
    static constexpr const char *queue = "Test_Queue";
    static constexpr const char *mimeType = "application/vnd.veltrin.page-stream";

    /// Starts it, with a queue that prints to the file `device`. Fails the running test where that is
    /// impossible.
    explicit PrivateScheduler(std::string device);
    PrivateScheduler(const PrivateScheduler &) = delete;
    PrivateScheduler &operator=(const PrivateScheduler &) = delete;
    ~PrivateScheduler();

    /// Hands a page stream to `lp`; `options` are lp's own, such as {"-o", "media=A4"}. Returns the job's id,
    /// 0 where the job was refused.
    int submit(const std::string &stream, const std::vector<std::string> &options);

    /// Takes a job back as a user does.
    void cancel(int job);

    /// Nothing as long as the scheduler does not know the job.
    [[nodiscard]] std::optional<ipp_jstate_t> stateOf(int job) const;

    struct QueueStatus {
        ipp_pstate_t state = IPP_PSTATE_STOPPED;
        std::string message; ///< what people see beside it
    };

    [[nodiscard]] QueueStatus queueStatus() const;

    /// Waits, with a deadline, until `predicate` holds; false where it does not.
    [[nodiscard]] bool waitUntil(const std::function<bool()> &predicate);

    /// Waits until the job has the state; fails the running test, with the scheduler's log, where it does
    /// not.
    void expectState(int job, ipp_jstate_t state);

    /// Waits until the queue is ready for the next job, likewise.
    void expectIdleQueue();

    /// What the scheduler has logged so far.
    [[nodiscard]] std::string log() const;

    /// The names in the directory that the scheduler gives to filters as TMPDIR.
    [[nodiscard]] std::vector<std::string> temporaryFiles() const;

    /// The program, the PPD and the environment with which the scheduler starts the filter, to start it by
    /// hand.
    [[nodiscard]] Command filterByHand(const std::string &options, const std::string &stream) const;

  private:
    void install() const;
    void configure() const;
    [[nodiscard]] std::string filledIn(std::string configuration) const;
    [[nodiscard]] Command clientCommand(const char *program, std::vector<std::string> arguments) const;

    std::string root;
    std::string device;
    std::unique_ptr<Process> daemon;
};

} // namespace veltrin::test
