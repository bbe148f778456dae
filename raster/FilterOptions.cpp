#include "raster/FilterOptions.h"

#include <optional>
#include <string>

namespace veltrin::raster {

namespace {

constexpr const char *copiesOption = "com.apple.print.PrintSettings.PMCopies..n.";
constexpr const char *collateOption = "com.apple.print.PrintSettings.PMCopyCollate..b.";
constexpr const char *sidesOption = "com.apple.print.PrintSettings.PMDuplexing..n.";
constexpr const char *sidesImagedOption = "com.apple.print.PrintSettings.PMTotalSidesImaged..n.";

} // namespace

JobOptions filterOptions(const JobOptions &options, const JobTicket &ticket) {
    JobOptions result = options;
    result.set(copiesOption, std::to_string(ticket.layout.copies));
    result.set(collateOption, ticket.layout.collate ? "true" : "false");
    result.set(sidesOption, std::to_string(static_cast<unsigned>(ticket.sides)));
    // The filter counts the sides in the stream, where they are certain.
    result.remove(sidesImagedOption);
    const auto setOrRemove = [&result](const char *name, const std::optional<std::string> &value) {
        if (value) {
            result.set(name, *value);
        } else {
            result.remove(name);
        }
    };
    setOrRemove("media", ticket.media);
    setOrRemove("PaperType", ticket.paperType);
    return result;
}

} // namespace veltrin::raster
