#pragma once

#include "log/DebugLog.h"

#include <new>

namespace veltrin {

/// Runs a step of the job that returns whether it has succeeded. One in which memory runs out has failed,
/// which is logged under the step's name; the steps behind it, which tell the printer and tidy up, may still
/// go through.
template <typename Step>
[[nodiscard]] bool withinMemory(const char *name, Step step) {
    try {
        return step();
    } catch (const std::bad_alloc &) {
        CPSDebugAssert_("%s: not enough memory", name);
        return false;
    }
}

} // namespace veltrin
