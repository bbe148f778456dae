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
    if (const auto *job = std::get_if<FileHeaderRead>(&event)) {
        planes.beginJob(job->header);
    } else if (const auto *page = std::get_if<PageBegun>(&event)) {
        planes.beginPage(page->offset, page->header);
    } else if (const auto *band = std::get_if<BandRead>(&event)) {
        planes.beginBand(band->offset, band->header);
    } else if (const auto *data = std::get_if<BandDataRead>(&event)) {
        planes.takeData(data->bytes);
    } else if (const auto *read = std::get_if<PageRead>(&event)) {
        endPage(*read);
    }
}

void PagePictures::endPage(const PageRead &page) {
    planes.endPage(page.complete);
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
