#include "platform/linux/DBusNotificationCenter.h"
#include "tests/platform/ChannelContract.h"
#include "tests/support/PrivateBus.h"

namespace veltrin::test {
namespace {

class BusHome final : public ChannelHome {
  public:
    [[nodiscard]] std::unique_ptr<platform::NotificationCenter>
    connect(const platform::NotificationCenterClient &client, std::string &problem) override {
        return platform::DBusNotificationCenter::connect(client, problem);
    }

  private:
    PrivateBus bus;
};

INSTANTIATE_TEST_SUITE_P(OnBus, ChannelContract,
                         testing::Values(ChannelHomeKind{.name = "DBus",
                                                         .make = [] { return std::make_unique<BusHome>(); },
                                                         .tellsDepartures = true}),
                         nameOfHome);

} // namespace
} // namespace veltrin::test
