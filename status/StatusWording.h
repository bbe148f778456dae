#pragma once

#include "status/LocalizedText.h"
#include "status/StatusCatalogue.h"

#include <cstdint>
#include <functional>
#include <string>

namespace veltrin {

/// The words for a text in the language of whoever is to read it.
using Translation = std::function<std::string(LocalizedText text)>;

/// A text's own words.
[[nodiscard]] std::string inEnglish(LocalizedText text);

/// What a status says to people, with the name of the paper that `subStatus2` stands for where its text has a
/// place for one. Empty, without asking for a translation, where the catalogue has no text.
[[nodiscard]] std::string statusWording(const StatusText &entry, std::uint8_t subStatus2,
                                        const Translation &translation = inEnglish);

} // namespace veltrin
