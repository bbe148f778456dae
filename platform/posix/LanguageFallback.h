#pragma once

#include <string>
#include <vector>

namespace veltrin::platform {

/// The languages whose texts serve `language` (in the form of LANG), best first:
/// - the value as it stands,
/// - without its modifier ("@euro"),
/// - without its encoding (".UTF-8"),
/// - without one part after another from its end ("zh_Hant_TW", "zh_Hant", "zh"),
/// - English.
///
/// What has neither modifier nor encoding is also looked for with the other separator ("pt_BR", "pt-BR"):
/// the system writes an underscore, language tags have a hyphen, and folders come with either.
///
/// Each is the name of a folder below the bundle's directory. What cannot be one is left out: names that
/// could lead elsewhere, and names that no file system takes.
[[nodiscard]] std::vector<std::string> languagesToTry(const std::string &language);

} // namespace veltrin::platform
