// Semaphore and IpcHandler without a running worker. (The worker, which only threaded
// sessions start, is driven by the session tests' threaded rows.)
#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

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
    void handleEvent(int value) override { handled.put({value, std::this_thread::get_id()}); }
    rux::test::Inbox<Handled> handled;
    std::thread worker;
};

// Unthreaded, or threaded with its worker stopped: posts are handled at once, in order,
// on the posting thread.
TEST(IpcHandlerTest, WithoutARunningWorkerPostsAreHandledInline) {
    for (bool threaded : {false, true}) {
        SCOPED_TRACE(threaded ? "stopped worker" : "unthreaded");
        RecordingHandler handler(threaded);
        handler.stop();
        if (handler.worker.joinable()) handler.worker.join();
        handler.postToSelf(1);
        handler.postToSelf(2);
        const auto self = std::this_thread::get_id();
        EXPECT_EQ(handler.handled.get(), (std::vector<Handled>{{1, self}, {2, self}}));
    }
}

}  // namespace
