#include "raster/PlaneCoding.h"

#include <gtest/gtest.h>

#include <zstd.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <vector>

namespace veltrin::raster {

void PrintTo(PlaneProblem problem, std::ostream *os);

void PrintTo(PlaneProblem problem, std::ostream *os) {
    *os << textOf(problem);
}

namespace {

using Bytes = std::vector<std::byte>;

constexpr std::uint16_t rawMode = 0;
constexpr std::uint16_t zstdMode = 1;

/// Rows of 100 dots, 40 of them, with ink in places that `seed` decides; the dots that fill up a row have
/// none.
Bytes somePlane(std::uint32_t seed) {
    std::mt19937 random(seed);
    Bytes plane(planeBytes(100, 40));
    for (std::size_t at = 0; at < plane.size(); ++at) {
        const bool isLastOfRow = at % rowBytes(100) == rowBytes(100) - 1;
        plane[at] = static_cast<std::byte>(random() % 3 == 0 ? random() & (isLastOfRow ? 0xF0U : 0xFFU) : 0U);
    }
    return plane;
}

Bytes encoded(const Bytes &plane, CompressMode mode) {
    PlaneEncoder encoder(mode);
    const auto coded = encoder.encode(plane);
    EXPECT_TRUE(coded);
    return coded ? Bytes(coded->begin(), coded->end()) : Bytes();
}

/// A frame as anybody can make one, of `content`.
Bytes frameOf(const Bytes &content, bool tellsSize = true, bool checksum = false) {
    Bytes frame(ZSTD_compressBound(content.size()));
    ZSTD_CCtx *context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_contentSizeFlag, tellsSize ? 1 : 0);
    ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, checksum ? 1 : 0);
    const std::size_t size =
        ZSTD_compress2(context, frame.data(), frame.size(), content.data(), content.size());
    ZSTD_freeCCtx(context);
    EXPECT_FALSE(ZSTD_isError(size));
    frame.resize(size);
    return frame;
}

/// Decodes into a room of `size` bytes that is followed by others, which must stay as they are.
std::optional<PlaneProblem> decoded(const Bytes &coded, std::uint16_t mode, std::size_t size, Bytes &plane) {
    constexpr std::size_t guard = 64;
    Bytes room(size + guard, std::byte{0xA5});
    const auto problem = decodePlane(coded, mode, std::span(room).first(size));
    EXPECT_TRUE(
        std::all_of(room.end() - guard, room.end(), [](std::byte b) { return b == std::byte{0xA5}; }));
    plane.assign(room.begin(), room.end() - guard);
    return problem;
}

std::optional<PlaneProblem> problemOf(const Bytes &coded, std::uint16_t mode, std::size_t size) {
    Bytes plane;
    const auto problem = decoded(coded, mode, size, plane);
    if (problem) {
        EXPECT_EQ(plane, Bytes(size)) << "a plane with a problem is without ink";
    }
    return problem;
}

Bytes joined(Bytes first, const Bytes &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST(PlaneCoding, RowsAreFilledUpToWholeBytes) {
    EXPECT_EQ(rowBytes(0), 0U);
    EXPECT_EQ(rowBytes(1), 1U);
    EXPECT_EQ(rowBytes(8), 1U);
    EXPECT_EQ(rowBytes(9), 2U);
    EXPECT_EQ(rowBytes(4961), 621U);
    EXPECT_EQ(rowBytes(0xFFFFFFFF), 0x20000000U);
    EXPECT_EQ(planeBytes(4961, 128), std::size_t{621} * 128);
    EXPECT_EQ(planeBytes(65535, 65535), std::size_t{8192} * 65535);
}

TEST(PlaneCoding, WhatWasEncodedIsDecodedAgain) {
    for (const CompressMode mode : {CompressMode::raw, CompressMode::zstd}) {
        PlaneEncoder encoder(mode); // the same for all of them
        for (std::uint32_t seed = 1; seed <= 100; ++seed) {
            const Bytes plane = somePlane(seed);
            const auto coded = encoder.encode(plane);
            ASSERT_TRUE(coded);
            Bytes back;
            EXPECT_EQ(decoded(Bytes(coded->begin(), coded->end()), static_cast<std::uint16_t>(mode),
                              plane.size(), back),
                      std::nullopt);
            EXPECT_EQ(back, plane) << "seed " << seed;
        }
    }
}

TEST(PlaneCoding, RawRowsStandAsTheyAre) {
    const Bytes plane = somePlane(1);
    EXPECT_EQ(encoded(plane, CompressMode::raw), plane);
}

TEST(PlaneCoding, APlaneWithoutInkIsNothing) {
    for (const CompressMode mode : {CompressMode::raw, CompressMode::zstd}) {
        EXPECT_EQ(encoded(Bytes(4000), mode), Bytes());
        EXPECT_EQ(encoded(Bytes(), mode), Bytes());
        Bytes plane;
        EXPECT_EQ(decoded({}, static_cast<std::uint16_t>(mode), 4000, plane), std::nullopt);
        EXPECT_EQ(plane, Bytes(4000));
    }
}

TEST(PlaneCoding, ASingleDotIsInkWhereverItIs) {
    for (const std::size_t at : {std::size_t{0}, std::size_t{1}, std::size_t{1999}, std::size_t{3999}}) {
        Bytes plane(4000);
        plane[at] = std::byte{1};
        EXPECT_EQ(encoded(plane, CompressMode::raw), plane) << at;
        Bytes back;
        EXPECT_EQ(decoded(encoded(plane, CompressMode::zstd), zstdMode, plane.size(), back), std::nullopt);
        EXPECT_EQ(back, plane) << at;
    }
    EXPECT_EQ(encoded(Bytes(1, std::byte{1}), CompressMode::raw).size(), 1U);
}

TEST(PlaneCoding, ACompressedPlaneIsSmallerWhereThereIsPattern) {
    Bytes plane(planeBytes(4961, 128));
    for (std::size_t at = 0; at < plane.size(); ++at) {
        plane[at] = static_cast<std::byte>(at % 7 == 0 ? 0x3C : 0);
    }
    EXPECT_LT(encoded(plane, CompressMode::zstd).size(), plane.size() / 20);
}

TEST(PlaneCoding, RowsOfAnotherNumberAreRefused) {
    const Bytes plane = somePlane(2);
    EXPECT_EQ(problemOf(plane, rawMode, plane.size() + 1), PlaneProblem::tooShort);
    EXPECT_EQ(problemOf(plane, rawMode, plane.size() - 1), PlaneProblem::tooLong);
    EXPECT_EQ(problemOf(plane, rawMode, 0), PlaneProblem::tooLong);
}

TEST(PlaneCoding, AnUnknownModeIsRefusedButForAPlaneWithoutInk) {
    for (const int number : {2, 3, 0x0100, 0xFFFF}) {
        const auto mode = static_cast<std::uint16_t>(number);
        EXPECT_EQ(problemOf(somePlane(3), mode, 1000), PlaneProblem::unknownMode) << mode;
        EXPECT_EQ(problemOf({}, mode, 1000), std::nullopt) << mode;
    }
}

TEST(PlaneCoding, AFrameThatEndsEarlyIsTooShort) {
    const Bytes plane = somePlane(4);
    const Bytes coded = encoded(plane, CompressMode::zstd);
    for (std::size_t size = 1; size < coded.size(); ++size) {
        const Bytes cut(coded.begin(), coded.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(problemOf(cut, zstdMode, plane.size()), PlaneProblem::tooShort) << size;
    }
}

TEST(PlaneCoding, AnythingBehindTheFrameIsRefused) {
    const Bytes plane = somePlane(5);
    const Bytes coded = encoded(plane, CompressMode::zstd);
    EXPECT_EQ(problemOf(joined(coded, Bytes(1)), zstdMode, plane.size()), PlaneProblem::trailingBytes);
    EXPECT_EQ(problemOf(joined(coded, coded), zstdMode, plane.size()), PlaneProblem::trailingBytes);
    // A frame to be skipped, and one without content.
    const Bytes skipped = {std::byte{0x50}, std::byte{0x2A}, std::byte{0x4D}, std::byte{0x18},
                           std::byte{0},    std::byte{0},    std::byte{0},    std::byte{0}};
    EXPECT_EQ(problemOf(joined(coded, skipped), zstdMode, plane.size()), PlaneProblem::trailingBytes);
    EXPECT_EQ(problemOf(joined(coded, frameOf({})), zstdMode, plane.size()), PlaneProblem::trailingBytes);
    EXPECT_EQ(problemOf(joined(skipped, coded), zstdMode, plane.size()), PlaneProblem::notAFrame);
}

TEST(PlaneCoding, AFrameOfAnotherSizeIsRefused) {
    const Bytes plane = somePlane(6);
    const Bytes coded = encoded(plane, CompressMode::zstd);
    EXPECT_EQ(problemOf(coded, zstdMode, plane.size() - 1), PlaneProblem::otherSize);
    EXPECT_EQ(problemOf(coded, zstdMode, plane.size() + 1), PlaneProblem::otherSize);
    EXPECT_EQ(problemOf(coded, zstdMode, 0), PlaneProblem::otherSize);
    EXPECT_EQ(problemOf(frameOf({}), zstdMode, plane.size()), PlaneProblem::otherSize);
    EXPECT_EQ(problemOf(frameOf(plane, false), zstdMode, plane.size()), PlaneProblem::otherSize);
}

TEST(PlaneCoding, WhatIsNoFrameIsRefused) {
    EXPECT_EQ(problemOf(somePlane(7), zstdMode, somePlane(7).size()), PlaneProblem::notAFrame);
    EXPECT_EQ(problemOf(Bytes(1), zstdMode, 4000), PlaneProblem::notAFrame);
    // The beginning of a frame of one of the library's earlier formats.
    const Bytes old = {std::byte{0x27}, std::byte{0xB5}, std::byte{0x2F}, std::byte{0xFD}, std::byte{0}};
    EXPECT_EQ(problemOf(old, zstdMode, 4000), PlaneProblem::notAFrame);
}

TEST(PlaneCoding, AFewBytesThatUnpackToMuchAreRefusedBeforeTheyDo) {
    const Bytes bomb = frameOf(Bytes(std::size_t{64} * 1024 * 1024));
    ASSERT_LT(bomb.size(), 10000U);
    EXPECT_EQ(problemOf(bomb, zstdMode, 4000), PlaneProblem::otherSize);
}

TEST(PlaneCoding, AFrameThatUnpacksToMoreThanItSaysIsDamaged) {
    const Bytes content(std::size_t{1024} * 1024, std::byte{0x55});
    Bytes bomb = frameOf(content);
    // A single segment of a size in four bytes stands behind magic number and descriptor.
    ASSERT_EQ(bomb[4], std::byte{0xA0});
    constexpr std::uint32_t says = 80000;
    for (std::size_t i = 0; i < 4; ++i) {
        bomb[5 + i] = static_cast<std::byte>(says >> (8 * i));
    }
    EXPECT_EQ(problemOf(bomb, zstdMode, says), PlaneProblem::damaged);
}

TEST(PlaneCoding, AFrameWithoutChecksumIsTakenToo) {
    const Bytes plane = somePlane(8);
    Bytes back;
    EXPECT_EQ(decoded(frameOf(plane), zstdMode, plane.size(), back), std::nullopt);
    EXPECT_EQ(back, plane);
}

TEST(PlaneCoding, ABitThatChangedOnTheWayNeverMakesAnotherPlane) {
    const Bytes plane = somePlane(9);
    const Bytes coded = encoded(plane, CompressMode::zstd);
    for (std::size_t at = 0; at < coded.size(); ++at) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            Bytes changed = coded;
            changed[at] ^= static_cast<std::byte>(1U << bit);
            Bytes back;
            // Now and then a bit says the same in another way.
            EXPECT_TRUE(decoded(changed, zstdMode, plane.size(), back) || back == plane)
                << at << " bit " << bit;
        }
    }
}

TEST(PlaneCoding, NoiseIsRefusedOrDecodedButNeverOverruns) {
    std::mt19937 random(10);
    const Bytes whole = encoded(somePlane(10), CompressMode::zstd);
    for (int round = 0; round < 20000; ++round) {
        Bytes noise(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(4 + random() % 8));
        const std::size_t size = noise.size() + random() % 200;
        while (noise.size() < size) {
            noise.push_back(static_cast<std::byte>(random()));
        }
        static_cast<void>(problemOf(noise, zstdMode, planeBytes(100, 40)));
    }
}

TEST(PlaneCoding, EveryProblemHasATextOfItsOwn) {
    std::vector<std::string> texts;
    for (const PlaneProblem problem :
         {PlaneProblem::unknownMode, PlaneProblem::tooShort, PlaneProblem::tooLong, PlaneProblem::notAFrame,
          PlaneProblem::otherSize, PlaneProblem::trailingBytes, PlaneProblem::damaged,
          PlaneProblem::noMemory}) {
        texts.emplace_back(textOf(problem));
    }
    std::sort(texts.begin(), texts.end());
    EXPECT_EQ(std::adjacent_find(texts.begin(), texts.end()), texts.end());
}

} // namespace
} // namespace veltrin::raster
