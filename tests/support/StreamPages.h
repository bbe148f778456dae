#pragma once

#include "driver/stream/PageStream.h"
#include "raster/Separation.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veltrin::test {

/// A page of a stream, its planes decoded.
struct StreamPage {
    PageHeader header{};
    std::uint32_t bands = 0;
    /// By plane: the whole page's rows; empty for a plane without data.
    std::array<std::vector<std::byte>, raster::planeCount> planes;

    [[nodiscard]] bool isBlank() const;

    [[nodiscard]] bool hasInk(raster::Plane plane, std::uint32_t column, std::uint32_t line) const;

    /// How many dots of the rectangle have ink.
    [[nodiscard]] std::uint32_t inkIn(raster::Plane plane, std::uint32_t column, std::uint32_t line,
                                      std::uint32_t columns, std::uint32_t lines) const;
};

/// A whole stream, read with the reader that knows its form.
struct StreamContents {
    std::string identifier; ///< empty where the stream has none
    FileHeader header{};
    FileHeaderEx headerEx{};
    std::vector<StreamPage> pages; ///< those that are complete
    bool wellFormed = false;
    bool endOfJob = false;
    std::vector<std::string> problems; ///< those of the stream, and of its planes
};

[[nodiscard]] StreamContents contentsOf(const std::string &stream);

} // namespace veltrin::test
