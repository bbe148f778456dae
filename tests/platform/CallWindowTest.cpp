#include "platform/linux/CallWindow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

class CallWindowTest : public testing::Test {
  protected:
    CallWindow::Call &call(PostKind kind) { return window.add(kind, ":1.7"); }

    CallWindow window{{.report = [](const std::string &line) { ADD_FAILURE() << line; }}};
};

TEST_F(CallWindowTest, HasRoomForSixteen) {
    std::vector<CallWindow::Call *> calls;
    for (int i = 0; i < 16; ++i) {
        EXPECT_TRUE(window.hasRoom()) << i;
        calls.push_back(&call(i % 2 == 0 ? PostKind::block : PostKind::command));
    }
    EXPECT_FALSE(window.hasRoom());
    window.settle(*calls[5], true);
    EXPECT_TRUE(window.hasRoom());
    call(PostKind::block);
    EXPECT_FALSE(window.hasRoom());
}

TEST_F(CallWindowTest, HasUnansweredBlocksUntilTheLastOfThemIsAnswered) {
    call(PostKind::command);
    EXPECT_FALSE(window.hasUnansweredBlocks());
    CallWindow::Call &first = call(PostKind::block);
    CallWindow::Call &second = call(PostKind::block);
    window.settle(first, true);
    EXPECT_TRUE(window.hasUnansweredBlocks());
    window.settle(second, false);
    EXPECT_FALSE(window.hasUnansweredBlocks());
}

TEST_F(CallWindowTest, TellsALossOnceAndOfItsKindAlone) {
    for (const PostKind kind : {PostKind::block, PostKind::command}) {
        const PostKind other = kind == PostKind::block ? PostKind::command : PostKind::block;
        window.settle(call(kind), true);
        EXPECT_FALSE(window.takeLoss(kind)) << "it was delivered";
        window.settle(call(kind), false);
        window.settle(call(kind), false);
        window.settle(call(kind), true);
        EXPECT_FALSE(window.takeLoss(other));
        EXPECT_TRUE(window.takeLoss(kind));
        EXPECT_FALSE(window.takeLoss(kind));
    }
}

TEST_F(CallWindowTest, CountsAbandonedCallsAsLost) {
    struct Case {
        std::vector<PostKind> calls;
        bool losesBlock;
        bool losesCommand;
    };

    for (const Case &one : std::vector<Case>{
             {{}, false, false},
             {{PostKind::block}, true, false},
             {{PostKind::command}, false, true},
             {{PostKind::command, PostKind::block, PostKind::block}, true, true},
         }) {
        for (const PostKind kind : one.calls) {
            call(kind);
        }
        window.abandonCalls();
        EXPECT_TRUE(window.hasRoom());
        EXPECT_FALSE(window.hasUnansweredBlocks());
        EXPECT_EQ(window.takeLoss(PostKind::block), one.losesBlock);
        EXPECT_EQ(window.takeLoss(PostKind::command), one.losesCommand);
    }
}

TEST_F(CallWindowTest, ForgetsLossesOfBothKinds) {
    call(PostKind::block);
    call(PostKind::command);
    window.abandonCalls();
    window.forgetLosses();
    EXPECT_FALSE(window.takeLoss(PostKind::block));
    EXPECT_FALSE(window.takeLoss(PostKind::command));
}

TEST_F(CallWindowTest, ACommandIsDoneWhenItIsAnsweredItself) {
    EXPECT_FALSE(window.isLastPostDone()) << "there was none";
    CallWindow::Call &earlier = call(PostKind::command);
    CallWindow::Call &last = call(PostKind::command);
    window.settle(earlier, true);
    EXPECT_FALSE(window.isLastPostDone());
    window.settle(last, false);
    EXPECT_TRUE(window.isLastPostDone()) << "an error is an answer";
    call(PostKind::command);
    EXPECT_FALSE(window.isLastPostDone());
}

TEST_F(CallWindowTest, ABlockIsDoneWhileThereIsRoomForAnother) {
    std::vector<CallWindow::Call *> calls;
    for (int i = 0; i < 15; ++i) {
        calls.push_back(&call(PostKind::block));
        EXPECT_TRUE(window.isLastPostDone()) << i;
    }
    call(PostKind::block);
    EXPECT_FALSE(window.isLastPostDone());
    window.settle(*calls.front(), true);
    EXPECT_TRUE(window.isLastPostDone());
}

TEST_F(CallWindowTest, APostThatNobodyWillAnswerIsNeverDone) {
    window.settle(call(PostKind::command), true);
    window.expectNoAnswer();
    EXPECT_FALSE(window.isLastPostDone());
    call(PostKind::block);
    window.abandonCalls();
    EXPECT_FALSE(window.isLastPostDone());
}

} // namespace
} // namespace veltrin::platform
