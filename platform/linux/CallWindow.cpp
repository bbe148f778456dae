#include "platform/linux/CallWindow.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace veltrin::platform {

CallWindow::CallWindow(Settings settings) : report(std::move(settings.report)) {}

bool CallWindow::hasUnansweredBlocks() const {
    return std::any_of(calls.begin(), calls.end(),
                       [](const Call &call) { return call.kind == PostKind::block; });
}

bool CallWindow::isLastPostDone() const {
    switch (lastPost) {
    case Post::block:
        return hasRoom();
    case Post::answeredCommand:
        return true;
    case Post::command:
    case Post::unanswerable:
        break;
    }
    return false;
}

int CallWindow::send(sd_bus *bus, sd_bus_message *message, PostKind kind) {
    Call &call = add(kind, sd_bus_message_get_destination(message));
    sd_bus_slot *slot = nullptr;
    // Without a time limit: a printer out of paper may hold its backend up for hours.
    const int result = sd_bus_call_async(bus, &slot, message, answered, &call, UINT64_MAX);
    call.slot.reset(slot);
    if (result < 0) {
        calls.pop_back();
        lastPost = Post::unanswerable;
    }
    return result;
}

CallWindow::Call &CallWindow::add(PostKind kind, const std::string &receiver) {
    lastPost = kind == PostKind::block ? Post::block : Post::command;
    return calls.emplace_back(Call{*this, kind, receiver, nullptr});
}

int CallWindow::answered(sd_bus_message *reply, void *call, sd_bus_error * /*error*/) noexcept {
    const Call &finished = *static_cast<Call *>(call);
    CallWindow &window = finished.window;
    bool isDelivered = false;
    const auto look = [&] {
        if (const sd_bus_error *error = sd_bus_message_get_error(reply)) {
            window.report(std::string("a notification was not delivered: ") + error->name + ": " +
                          (error->message != nullptr ? error->message : ""));
        } else if (!isFrom(reply, finished.receiver.c_str())) {
            window.report("a notification was answered by somebody else than its receiver");
        } else {
            isDelivered = true;
        }
    };
    static_cast<void>(withinMemory(look, window.report, "a notification was not delivered"));
    window.settle(finished, isDelivered);
    return 1;
}

void CallWindow::settle(const Call &call, bool isDelivered) {
    if (!isDelivered) {
        noteLoss(call.kind);
    }
    if (lastPost == Post::command && &call == &calls.back()) {
        lastPost = Post::answeredCommand;
    }
    calls.remove_if([&call](const Call &other) { return &other == &call; });
}

void CallWindow::abandonCalls() {
    for (const Call &call : calls) {
        noteLoss(call.kind);
    }
    calls.clear();
    lastPost = Post::unanswerable;
}

void CallWindow::noteLoss(PostKind kind) {
    (kind == PostKind::block ? isBlockLost : isCommandLost) = true;
}

bool CallWindow::takeLoss(PostKind kind) {
    return std::exchange(kind == PostKind::block ? isBlockLost : isCommandLost, false);
}

void CallWindow::forgetLosses() {
    isBlockLost = isCommandLost = false;
}

} // namespace veltrin::platform
