// How the virtual printer is called. The input: a byte for what is read, and a command line with an argument
// to each line, a device URI, or an address.

#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "printer/ListenAddress.h"
#include "printer/PrinterOptions.h"
#include "printer/PrinterUri.h"
#include "tests/support/Arguments.h"

#include <unistd.h>

#include <string>
#include <vector>

namespace veltrin::fuzz {

namespace {

void readCommandLine(Input &input) {
    std::vector<std::string> words = {"veltrin-printer"};
    while (!input.isEmpty()) {
        const std::string word = input.line();
        words.push_back(word.substr(0, word.find('\0')));
    }
    test::Arguments arguments(words);
    std::string problem;
    const Caught errors(STDERR_FILENO); // the library's own words
    const auto options = printer::parsePrinterOptions(arguments.count(), arguments.vector(), problem);
    require(options || !problem.empty() || !errors.text().empty(), "a mistake is told of");
    if (!options || options->task != printer::PrinterOptions::Task::serve) {
        return;
    }
    require(problem.empty() && errors.text().empty(), "nothing is told of where there is no mistake");
    require(options->listen.has_value() == options->uri.empty(), "a printer has a channel or a wire");
    require(!options->listen || !options->stays, "a printer on a wire stays without being told");
    require(!options->sheets.dotsPerInch || !options->sheets.folder.empty(), "dots are for pictures");
}

void readUri(const std::string &uri) {
    std::string problem;
    const auto parsed = printer::parsePrinterUri(uri, problem);
    require(parsed.has_value() == problem.empty(), "a URI that is refused has something wrong");
    if (parsed) {
        require(uri.starts_with(parsed->printer), "a printer's name is the beginning of its URI");
        for (const std::string *file : {&parsed->scenario, &parsed->outputFile, &parsed->reportFile}) {
            require(file->find('\0') == std::string::npos || uri.find('\0') != std::string::npos,
                    "a file's name has no end inside");
        }
    }
}

void readAddress(const std::string &text) {
    const auto address = printer::parseListenAddress(text);
    if (address) {
        require(!address->host.empty(), "an address has a host");
        require(printer::parseListenAddress(printer::textOf(*address)) == address,
                "an address is read as it is written");
    }
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t what = input.byte() % 3;
    if (what == 0) {
        readCommandLine(input);
    } else if (what == 1) {
        readUri(input.remainingText());
    } else {
        readAddress(input.remainingText());
    }
    return 0;
}
