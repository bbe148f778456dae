#include "tests/jobs/FilterFixture.h"

#include "tests/support/Files.h"

#include <filesystem>

namespace veltrin::test {

FilterFixture::FilterFixture() {
    std::filesystem::create_directories(bundleFolder);
    std::filesystem::copy_file(filterProgram, std::string(bundleFolder) + "/veltrin");
    filterProgram = std::string(bundleFolder) + "/veltrin";
    configure({{"CUPSFileHeader", "11111111-2222-3333-4444-555555555555"}});
    switchLogOn();
}

void FilterFixture::configure(const std::map<std::string, std::string> &keys) {
    std::string plist = "<plist version=\"1.0\"><dict>\n";
    for (const auto &[key, value] : keys) {
        plist += "<key>" + key + "</key><string>" + value + "</string>\n";
    }
    writeFile(std::string(bundleFolder) + "/Info.plist", plist + "</dict></plist>\n");
}

ProcessResult FilterFixture::print(const std::string &options, const std::string &input) {
    return runToEnd(command(options, input));
}

ProcessResult FilterFixture::runToEnd(const Command &command) {
    ProcessResult result = run(command);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.signal, std::nullopt);
    expectNothingLeft();
    return result;
}

} // namespace veltrin::test
