#pragma once

#include <string>
#include <utility>

namespace veltrin {

/// The queue's device URI, kept exactly as it was given. It may hold a password: the debug log
/// alone shows it whole.
class DeviceURI {
  public:
    explicit DeviceURI(std::string absoluteString) : text(std::move(absoluteString)) {}

    [[nodiscard]] const std::string &absoluteString() const { return text; }

    /// What stands before the first colon, case kept ("file", "usb", "socket"); empty where the text does not
    /// begin with a scheme (a letter, then letters, digits, "+", "-" or ".").
    [[nodiscard]] std::string scheme() const;

  private:
    std::string text;
};

} // namespace veltrin
