#include "raster/QueuePPD.h"

#include <cups/cups.h>
#include <cups/ppd.h>

#include <memory>

// CUPS has announced that the PPD functions will go. Until they do, a print filter has nothing else that
// tells it the queue's PPD.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace veltrin::raster {

namespace {

struct PPDCloser {
    void operator()(ppd_file_t *file) const { ppdClose(file); }
};

std::optional<std::string> choiceOf(ppd_file_t *ppd, const char *option) {
    const ppd_choice_t *choice = ppdFindMarkedChoice(ppd, option);
    return choice != nullptr ? std::optional<std::string>(choice->choice) : std::nullopt;
}

} // namespace

PPDChoices choicesInPPD(const std::string &path, const std::string &options, std::string &problem) {
    const std::unique_ptr<ppd_file_t, PPDCloser> ppd(ppdOpenFile(path.c_str()));
    if (ppd == nullptr) {
        int line = 0;
        const ppd_status_t status = ppdLastError(&line);
        problem = "The PPD " + path + " cannot be read: " + ppdErrorString(status) + " (line " +
                  std::to_string(line) + ").";
        return {};
    }
    ppdMarkDefaults(ppd.get());
    cups_option_t *parsed = nullptr;
    const int count = cupsParseOptions(options.c_str(), 0, &parsed);
    cupsMarkOptions(ppd.get(), count, parsed);
    cupsFreeOptions(count, parsed);
    PPDChoices choices;
    choices.collate = choiceOf(ppd.get(), "Collate");
    choices.inputSlot = choiceOf(ppd.get(), "InputSlot");
    choices.paperType = choiceOf(ppd.get(), "PaperType");
    choices.manualCopies = ppd->manual_copies != 0;
    return choices;
}

} // namespace veltrin::raster
