#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrin::raster {

/// The options of a job, as CUPS hands them to its filters in one text. Names compare without case, as CUPS
/// compares them.
class JobOptions {
  public:
    JobOptions() = default;

    /// Reads them with the CUPS library's own parser, so that this is what every other filter understands,
    /// too.
    explicit JobOptions(const std::string &text);

    [[nodiscard]] std::optional<std::string> find(std::string_view name) const;

    /// Replaces an option of this name, in whatever case it was written, or adds one.
    void set(std::string_view name, std::string_view value);

    void remove(std::string_view name);

    /// The options as one text again, from which the parser reads the same names and values.
    [[nodiscard]] std::string text() const;

    /// Names and values, in their order.
    [[nodiscard]] const std::vector<std::pair<std::string, std::string>> &all() const { return options; }

  private:
    std::vector<std::pair<std::string, std::string>> options;
};

} // namespace veltrin::raster
