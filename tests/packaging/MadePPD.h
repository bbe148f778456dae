#pragma once

#include "raster/RasterPage.h"

#include <cups/ppd.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// One of the PPDs that the build has made, opened by the CUPS library as a print dialogue opens it, with its
/// defaults marked.
class MadePPD {
  public:
    /// A file that is no PPD fails the running test; ask `isOpen` then.
    explicit MadePPD(const std::filesystem::path &path);

    [[nodiscard]] bool isOpen() const { return file != nullptr; }

    [[nodiscard]] ppd_file_t *get() const { return file.get(); }

    ppd_file_t *operator->() const { return file.get(); }

    [[nodiscard]] const std::string &path() const { return name; }

    /// In all groups.
    [[nodiscard]] std::vector<const ppd_option_t *> options() const;

    /// By their names, in order; none where there is no such option.
    [[nodiscard]] std::vector<std::string> choices(const std::string &option) const;

    /// What a dialogue in English shows for a choice.
    [[nodiscard]] std::string text(const std::string &option, const std::string &choice) const;

    /// The value of an attribute such as "1284DeviceID"; nothing where there is none.
    [[nodiscard]] std::optional<std::string> attribute(const std::string &keyword,
                                                       const std::string &option = "") const;

    /// The text of such an attribute, which is where translations stand.
    [[nodiscard]] std::optional<std::string> attributeText(const std::string &keyword,
                                                           const std::string &option) const;

    /// A page size; there must be one of this name.
    [[nodiscard]] const ppd_size_t &size(const std::string &name) const;

    void markDefaults() const;

    void mark(const std::string &option, const std::string &choice) const;

    /// The choice that is marked; empty where none is.
    [[nodiscard]] std::string marked(const std::string &option) const;

    /// Whether what is marked contradicts itself, as a dialogue is told.
    [[nodiscard]] bool hasConflict() const;

    /// The page that the renderer gets where this is marked, after CUPS has interpreted the choices' code. A
    /// header that it refuses fails the running test.
    [[nodiscard]] raster::RasterPage page() const;

    /// Puts the texts of the environment's language in place of the English ones.
    void localize() const;

  private:
    struct Closer {
        void operator()(ppd_file_t *ppd) const;
    };

    std::string name;
    std::unique_ptr<ppd_file_t, Closer> file;
};

/// All that were made, sorted by their names.
[[nodiscard]] std::vector<std::filesystem::path> madePPDs();

/// All of them opened; one that is no PPD fails the running test and is left out.
[[nodiscard]] std::vector<MadePPD> openPPDs();

} // namespace veltrin::test
