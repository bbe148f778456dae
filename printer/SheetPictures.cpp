#include "printer/SheetPictures.h"

#include "printer/OutputFile.h"
#include "printer/SheetReport.h"
#include "raster/PagePicture.h"
#include "raster/PictureFile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>
#include <variant>

namespace veltrin::printer {

namespace {

/// More of a job's problems are counted only.
constexpr std::size_t mostProblems = 20;

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

/// "sheet-0007-front.png" of "sheet-", 7 and "-front.png".
std::string numbered(const char *before, std::size_t number, const char *behind) {
    std::array<char, 24> digits{};
    std::snprintf(digits.data(), digits.size(), "%04zu", number);
    return std::string(before) + digits.data() + behind;
}

/// Whether a picture of ours is called so, of whatever number.
bool isOurs(std::string name) {
    const auto begin = std::find_if(name.begin(), name.end(), isDigit);
    const auto end = std::find_if_not(begin, name.end(), isDigit);
    if (end - begin < 4) {
        return false;
    }
    name.erase(begin, end);
    return name == "side-.png" || name == "sheet--front.png" || name == "sheet--back.png";
}

std::string textIn(const std::array<char, 64> &field) {
    const std::string_view text(field.data(), field.size());
    return std::string(text.substr(0, text.find('\0')));
}

} // namespace

SheetPictures::SheetPictures(Wishes theWishes)
    : wishes(std::move(theWishes)), planes([this](const raster::PageProblemFound &found) {
          ++job.problemCount;
          if (job.problems.size() < mostProblems) {
              job.problems.push_back(found);
          }
      }) {}

void SheetPictures::start() {
    if (!isWanted()) {
        return;
    }
    if (mkdir(wishes.folder.c_str(), 0777) == 0) {
        return;
    }
    if (errno != EEXIST) {
        fail(wishes.folder, errno);
        return;
    }
    removeOldPictures();
}

/// Those of an earlier printer, which would look like sheets of this one. Where the folder cannot be read,
/// what is written next tells of it.
void SheetPictures::removeOldPictures() {
    std::error_code error;
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(wishes.folder, error)) {
        names.push_back(entry.path().filename().string());
    }
    for (const std::string &name : names) {
        if (isOurs(name) && unlink(pathOf(name).c_str()) != 0) {
            fail(pathOf(name), errno);
        }
    }
}

void SheetPictures::take(std::span<const std::byte> bytes) {
    if (!isWanted()) {
        return;
    }
    listen();
    reader->feed(bytes);
}

/// To the present job, from its first byte on, as its report does.
void SheetPictures::listen() {
    if (!reader) {
        planes.beginStream();
        reader.emplace([this](const StreamEvent &event) { readPart(event); }, IdentifierRule::absent,
                       ReaderOptions{.afterFault = AfterFault::stop, .bands = true, .data = true});
    }
}

void SheetPictures::readPart(const StreamEvent &event) {
    planes.take(event);
    if (const auto *header = std::get_if<FileHeaderRead>(&event)) {
        job.name = textIn(header->header.szFileName);
    } else if (const auto *headerEx = std::get_if<FileHeaderExRead>(&event)) {
        job.user = textIn(headerEx->header.szUserName);
    } else if (std::holds_alternative<PageRead>(event)) {
        endPage();
    }
}

/// Which sheet the side is of shows only when all are there.
void SheetPictures::endPage() {
    ShownSide side;
    if (planes.isDecodable() && failure == 0) {
        side = {numbered("side-", job.sides.size() + 1, ".png"), planes.width(), planes.height(),
                planes.linesBegun()};
        const raster::PagePicture picture(planes, wishes.dotsPerInch);
        if (const int error = raster::writePicture(pathOf(side.picture), picture)) {
            fail(pathOf(side.picture), error);
        }
    }
    job.sides.push_back(side);
}

void SheetPictures::endJob(const JobReport &report) {
    if (!isWanted()) {
        return;
    }
    listen();
    reader->finish();
    const auto become = [this](const std::optional<std::size_t> &side, const std::string &name) {
        if (failure == 0 && side && *side < job.sides.size() && !job.sides[*side].picture.empty()) {
            std::string &picture = job.sides[*side].picture;
            if (std::rename(pathOf(picture).c_str(), pathOf(name).c_str()) != 0) {
                fail(pathOf(name), errno);
            }
            picture = name;
        }
    };
    for (const Sheet &sheet : sheetsOf(report.pages)) {
        ++sheets;
        become(sheet.front, numbered("sheet-", sheets, "-front.png"));
        become(sheet.back, numbered("sheet-", sheets, "-back.png"));
    }
    shown.push_back(std::exchange(job, {}));
    reader.reset();
}

void SheetPictures::note(PrinterTime now, const PrinterModel &printer) {
    if (isWanted()) {
        course.add({now, printer.freeMemory(MemoryPool::image), printer.pagesPrinted(), printer.status()});
    }
}

void SheetPictures::end(const std::vector<JobReport> &jobs) {
    if (!isWanted()) {
        return;
    }
    const std::string path = pathOf("index.html");
    const std::string page = sheetPage(jobs, shown, course);
    OutputFile file(path);
    file.drop();
    file.write(std::as_bytes(std::span(page)));
    file.close();
    if (file.error() != 0) {
        fail(path, file.error());
    }
}

void SheetPictures::fail(const std::string &path, int error) {
    if (failure == 0) {
        failed = path;
        failure = error;
    }
}

} // namespace veltrin::printer
