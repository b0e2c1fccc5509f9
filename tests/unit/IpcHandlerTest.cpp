// Semaphore, AtomicQueue and IpcHandler: posting inline or to the worker.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "ipc/AtomicQueue.h"
#include "ipc/IpcHandler.h"
#include "ipc/Semaphore.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;

TEST(SemaphoreTest, BinaryPostsDoNotAccumulate) {
    Semaphore sem;
    sem.increase();
    sem.increase();
    sem.increase();
    sem.decrease();  // passes at once
    EXPECT_FALSE(sem.tryDecrease());
}

TEST(SemaphoreTest, CountingPostsAccumulate) {
    Semaphore sem(false);
    for (int i = 0; i < 3; ++i) sem.increase();
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(sem.tryDecrease()) << i;
    EXPECT_FALSE(sem.tryDecrease());
}

TEST(SemaphoreTest, DecreaseWaitsForAPostFromAnotherThread) {
    Semaphore sem;
    auto waiter = std::async(std::launch::async, [&] { sem.decrease(); });
    EXPECT_EQ(waiter.wait_for(0ms), std::future_status::timeout);
    sem.increase();
    EXPECT_EQ(waiter.wait_for(10s), std::future_status::ready);
}

TEST(AtomicQueueTest, PopsInPushOrderAndReportsEmpty) {
    AtomicQueue<int> queue;
    EXPECT_TRUE(queue.empty());
    EXPECT_FALSE(queue.pop().has_value());
    for (int i : {3, 1, 2}) queue.push(i);
    EXPECT_EQ(queue.size(), 3u);
    EXPECT_EQ(*queue.pop(), 3);
    EXPECT_EQ(*queue.pop(), 1);
    EXPECT_EQ(*queue.pop(), 2);
    EXPECT_TRUE(queue.empty());
}

// Records what it handled and on which thread.
class RecordingHandler : public IpcHandler<int> {
public:
    explicit RecordingHandler(bool threaded, bool startWorker = true) : IpcHandler(threaded) {
        if (threaded && startWorker) worker = std::thread([this] { start(); });
    }
    ~RecordingHandler() override {
        stop();
        if (worker.joinable()) worker.join();
    }
    void handleEvent(int value) override {
        if (value < 0) throw std::runtime_error("bad value");
        std::lock_guard<std::mutex> lock(mutex);
        handled.push_back(value);
        threads.push_back(std::this_thread::get_id());
        changed.notify_all();
    }
    bool waitFor(size_t count) {
        std::unique_lock<std::mutex> lock(mutex);
        return changed.wait_for(lock, 10s, [&] { return handled.size() >= count; });
    }

    std::mutex mutex;
    std::condition_variable changed;
    std::vector<int> handled;
    std::vector<std::thread::id> threads;
    std::thread worker;
};

TEST(IpcHandlerTest, UnthreadedHandlesEachPostOnThePostingThread) {
    RecordingHandler handler(false);
    handler.postToSelf(1);
    handler.postToSelf(2);
    ASSERT_EQ(handler.handled, (std::vector<int>{1, 2}));
    EXPECT_EQ(handler.threads[0], std::this_thread::get_id());
    EXPECT_EQ(handler.queuedMessages(), 0u);
}

TEST(IpcHandlerTest, ThreadedHandlesPostsInOrderOnTheWorker) {
    rux::test::LogCapture capture;
    RecordingHandler handler(true);
    std::vector<int> expected;
    for (int i = 0; i < 100; ++i) {
        handler.postToSelf(i);
        expected.push_back(i);
    }
    ASSERT_TRUE(handler.waitFor(expected.size()));
    std::lock_guard<std::mutex> lock(handler.mutex);
    EXPECT_EQ(handler.handled, expected);
    for (auto id : handler.threads) EXPECT_EQ(id, handler.worker.get_id());
    EXPECT_TRUE(capture.waitForText("running infinite loop"));
}

TEST(IpcHandlerTest, WorkerSurvivesAThrowingHandler) {
    rux::test::LogCapture capture;
    RecordingHandler handler(true);
    handler.postToSelf(-1);
    handler.postToSelf(5);
    ASSERT_TRUE(handler.waitFor(1));
    EXPECT_EQ(handler.handled, std::vector<int>{5});
    EXPECT_NE(capture.findEndingWith("handleEvent threw; message dropped").priority, -1);
}

TEST(IpcHandlerTest, StopOnAHandlerThatIsNotRunningDoesNothing) {
    rux::test::LogCapture capture;
    RecordingHandler handler(false);
    handler.stop();
    EXPECT_FALSE(handler.isRunning());
    EXPECT_NE(capture.findEndingWith("IpcHandler stop called").priority, -1);
    handler.postToSelf(4);  // still handled inline
    EXPECT_EQ(handler.handled, std::vector<int>{4});
}

TEST(IpcHandlerTest, AfterStopPostsAreHandledInline) {
    RecordingHandler handler(true);
    handler.stop();
    handler.worker.join();
    EXPECT_FALSE(handler.isRunning());
    handler.postToSelf(8);
    ASSERT_EQ(handler.handled, std::vector<int>{8});
    EXPECT_EQ(handler.threads[0], std::this_thread::get_id());
}

TEST(IpcHandlerTest, DestructorDiscardsWhatIsStillQueued) {
    rux::test::LogCapture capture;
    {
        RecordingHandler handler(true, /*startWorker=*/false);
        handler.postToSelf(1);
        handler.postToSelf(2);
        EXPECT_EQ(handler.queuedMessages(), 2u);
        EXPECT_TRUE(handler.handled.empty());
    }
    const auto dtor = capture.matching("|RUX|IpcHandler::~IpcHandler:");
    ASSERT_EQ(dtor.size(), 1u) << capture.dump();
    EXPECT_EQ(dtor[0].text.substr(dtor[0].text.size() - 5), " dtor");
}

}  // namespace
