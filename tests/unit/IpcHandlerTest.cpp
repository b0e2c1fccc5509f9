// Semaphore and IpcHandler without a running worker. (The worker, which only threaded
// sessions start, is driven by the session tests' threaded rows.)
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "ipc/IpcHandler.h"
#include "ipc/Semaphore.h"

namespace {

using namespace rux::ipc;
using Handled = std::pair<int, std::thread::id>;

// Three posts: a binary semaphore lets one decrease through, a counting one three.
TEST(SemaphoreTest, BinaryPostsDoNotAccumulateCountingPostsDo) {
    for (auto [binary, passes] : {std::pair{true, 1}, {false, 3}}) {
        Semaphore sem(binary);
        for (int i = 0; i < 3; ++i) sem.increase();
        sem.decrease();  // a post is there: returns at once
        int passed = 1;
        while (sem.tryDecrease()) ++passed;
        EXPECT_EQ(passed, passes) << (binary ? "binary" : "counting");
    }
}

// Records each value it handled with the thread it ran on.
class RecordingHandler : public IpcHandler<int> {
public:
    explicit RecordingHandler(bool threaded) : IpcHandler(threaded) {
        if (threaded) worker = std::thread([this] { start(); });
    }
    ~RecordingHandler() override {
        stop();
        if (worker.joinable()) worker.join();
    }
    void handleEvent(int value) override { handled.put({value, std::this_thread::get_id()}); }
    rux::test::Inbox<Handled> handled;
    std::thread worker;
};

// Not threaded, stopped before it ran, or stopped after: posts are handled at once on
// the posting thread, and stop says so in the log either way.
TEST(IpcHandlerTest, WithoutARunningWorkerPostsAreHandledInline) {
    const struct {
        const char* name;
        bool threaded, stop;
    } cases[] = {{"unthreaded", false, false},
                 {"stopped, never ran", false, true},
                 {"stopped worker", true, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        rux::test::LogCapture capture;
        RecordingHandler handler(c.threaded);
        if (c.stop) {
            handler.stop();
            if (handler.worker.joinable()) handler.worker.join();
            EXPECT_NE(capture.findEndingWith("IpcHandler stop called").priority, -1);
        }
        EXPECT_FALSE(handler.isRunning());
        handler.postToSelf(1);
        handler.postToSelf(2);
        const auto self = std::this_thread::get_id();
        EXPECT_EQ(handler.handled.get(), (std::vector<Handled>{{1, self}, {2, self}}));
        EXPECT_EQ(handler.queuedMessages(), 0u);
    }
}

}  // namespace
