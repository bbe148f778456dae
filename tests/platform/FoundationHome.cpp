#include "platform/Platform.h"
#include "tests/platform/ChannelContract.h"
#include "tests/support/PrivateGdnc.h"

namespace veltrin::test {
namespace {

class FoundationHome final : public ChannelHome {
  public:
    [[nodiscard]] std::unique_ptr<platform::NotificationCenter>
    connect(const platform::NotificationCenterClient &client, std::string &problem) override {
        return system->makeNotificationCenter(client, problem);
    }

  private:
    PrivateGdnc daemon;
    std::unique_ptr<platform::Platform> system = platform::makePlatform();
};

INSTANTIATE_TEST_SUITE_P(OnFoundation, ChannelContract,
                         testing::Values(ChannelHomeKind{
                             .name = "GNUstep",
                             .make = [] { return std::make_unique<FoundationHome>(); },
                             .tellsDepartures = false}),
                         nameOfHome);

} // namespace
} // namespace veltrin::test
