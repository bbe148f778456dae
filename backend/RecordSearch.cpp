#include "backend/RecordSearch.h"

#include <algorithm>
#include <cstring>

namespace veltrin::backend {

namespace {

using Bytes = std::span<const std::byte>;

const auto tag = std::as_bytes(std::span(reverseRecordTag));

/// How many bytes at the end may become a tag when more comes.
std::size_t beginningOfTag(Bytes bytes) {
    std::size_t size = std::min(bytes.size(), tag.size() - 1);
    while (!std::equal(tag.begin(), tag.begin() + static_cast<std::ptrdiff_t>(size),
                       bytes.end() - static_cast<std::ptrdiff_t>(size))) {
        --size;
    }
    return size;
}

/// Where the tag stands first, or what may become one when more comes; the size of `bytes` where it does not.
std::size_t findTag(Bytes bytes) {
    const auto found = std::search(bytes.begin(), bytes.end(), tag.begin(), tag.end());
    return found != bytes.end() ? static_cast<std::size_t>(found - bytes.begin())
                                : bytes.size() - beginningOfTag(bytes);
}

/// Whether the record in front was cut off and another one begins inside of it, be it with its last byte.
bool isCutOff(Bytes bytes) {
    const std::size_t reach = std::min(bytes.size(), sizeof(ReverseRecord) + tag.size() - 1);
    const Bytes behindTag = bytes.first(reach).subspan(tag.size());
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
        if (isCutOff(left)) {
            left = left.subspan(tag.size());
        } else {
            newest.emplace();
            std::memcpy(&*newest, candidate.data(), candidate.size());
            left = left.subspan(candidate.size() - beginningOfTag(candidate)); // a tag may go on there
        }
        left = left.subspan(findTag(left));
    }
    rest.erase(rest.begin(), rest.end() - static_cast<std::ptrdiff_t>(left.size()));
    return newest;
}

} // namespace veltrin::backend
