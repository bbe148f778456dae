#pragma once

#include <new>

// For Objective-C++ alone.

namespace veltrin::platform {

/// Sends messages to the system, which may answer with an exception. Returns what the last of them gives, or
/// else what `otherwise` does. Memory that runs out is no answer, and goes on to whoever deals with that.
///
/// It is caught by C++'s own words: `@catch` would run no destructor of what it passes by, with one compiler,
/// and let C++'s exceptions through, with another. `catch (...)` has all of them everywhere, at the price of
/// not knowing the reason.
template <typename Messages, typename Otherwise>
auto send(Messages messages, Otherwise otherwise) -> decltype(messages()) {
    try {
        return messages();
    } catch (const std::bad_alloc &) {
        throw;
    } catch (...) {
        return otherwise();
    }
}

} // namespace veltrin::platform
