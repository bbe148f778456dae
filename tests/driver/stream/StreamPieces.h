#pragma once

#include "driver/stream/CommandRecord.h"
#include "driver/stream/PageStream.h"

#include <cstdint>
#include <cstring>
#include <string>

// The pieces that streams are put together from by hand.

namespace veltrin::test {

inline const std::string identifier(36, 'i');
inline const std::string reset(reverseDataReset.begin(), reverseDataReset.end());
inline const std::string cancel(cancelCommand.begin(), cancelCommand.end());
inline const std::string endOfJob = "JIDG";

/// A band header that announces `k`, `y`, `m` and `c` bytes, and this data.
inline std::string band(std::uint32_t setting, std::uint32_t k, std::uint32_t y, std::uint32_t m,
                        std::uint32_t c, const std::string &data = "") {
    BandHeader header{};
    header.MagicNumber = bandHeaderTag;
    header.dwBandSetting = setting;
    header.dwKSize = k;
    header.dwYSize = y;
    header.dwMSize = m;
    header.dwCSize = c;
    std::string bytes(sizeof header, '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes + data;
}

} // namespace veltrin::test
