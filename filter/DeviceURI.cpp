#include "filter/DeviceURI.h"

#include <algorithm>

namespace veltrin {

namespace {

bool isLetter(char character) {
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z');
}

bool isSchemeCharacter(char character) {
    return isLetter(character) || (character >= '0' && character <= '9') || character == '+' ||
           character == '-' || character == '.';
}

} // namespace

std::string DeviceURI::scheme() const {
    const std::size_t colon = text.find(':');
    if (colon == std::string::npos || colon == 0 || !isLetter(text.front())) {
        return {};
    }
    std::string scheme = text.substr(0, colon);
    return std::all_of(scheme.begin(), scheme.end(), isSchemeCharacter) ? scheme : std::string();
}

} // namespace veltrin
