#include "raster/PageStore.h"

#include <cups/cups.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace veltrin::raster {

PageStore::~PageStore() {
    if (file != -1) {
        close(file);
    }
}

bool PageStore::open() {
    if (file != -1) {
        return true;
    }
    // A signal that ends the process must not find the file while it has a name.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    std::array<char, 1024> path{};
    file = cupsTempFd(path.data(), static_cast<int>(path.size()));
    const int error = errno;
    if (file != -1) {
        unlink(path.data());
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return file != -1;
}

bool PageStore::add(std::span<const std::byte> header, std::span<const std::byte> bands) {
    std::uint64_t at = ends.empty() ? 0 : ends.back();
    if (!open() || !append(header, at) || !append(bands, at)) {
        return false;
    }
    ends.push_back(at);
    return true;
}

bool PageStore::append(std::span<const std::byte> bytes, std::uint64_t &at) const {
    while (!bytes.empty()) {
        const ssize_t wrote = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(at));
        if (wrote == -1 && errno != EINTR) {
            return false;
        }
        if (wrote > 0) {
            at += static_cast<std::uint64_t>(wrote);
            bytes = bytes.subspan(static_cast<std::size_t>(wrote));
        }
    }
    return true;
}

bool PageStore::copy(std::size_t index, const ByteSink &sink) const {
    constexpr std::size_t pieceSize = std::size_t{64} * 1024;
    std::vector<std::byte> piece(pieceSize);
    std::uint64_t at = index == 0 ? 0 : ends[index - 1];
    while (at < ends[index]) {
        const std::size_t wanted = std::min<std::uint64_t>(pieceSize, ends[index] - at);
        const ssize_t got = pread(file, piece.data(), wanted, static_cast<off_t>(at));
        if (got == -1 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            errno = got == 0 ? EIO : errno;
            return false;
        }
        if (!sink(std::span(piece).first(static_cast<std::size_t>(got)))) {
            return false;
        }
        at += static_cast<std::uint64_t>(got);
    }
    return true;
}

void PageStore::clear() {
    ends.clear();
    if (file != -1) {
        // Only the room is lost where that fails.
        static_cast<void>(!ftruncate(file, 0));
    }
}

} // namespace veltrin::raster
