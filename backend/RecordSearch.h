#pragma once

#include "status/ReverseRecord.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace veltrin::backend {

/// Finds the status records in what a device says: bytes without any frame but the records' tag. They come in
/// pieces of any size, and there may be something else between them, such as the half of a record that a
/// connection was lost in.
class RecordSearch {
  public:
    /// Takes what comes next. Returns the newest record that is whole with it, if there is one.
    [[nodiscard]] std::optional<ReverseRecord> take(std::span<const std::byte> bytes);

  private:
    std::vector<std::byte> rest; // less than a record
};

} // namespace veltrin::backend
