#pragma once

#include "filter/DeviceURI.h"
#include "filter/JobSettings.h"
#include "platform/Platform.h"

#include <cups/ppd.h>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace veltrin {

/// A filter process of CUPS: its arguments, environment, PPD, job options and job settings. A printer driver
/// derives from it and extends `init` and `run`. Everything runs on the process's main thread.
class CUPSFilter {
  public:
    /// An allocated filter, to be taken through `initWithArgc`. `platform` must outlive it.
    explicit CUPSFilter(platform::Platform &platform);
    CUPSFilter(const CUPSFilter &) = delete;
    CUPSFilter &operator=(const CUPSFilter &) = delete;
    virtual ~CUPSFilter();

    /// Initialises an allocated filter with the process's own arguments (queue name, job id, user, title,
    /// copies, options and, optionally, the input file) and environment. Returns the filter, or null after
    /// releasing it.
    ///
    /// Arguments and device URI are stored before `init` of the most derived class runs, which needs the URI.
    [[nodiscard]] static std::unique_ptr<CUPSFilter> initWithArgc(std::unique_ptr<CUPSFilter> self, int argc,
                                                                  char **argv);

    /// The designated initialiser; false where the filter cannot be used.
    [[nodiscard]] virtual bool init();

    /// Reads the job settings from the options. Always true; a driver runs this first and goes on with the
    /// job.
    [[nodiscard]] virtual bool run();

    /// The job has been cancelled: SIGTERM has arrived. A broken pipe alone is logged and does not cancel.
    [[nodiscard]] bool cancelled() const;

    /// \name Job options
    /// \{
    /// The value as CUPS parsed it; nothing where the job has no such option.
    [[nodiscard]] std::optional<std::string> stringForOption(const std::string &name) const;

    /// The value as a decimal number; 0 where the job has no such option or the value does not begin with a
    /// number.
    [[nodiscard]] std::int32_t intForOption(const std::string &name) const;

    /// True exactly where the value is "true" or "yes", in any case.
    [[nodiscard]] bool boolForOption(const std::string &name) const;
    /// \}

    /// \name Configuration keys
    /// Despite their names these do not consult the PPD but the bundle's information dictionary, which
    /// describes the printer model.
    /// \{
    /// The value under `key`; a missing one is logged.
    [[nodiscard]] std::optional<std::string> stringForPPDAttr(const char *key);

    /// True exactly where the value is "true" or "yes", in any case; a missing one is logged and false.
    [[nodiscard]] bool boolForPPDAttr(const char *key);
    /// \}

  protected:
    /// The value under `key` in the bundle's information dictionary; a missing one is no failure. That there
    /// is no dictionary at all is logged once.
    [[nodiscard]] std::optional<std::string> objectForInfoDictionaryKey(const char *key);

    platform::Platform &platform;

    /// Failing to get a PPD is fatal.
    bool needsPPD = false;

    /// The PPD's NickName; empty without one.
    std::string printerName;

    int argc = 0;
    char **argv = nullptr;

    std::map<std::string, std::string> optionsDict;

    /// Nothing where the environment has no DEVICE_URI, or an empty one.
    std::optional<DeviceURI> uri;

    /// The input page stream: standard input, or the file of the seventh argument.
    int sourceFD = 0;

    JobSettings settings;

    /// The PPD's default paper type, empty without one; 19 characters and a terminator at most.
    std::array<char, 20> DefaultPaperType{};

    /// ICC profile name, from the PPD or else from the information dictionary. The pipeline makes no use of
    /// it.
    std::optional<std::string> cupsICCProfile;

  private:
    struct PPDCloser {
        void operator()(ppd_file_t *file) const;
    };

    [[nodiscard]] bool initWithStoredArguments();
    [[nodiscard]] bool openSource();
    [[nodiscard]] bool findPPD();
    void openPPD();
    void readPPDAttributes();
    void keepDefaultPaperType(const char *value);
    void setupCFLanguage();
    void loadOptions();

    /// Whether the paper that the job asks for can be printed on both sides.
    [[nodiscard]] bool canDuplexPaperSize() const;

    /// Path of the PPD copy, or link to the PPD, that CUPS made for this process; empty without one.
    std::string ppdFile;
    std::unique_ptr<ppd_file_t, PPDCloser> ppd;
    bool dictionaryProblemLogged = false;
};

} // namespace veltrin
