#include "tools/dump/PagePictures.h"

#include "raster/PagePicture.h"
#include "raster/PictureFile.h"

#include <array>
#include <cstdio>
#include <utility>
#include <variant>

namespace veltrin {

namespace {

std::string fileNameOf(std::uint64_t page) {
    std::array<char, 40> name{};
    std::snprintf(name.data(), name.size(), "page-%04llu.png", static_cast<unsigned long long>(page));
    return name.data();
}

} // namespace

PagePictures::PagePictures(Wishes theWishes, Listener theListener)
    : wishes(std::move(theWishes)), listener(std::move(theListener)),
      planes([this](const raster::PageProblemFound &found) {
          ++problemsFound;
          listener.problemFound(found);
      }) {}

void PagePictures::take(const StreamEvent &event) {
    if (failure != 0) {
        return;
    }
    planes.take(event);
    if (const auto *page = std::get_if<PageRead>(&event)) {
        endPage(*page);
    }
}

void PagePictures::endPage(const PageRead &page) {
    ++pages;
    if (!planes.isDecodable()) {
        return;
    }
    const std::string name = fileNameOf(pages);
    const std::string path = wishes.folder + "/" + name;
    const raster::PagePicture picture(planes, wishes.dotsPerInch);
    failure = raster::writePicture(path, picture);
    if (failure != 0) {
        failed = path;
        return;
    }
    ++pictures;
    listener.pictureWritten({page.offset, name, picture.width(), picture.height(), picture.resolution()});
}

} // namespace veltrin
