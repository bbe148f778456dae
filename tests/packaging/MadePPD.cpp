#include "tests/packaging/MadePPD.h"

#include "tests/support/PrivateTmp.h"

#include <cups/cups.h>
#include <gtest/gtest.h>

#include <algorithm>

// CUPS has announced that the PPD functions will go, but they are what reads these files.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace veltrin::test {

namespace fs = std::filesystem;

void MadePPD::Closer::operator()(ppd_file_t *ppd) const {
    ppdClose(ppd);
}

MadePPD::MadePPD(const fs::path &path) : name(path.string()), file(ppdOpenFile(path.c_str())) {
    if (file == nullptr) {
        int line = 0;
        const ppd_status_t status = ppdLastError(&line);
        ADD_FAILURE() << name << ", line " << line << ": " << ppdErrorString(status);
        return;
    }
    markDefaults();
}

std::vector<const ppd_option_t *> MadePPD::options() const {
    std::vector<const ppd_option_t *> all;
    for (int group = 0; group < file->num_groups; ++group) {
        for (int option = 0; option < file->groups[group].num_options; ++option) {
            all.push_back(&file->groups[group].options[option]);
        }
    }
    return all;
}

std::vector<std::string> MadePPD::choices(const std::string &option) const {
    std::vector<std::string> names;
    if (const ppd_option_t *found = ppdFindOption(file.get(), option.c_str())) {
        for (int choice = 0; choice < found->num_choices; ++choice) {
            names.emplace_back(found->choices[choice].choice);
        }
    }
    return names;
}

std::string MadePPD::text(const std::string &option, const std::string &choice) const {
    const ppd_choice_t *found = ppdFindChoice(ppdFindOption(file.get(), option.c_str()), choice.c_str());
    return found != nullptr ? found->text : "";
}

std::optional<std::string> MadePPD::attribute(const std::string &keyword, const std::string &option) const {
    const ppd_attr_t *found =
        ppdFindAttr(file.get(), keyword.c_str(), option.empty() ? nullptr : option.c_str());
    return found != nullptr && found->value != nullptr ? std::optional<std::string>(found->value)
                                                       : std::nullopt;
}

std::optional<std::string> MadePPD::attributeText(const std::string &keyword,
                                                  const std::string &option) const {
    const ppd_attr_t *found = ppdFindAttr(file.get(), keyword.c_str(), option.c_str());
    return found != nullptr ? std::optional<std::string>(found->text) : std::nullopt;
}

const ppd_size_t &MadePPD::size(const std::string &sizeName) const {
    static const ppd_size_t none{};
    const ppd_size_t *found = ppdPageSize(file.get(), sizeName.c_str());
    EXPECT_NE(found, nullptr) << sizeName;
    return found != nullptr ? *found : none;
}

void MadePPD::markDefaults() const {
    ppdMarkDefaults(file.get());
}

void MadePPD::mark(const std::string &option, const std::string &choice) const {
    ppdMarkOption(file.get(), option.c_str(), choice.c_str());
    // A custom size is marked by its values.
    EXPECT_EQ(marked(option), choice.substr(0, choice.find('.'))) << option;
}

std::string MadePPD::marked(const std::string &option) const {
    const ppd_choice_t *choice = ppdFindMarkedChoice(file.get(), option.c_str());
    return choice != nullptr ? choice->choice : "";
}

bool MadePPD::hasConflict() const {
    return ppdConflicts(file.get()) > 0;
}

raster::RasterPage MadePPD::page() const {
    cups_page_header2_t header{};
    EXPECT_EQ(cupsRasterInterpretPPD(&header, file.get(), 0, nullptr, nullptr), 0) << name;
    std::string problem;
    const auto page = raster::rasterPageFrom(header, problem);
    EXPECT_TRUE(page) << name << ": " << problem;
    return page.value_or(raster::RasterPage{});
}

void MadePPD::localize() const {
    EXPECT_EQ(ppdLocalize(file.get()), 0) << name;
}

std::vector<fs::path> madePPDs() {
    std::vector<fs::path> paths;
    for (const auto &entry : fs::directory_iterator(hostPath(VELTRIN_PPDS))) {
        paths.push_back(entry.path());
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::vector<MadePPD> openPPDs() {
    std::vector<MadePPD> ppds;
    for (const fs::path &path : madePPDs()) {
        if (MadePPD ppd(path); ppd.isOpen()) {
            ppds.push_back(std::move(ppd));
        }
    }
    EXPECT_FALSE(ppds.empty());
    return ppds;
}

} // namespace veltrin::test
