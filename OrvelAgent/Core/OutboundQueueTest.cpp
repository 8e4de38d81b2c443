#include "OrvelAgent/Core/OutboundQueue.h"

#include <gtest/gtest.h>

#include <map>

#include "OrvelKit/Wire/Files.h"
#include "OrvelKit/Wire/Media.h"

namespace orvel {
namespace {

class OutboundQueueTest : public testing::Test {
protected:
    void push(FrameBuffer frame, char mark, bool isKeyframe = false) {
        marks[frame.payload()] = mark;
        queue.push({std::move(frame), [this, mark] { completed += mark; }, isKeyframe});
    }
    void format(char mark) { push(VideoFormat{{{1}}}.encode(), mark, true); }
    void frame(char mark, bool isKeyframe = false, std::size_t bytes = 10) {
        push(VideoFrame::encode(isKeyframe, 0, Bytes(bytes)), mark, isKeyframe);
    }
    void file(char mark) { push(FileFrame::dataBuffer(1, 100), mark); }
    std::string popAll() {
        std::string order;
        while (auto entry = queue.pop())
            order += marks.at(std::as_const(entry->frame).payload().data());
        return order;
    }

    OutboundQueue queue;
    std::string completed;  // marks of entries given up
    std::map<const std::uint8_t*, char> marks;
};

TEST_F(OutboundQueueTest, aKeyframeReplacesTheVideoThatWaits) {
    format('F');
    frame('K', true);
    frame('1');
    frame('2');
    format('f');
    EXPECT_EQ(completed, "FK12");
    frame('k', true);
    frame('3');
    EXPECT_EQ(completed, "FK12");
    EXPECT_EQ(popAll(), "fk3");
}

TEST_F(OutboundQueueTest, aKeyframeWithoutAFormatOfItsOwnReplacesToo) {
    format('F');
    frame('K', true);
    frame('1');
    frame('k', true);
    EXPECT_EQ(completed, "FK1");
    EXPECT_EQ(popAll(), "k");
}

TEST_F(OutboundQueueTest, afterARestartVideoWaitsForItsFormat) {
    frame('0');
    EXPECT_EQ(completed, "0");
    format('F');
    frame('1');
    queue.restartVideo();
    EXPECT_EQ(completed, "0F1");
    frame('2');
    frame('k', true);
    EXPECT_EQ(completed, "0F12k");
    format('f');
    frame('K', true);
    EXPECT_EQ(popAll(), "fK");
}

TEST_F(OutboundQueueTest, filesGetTheirShareBesideEndlessVideo) {
    format('F');
    EXPECT_EQ(popAll(), "F");
    file('a');
    file('b');
    std::string order;
    for (int i = 0; i < 12; ++i) {
        frame('v', false, 100 * 1024);
        order += marks.at(std::as_const(queue.pop()->frame).payload().data());
    }
    EXPECT_EQ(order, "vvvavvvbvvvv");
}

TEST_F(OutboundQueueTest, onlyWaitingControlCountsAgainstItsLimit) {
    push(FrameBuffer(FrameKind::control, OutboundQueue::maxControlBytes), 'c');
    file('a');
    EXPECT_FALSE(queue.isOverfull());
    push(FrameBuffer(FrameKind::control, 1), 'd');
    EXPECT_TRUE(queue.isOverfull());
    queue.pop();
    EXPECT_FALSE(queue.isOverfull());
}

}  // namespace
}  // namespace orvel
