#include "platform/linux/SealedMemory.h"

#include "platform/WriteAll.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace veltrin::platform {

namespace {

constexpr int requiredSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK;

} // namespace

int makeSealedMemory(std::span<const std::byte> bytes) {
    const int descriptor = memfd_create("veltrin-block", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (descriptor == -1) {
        return -errno;
    }
    if (writeAll(descriptor, bytes) != bytes.size() || fcntl(descriptor, F_ADD_SEALS, requiredSeals) != 0) {
        const int error = errno;
        close(descriptor);
        return -error;
    }
    return descriptor;
}

std::optional<SealedMemory> SealedMemory::map(int descriptor) {
    const int seals = fcntl(descriptor, F_GET_SEALS);

    struct stat status {};

    if (seals == -1 || (seals & requiredSeals) != requiredSeals || fstat(descriptor, &status) != 0) {
        return std::nullopt;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size == 0) {
        return SealedMemory(descriptor, {});
    }
    void *address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, descriptor, 0);
    if (address == MAP_FAILED) {
        return std::nullopt;
    }
    return SealedMemory(descriptor, std::span(static_cast<const std::byte *>(address), size));
}

SealedMemory::SealedMemory(SealedMemory &&other) noexcept
    : descriptor(other.descriptor), mapped(std::exchange(other.mapped, {})) {}

SealedMemory::~SealedMemory() {
    if (!mapped.empty()) {
        munmap(const_cast<std::byte *>(mapped.data()), mapped.size());
    }
}

ssize_t SealedMemory::writeTo(int destination, std::size_t from) const {
    const std::span<const std::byte> rest = mapped.subspan(from);
    auto offset = static_cast<off_t>(from);
    const ssize_t moved =
        splice(descriptor, &offset, destination, nullptr, rest.size(), SPLICE_F_NONBLOCK | SPLICE_F_MOVE);
    // It goes into pipes only.
    return moved != -1 || errno != EINVAL ? moved : write(destination, rest.data(), rest.size());
}

} // namespace veltrin::platform
