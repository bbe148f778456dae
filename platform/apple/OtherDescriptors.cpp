#include "platform/StandardDescriptors.h"

#include <dirent.h>
#include <unistd.h>

#include <charconv>
#include <memory>
#include <string_view>
#include <vector>

namespace veltrin::platform {

namespace {

/// The open descriptors. macOS has no closefrom(), and as many numbers as its limit allows would be too many
/// to try.
std::vector<int> openDescriptors() {
    std::vector<int> numbers;
    const std::unique_ptr<DIR, int (*)(DIR *)> folder(opendir("/dev/fd"), closedir);
    while (const dirent *entry = folder ? readdir(folder.get()) : nullptr) {
        const std::string_view name = entry->d_name;
        int number = 0;
        if (std::from_chars(name.data(), name.data() + name.size(), number).ec == std::errc()) {
            numbers.push_back(number);
        }
    }
    return numbers;
}

} // namespace

void closeAllButStandardDescriptors() {
    for (const int number : openDescriptors()) {
        if (number > STDERR_FILENO) {
            close(number); // that of the folder itself is closed already
        }
    }
}

} // namespace veltrin::platform
