#pragma once

#include <string>

namespace veltrin::test {

// Notifications as only another program on Foundation would post them.

/// The object is a text, and under "data" there is one as well.
void postTextAsData(const std::string &name, const std::string &object);

/// There is no object, and a user info without "data".
void postWithoutObject(const std::string &name);

} // namespace veltrin::test
