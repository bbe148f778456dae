#pragma once

#include <cstddef>
#include <optional>
#include <span>

// Finds the way back into a page stream that is damaged.

namespace veltrin {

/// Where in the stream its damage is; it decides what may come next.
enum class SearchPlace {
    job,         ///< outside a page: a band would belong to none
    page,        ///< inside a page
    afterEnd,    ///< behind the end-of-job mark: command records, or another job
    afterCancel, ///< behind a cancel record: another job
};

/// As many bytes, the header's own included, as `makesSense()` needs to be sure.
inline constexpr std::size_t searchAhead = 156;

/// Whether a header, an end-of-job mark or a command record that makes sense stands at the beginning of
/// `bytes`. Four bytes of image data can look like any tag, so there must be more evidence than that:
///
/// - a job or page header says its own length, or is followed by another tag;
/// - a band's size can be had, and a tag follows its data; where the data reaches further than `bytes`, it
///   uses no bits of its settings but those of the last byte;
/// - an end-of-job mark is followed by the end of the input, a command record or another job;
/// - a command record is one that the printer knows.
///
/// `isAll` says that the input ends with `bytes`; otherwise there are at least `searchAhead` of them.
[[nodiscard]] bool makesSense(std::span<const std::byte> bytes, bool isAll, SearchPlace place);

/// The first place at `from` or behind it where `makesSense()` holds. Unless `isAll`, places with fewer than
/// `searchAhead` bytes are left for the next time.
[[nodiscard]] std::optional<std::size_t> findHeader(std::span<const std::byte> bytes, std::size_t from,
                                                    bool isAll, SearchPlace place);

} // namespace veltrin
