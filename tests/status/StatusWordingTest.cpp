#include "status/StatusWording.h"

#include "status/MediaNames.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TEST(StatusWording, PutsThePapersNameIntoTheText) {
    EXPECT_EQ(statusWording(statusText(33, 1, 9), 9), "Cover open");
    EXPECT_EQ(statusWording(statusText(17, 2, 9), 9), "Paper size A4 mismatch on Tray 2");
    EXPECT_EQ(statusWording(statusText(19, 1, 14), 14), "Paper type Envelope mismatch on Tray 1");
    EXPECT_EQ(statusWording(statusText(17, 9, 200), 200),
              "Paper size Unknown paper size - do not translate mismatch");
}

TEST(StatusWording, TranslatesTheTextAndTheNameByTheirKeys) {
    std::vector<std::string> asked;
    const auto translation = [&asked](LocalizedText text) {
        asked.emplace_back(text.key);
        return asked.size() == 1 ? "<%@ 100%%>" : "name";
    };
    EXPECT_EQ(statusWording(statusText(19, 2, 14), 14, translation), "<name 100%>");
    EXPECT_THAT(asked, ElementsAre("TypeMismatch2", paperTypeName(14).key));
    asked.clear();
    EXPECT_EQ(statusWording(statusText(33, 0, 14), 14, translation), "<%@ 100%%>") << "there is no name";
    EXPECT_THAT(asked, ElementsAre("CoverOpen"));
}

TEST(StatusWording, IsEmptyWhereTheCatalogueHasNoText) {
    bool isAsked = false;
    const auto translation = [&isAsked](LocalizedText /*text*/) {
        isAsked = true;
        return "words";
    };
    EXPECT_THAT(statusWording(statusText(57, 0, 0), 0, translation), IsEmpty());
    const StatusText namedOnly = statusText(37, 9, 14);
    EXPECT_EQ(namedOnly.name, PaperName::type);
    EXPECT_THAT(statusWording(namedOnly, 14, translation), IsEmpty());
    EXPECT_FALSE(isAsked);
}

} // namespace
} // namespace veltrin
