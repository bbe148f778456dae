#include "tests/support/Redirected.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iostream>

namespace veltrin::test {

namespace {

/// What may be shown on a terminal: the beginning, with a dot for each byte that is no text.
std::string readable(std::string bytes) {
    constexpr std::size_t longest = 4000;
    bytes.resize(std::min(bytes.size(), longest));
    std::replace_if(
        bytes.begin(), bytes.end(),
        [](unsigned char byte) { return byte != '\n' && (byte < ' ' || byte > '~'); }, '.');
    return bytes;
}

} // namespace

Redirected::Redirected(int descriptor, const char *thePath) : number(descriptor), path(thePath) {
    std::fflush(nullptr);
    kept = dup(number);
    const int opened = open(path, O_RDWR | O_CREAT | O_TRUNC, 0600);
    dup2(opened, number);
    close(opened);
}

Redirected::~Redirected() {
    dup2(kept, number);
    close(kept);
    if (testing::Test::HasFailure()) {
        std::cerr << path << ":\n" << readable(written()) << '\n'; // the failure's own words among it
    }
}

std::string Redirected::written() const {
    return readFile(path);
}

void Redirected::clear() const {
    EXPECT_EQ(ftruncate(number, 0), 0);
    lseek(number, 0, SEEK_SET);
}

} // namespace veltrin::test
