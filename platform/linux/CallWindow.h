#pragma once

#include "platform/linux/BusHandles.h"

#include <cstddef>
#include <functional>
#include <list>
#include <string>

namespace veltrin::platform {

enum class PostKind { command, block };

/// The calls that the peer has not answered yet, and the account of those that it never will.
///
/// Blocks and commands are kept apart: a lost block is the failure of a later block, and of no command.
class CallWindow {
  public:
    /// So many calls may be unanswered at a time.
    static constexpr std::size_t size = 16;

    struct Settings {
        /// Takes one line for the diagnostic log: why a call was lost.
        std::function<void(const std::string &line)> report;
    };

    /// A call under way. Lives until it is answered or given up.
    struct Call {
        CallWindow &window;
        PostKind kind;
        std::string receiver;
        BusSlot slot;
    };

    explicit CallWindow(Settings settings);
    CallWindow(const CallWindow &) = delete;
    CallWindow &operator=(const CallWindow &) = delete;
    ~CallWindow() = default;

    [[nodiscard]] bool hasRoom() const { return calls.size() < size; }

    [[nodiscard]] bool hasUnansweredBlocks() const;

    /// Whether the post made last needs no more waiting: it was a command that is answered by now, or a block
    /// that leaves room for another.
    [[nodiscard]] bool isLastPostDone() const;

    /// Makes the last post one that nobody will answer, as a broadcast or a call without reply is.
    void expectNoAnswer() { lastPost = Post::unanswerable; }

    /// Sends a message as a call and expects its answer, however long it takes. Returns 0 or more, or the
    /// negative error number, and then there is no such call.
    [[nodiscard]] int send(sd_bus *bus, sd_bus_message *message, PostKind kind);

    /// What `send` and the answer enter into the account: a call is under way, and has been delivered or not.
    Call &add(PostKind kind, const std::string &receiver);
    void settle(const Call &call, bool isDelivered);

    /// Gives up on the answers that are still to come: these calls count as lost.
    void abandonCalls();

    /// Whether calls of this kind have been lost that this has not told before.
    [[nodiscard]] bool takeLoss(PostKind kind);

    void forgetLosses();

  private:
    /// What the turn after a post looks for: room for the next block, a command's reply, or nothing, since
    /// the post was no call or its reply has been given up.
    enum class Post { block, command, answeredCommand, unanswerable };

    static int answered(sd_bus_message *reply, void *call, sd_bus_error *error) noexcept;

    void noteLoss(PostKind kind);

    std::function<void(const std::string &line)> report;
    std::list<Call> calls;
    Post lastPost = Post::unanswerable;
    bool isBlockLost = false;
    bool isCommandLost = false;
};

} // namespace veltrin::platform
