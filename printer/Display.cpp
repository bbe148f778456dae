#include "printer/Display.h"

#include "platform/CommandLine.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <iostream>
#include <utility>

namespace veltrin::printer {

namespace {

/// What is worth a place in the picture: blocks come by the hundred, and their sum stands above; records come
/// all the time, and their sum is the picture.
bool isForPicture(const std::string &line) {
    return !line.starts_with("< writePipe") && !line.starts_with("> record");
}

} // namespace

void Terminal::draw(const StatusView &view, const PrinterModel &printer) {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0;
    std::string picture;
    // The cursor stands in a line of its own below the picture.
    const auto lines = view.lines(printer, (known && size.ws_col > 1 ? size.ws_col : 80U) - 1U,
                                  (known && size.ws_row > 1 ? size.ws_row : 25U) - 1U);
    for (const std::string &line : lines) {
        picture += line + "\n";
    }
    if (picture != drawn) {
        if (height > 0) {
            std::cout << "\x1b[" << height << "A\x1b[J"; // up to the picture's first line, and clear
        }
        std::cout << picture << std::flush;
        drawn = picture;
        height = lines.size();
    }
}

Display::Display(std::string name)
    : onTerminal(isatty(STDOUT_FILENO) == 1), view(std::move(name)), lines(STDOUT_FILENO) {}

void Display::tell(PrinterTime when, const std::string &line) {
    const std::string text = secondsText(when) + " " + line;
    if (!isPicture()) {
        lines.add(text);
    } else if (isForPicture(line)) {
        view.addLine(text);
    }
}

void Display::show(const VirtualPrinter &printer) {
    if (isPicture()) {
        view.setJob(printer.jobText());
        terminal.draw(view, printer.printer());
    } else {
        lines.write();
    }
}

bool Display::isFine() const {
    return std::cout.good() && lines.error() == 0;
}

int Display::end(const char *program) const {
    return lines.error() != 0 ? reportFailure(program, "standard output", lines.error())
                              : printText(program, "");
}

} // namespace veltrin::printer
