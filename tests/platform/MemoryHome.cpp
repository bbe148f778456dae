#include "tests/platform/ChannelContract.h"
#include "tests/support/FakeNotificationCenter.h"

#include <vector>

namespace veltrin::test {
namespace {

/// The tests' own service in memory: what one end posts is delivered to those that observe the name.
class MemoryHome final : public ChannelHome {
  public:
    [[nodiscard]] std::unique_ptr<platform::NotificationCenter>
    connect(const platform::NotificationCenterClient &client, std::string &problem) override {
        FakeNotificationCenter &center = *centers.emplace_back(new FakeNotificationCenter(clock));
        center.afterPost = [this](const FakeNotificationCenter::Post &post) {
            for (const auto &other : centers) {
                if (other->observedName == post.name) {
                    other->deliver(post.object, post.data);
                }
            }
        };
        return center.connect(client, problem);
    }

  private:
    FakeClock clock;
    std::vector<std::unique_ptr<FakeNotificationCenter>> centers;
};

INSTANTIATE_TEST_SUITE_P(
    InMemory, ChannelContract,
    testing::Values(ChannelHomeKind{
        .name = "Fake", .make = [] { return std::make_unique<MemoryHome>(); }, .tellsDepartures = false}),
    nameOfHome);

} // namespace
} // namespace veltrin::test
