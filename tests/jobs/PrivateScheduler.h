#pragma once

#include "tests/support/Process.h"

#include <cups/cups.h>

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// A CUPS scheduler of the test's own, on a socket in the test's private /tmp, with the filter, its MIME
/// type, its PPD and the virtual printer as a backend installed, and one queue. It ends with the object, and
/// takes its jobs along. Its filters and backends use the message bus that the test uses.
class PrivateScheduler {
  public:
    static constexpr const char *queue = "Test_Queue";
    static constexpr const char *mimeType = "application/vnd.veltrin.page-stream";

    /// A device that is a file.
    static constexpr const char *fileDevice = "/tmp/printer";
    static constexpr const char *fileDeviceUri = "file:///tmp/printer";

    /// The scheme of a device whose printer is at the other end of the channel, without a backend's help.
    static constexpr const char *channelOnly = "elsewhere";

    /// As an installation makes it.
    static constexpr int ordinaryBackend = 0755;
    /// With this mode a scheduler of root's runs a backend as root, and as its own user otherwise.
    static constexpr int rootsBackend = 0700;

    /// Starts it, with a queue that prints to this device. Fails the running test where that is impossible.
    explicit PrivateScheduler(const std::string &deviceUri, int backendMode = ordinaryBackend);
    PrivateScheduler(const PrivateScheduler &) = delete;
    PrivateScheduler &operator=(const PrivateScheduler &) = delete;
    ~PrivateScheduler();

    /// Adds a backend to those that an installation has.
    void installBackend(const std::string &name, const std::string &program,
                        int mode = ordinaryBackend) const;

    void addQueue(const std::string &name, const std::string &deviceUri) const;

    /// Changes the queue as its administrator does: `options` are lpadmin's, such as {"-o", "PageSize=A5"}.
    void administer(const std::vector<std::string> &options, const std::string &name = queue) const;

    /// Sets options that the user's jobs have from now on, as lpoptions does.
    void prefer(const std::vector<std::string> &options, const std::string &name = queue) const;

    /// Hands a page stream to `lp`; `options` are lp's own, such as {"-o", "media=A4"}. Returns the job's id,
    /// 0 where the job was refused.
    int submit(const std::string &stream, const std::vector<std::string> &options,
               const std::string &toQueue = queue);

    /// The same with several documents in one job.
    int submitAll(const std::vector<std::string> &streams, const std::vector<std::string> &options,
                  const std::string &toQueue = queue);

    /// Takes a job back as a user does.
    void cancel(int job) const;

    /// Nothing as long as the scheduler does not know the job.
    [[nodiscard]] std::optional<ipp_jstate_t> stateOf(int job) const;

    /// The sheets that the scheduler has counted for the job; -1 where it does not tell.
    [[nodiscard]] int sheetsOf(int job) const;

    struct QueueStatus {
        ipp_pstate_t state = IPP_PSTATE_STOPPED;
        std::string message;              ///< what people see beside it
        std::vector<std::string> reasons; ///< IPP's keywords
        std::vector<std::string> markers; ///< names of toners
        std::vector<int> markerLevels;
    };

    [[nodiscard]] QueueStatus queueStatus(const std::string &name = queue) const;

    /// What clients are told of the queue under this name, several values with commas in between.
    [[nodiscard]] std::string queueAttribute(const std::string &name) const;

    /// Waits, with a deadline, until `predicate` holds; false where it does not.
    [[nodiscard]] bool waitUntil(const std::function<bool()> &predicate,
                                 std::chrono::milliseconds deadline = processDeadline);

    /// Waits until the job has the state; fails the running test, with the scheduler's log, where it does
    /// not.
    void expectState(int job, ipp_jstate_t state, std::chrono::milliseconds deadline = processDeadline);

    /// Waits until the queue is ready for the next job, likewise.
    void expectIdleQueue(const std::string &name = queue);

    /// How often the scheduler has started the backend for a job.
    [[nodiscard]] std::size_t startsOfBackend(int job) const;

    /// What the scheduler has logged so far.
    [[nodiscard]] std::string log() const;

    /// The names in the directory that the scheduler gives to filters as TMPDIR.
    [[nodiscard]] std::vector<std::string> temporaryFiles() const;

    /// The filter's and the renderer's names, for each process that runs one of them.
    [[nodiscard]] std::vector<std::string> runningFilters() const;

    /// The user of each filter and backend that runs, by its place: "filter/veltrin".
    [[nodiscard]] std::map<std::string, uid_t> runningPrograms() const;

    /// The program, the PPD and the environment with which the scheduler starts the filter of a queue that
    /// prints to a file, to start it by hand.
    [[nodiscard]] Command filterByHand(const std::string &options, const std::string &stream) const;

    /// A program that talks to this scheduler and to no other, such as one of CUPS's own.
    [[nodiscard]] Command clientCommand(const std::string &program, std::vector<std::string> arguments) const;

    /// Lets nobody but root add queues or look for devices any more.
    void guardAdministration();

    /// The same command of a user who is not root.
    [[nodiscard]] static Command asStranger(Command command);

    /// Takes the PPDs away that an installation brings.
    void withdrawModels() const;

    /// Takes away what makes raster of documents.
    void withdrawDocumentFilters();

    /// The PPDs of queues and the documents of jobs that are kept.
    [[nodiscard]] std::vector<std::string> keptFiles() const;

    /// The virtual printer with these arguments as a process of the filters' user, whose notifications it
    /// takes.
    [[nodiscard]] Command printerForFilters(const std::vector<std::string> &arguments) const;

  private:
    void install(int backendMode) const;
    void configure() const;
    void readConfigurationAgain(const std::function<bool()> &done);
    [[nodiscard]] std::string filledIn(std::string configuration) const;

    std::string root;
    int documents = 0; ///< that were submitted
    std::unique_ptr<Process> daemon;
};

} // namespace veltrin::test
