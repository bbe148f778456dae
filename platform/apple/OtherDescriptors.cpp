#include "platform/StandardDescriptors.h"

#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace veltrin::platform {

namespace {

/// The open descriptors. macOS has no closefrom(), and as many numbers as its limit allows would be too many
/// to try.
std::vector<int> openDescriptors() {
    std::vector<int> numbers;
    std::error_code error;
    for (std::filesystem::directory_iterator entry("/dev/fd", error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename();
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
