#pragma once

#include <string>

namespace veltrin::test {

/// The smallest PPD that CUPS takes, with these lines behind what it demands.
[[nodiscard]] inline std::string ppdWith(const std::string &lines) {
    return "*PPD-Adobe: \"4.3\"\n*FormatVersion: \"4.3\"\n*FileVersion: \"1.0\"\n*LanguageVersion: English\n"
           "*LanguageEncoding: ISOLatin1\n*PCFileName: \"TEST.PPD\"\n*Manufacturer: \"Test\"\n"
           "*Product: \"(Test)\"\n*ModelName: \"Test\"\n*ShortNickName: \"Test\"\n" +
           lines;
}

} // namespace veltrin::test
