#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <thread>
#include <utility>

namespace veltrin::test {

/// Longer than any machine needs to get a thread going; only a failing test waits so long.
inline constexpr std::chrono::seconds deadline{60};

/// How long a thread that ought to wait is watched doing so.
inline constexpr std::chrono::milliseconds watched{50};

/// Runs a body on a thread of its own, to see whether it waits. A body that never ends fails the test in
/// `expectEnds`, which then ends the process: the thread still uses what the test would take down.
class Background {
  public:
    explicit Background(std::function<void()> body) {
        std::packaged_task<void()> task(std::move(body));
        done = task.get_future();
        runner = std::thread(std::move(task));
    }

    Background(const Background &) = delete;
    Background &operator=(const Background &) = delete;

    ~Background() { runner.join(); }

    [[nodiscard]] bool waits() const { return done.wait_for(watched) == std::future_status::timeout; }

    void expectEnds() const {
        if (done.wait_for(deadline) == std::future_status::timeout) {
            ADD_FAILURE() << "the thread waits for ever";
            std::abort();
        }
    }

  private:
    std::future<void> done;
    std::thread runner;
};

} // namespace veltrin::test
