#pragma once

#include <string>

namespace veltrin::test {

/// Puts a file in the place of a standard descriptor for as long as it lives. What was written there is shown
/// where the test has failed.
class Redirected {
  public:
    /// `path` must outlive the object.
    Redirected(int descriptor, const char *path);
    Redirected(const Redirected &) = delete;
    Redirected &operator=(const Redirected &) = delete;
    ~Redirected();

    /// What has been written since construction or the last `clear()`.
    [[nodiscard]] std::string written() const;

    void clear() const;

  private:
    int number;
    const char *path;
    int kept = -1;
};

} // namespace veltrin::test
