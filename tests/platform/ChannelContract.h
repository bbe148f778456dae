#pragma once

#include "tests/platform/ChannelEnd.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>

// What every notification service gives a channel. Each home of the seam is put in by a file of its own, into
// the programs that have it.

namespace veltrin::test {

/// A notification service of the test's own.
class ChannelHome {
  public:
    ChannelHome() = default;
    ChannelHome(const ChannelHome &) = delete;
    ChannelHome &operator=(const ChannelHome &) = delete;
    virtual ~ChannelHome() = default;

    [[nodiscard]] virtual std::unique_ptr<platform::NotificationCenter>
    connect(const platform::NotificationCenterClient &client, std::string &problem) = 0;
};

/// A kind of service, and where the kinds differ.
struct ChannelHomeKind {
    std::string name;
    std::function<std::unique_ptr<ChannelHome>()> make;
    bool tellsDepartures; ///< an end that leaves without a word is heard as if it had said its farewell
};

inline void PrintTo(const ChannelHomeKind &kind, std::ostream *stream) {
    *stream << kind.name;
}

class ChannelContract : public testing::TestWithParam<ChannelHomeKind> {
  protected:
    [[nodiscard]] std::unique_ptr<ChannelEnd> makeFrontend() {
        return std::make_unique<ChannelEnd>(connect, frontendName, backendName, backendCommands);
    }

    [[nodiscard]] std::unique_ptr<ChannelEnd> makeBackend() {
        return std::make_unique<ChannelEnd>(connect, backendName, frontendName, frontendCommands);
    }

    std::unique_ptr<ChannelHome> home = GetParam().make();
    ChannelEnd::Connect connect = [this](const platform::NotificationCenterClient &client,
                                         std::string &problem) { return home->connect(client, problem); };
};

[[nodiscard]] inline std::string nameOfHome(const testing::TestParamInfo<ChannelHomeKind> &test) {
    return test.param.name;
}

} // namespace veltrin::test
