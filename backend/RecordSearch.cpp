#include "backend/RecordSearch.h"

#include <algorithm>
#include <cstring>

namespace veltrin::backend {

namespace {

using Bytes = std::span<const std::byte>;

const auto tag = std::as_bytes(std::span(reverseRecordTag));

/// Where the tag stands first, or what may become one when more comes; the size of `bytes` where it does not.
std::size_t findTag(Bytes bytes) {
    const auto found = std::search(bytes.begin(), bytes.end(), tag.begin(), tag.end());
    if (found != bytes.end()) {
        return static_cast<std::size_t>(found - bytes.begin());
    }
    std::size_t size = std::min(bytes.size(), tag.size() - 1);
    while (!std::equal(tag.begin(), tag.begin() + static_cast<std::ptrdiff_t>(size),
                       bytes.end() - static_cast<std::ptrdiff_t>(size))) {
        --size;
    }
    return bytes.size() - size;
}

/// Whether the record was cut off and another one begins inside of it.
bool isCutOff(Bytes record) {
    const Bytes behindTag = record.subspan(tag.size());
    return std::search(behindTag.begin(), behindTag.end(), tag.begin(), tag.end()) != behindTag.end();
}

} // namespace

std::optional<ReverseRecord> RecordSearch::take(std::span<const std::byte> bytes) {
    rest.insert(rest.end(), bytes.begin(), bytes.end());
    std::optional<ReverseRecord> newest;
    Bytes left = rest;
    left = left.subspan(findTag(left));
    while (left.size() >= sizeof(ReverseRecord)) {
        const Bytes candidate = left.first(sizeof(ReverseRecord));
        if (isCutOff(candidate)) {
            left = left.subspan(tag.size());
        } else {
            newest.emplace();
            std::memcpy(&*newest, candidate.data(), candidate.size());
            left = left.subspan(candidate.size());
        }
        left = left.subspan(findTag(left));
    }
    rest.erase(rest.begin(), rest.end() - static_cast<std::ptrdiff_t>(left.size()));
    return newest;
}

} // namespace veltrin::backend
