// Semaphore and IpcHandler: posting inline or to the worker. (AtomicQueue's order is
// pinned by the worker handling its posts in order.)
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "ipc/IpcHandler.h"
#include "ipc/Semaphore.h"

namespace {

using namespace rux::ipc;
using namespace std::chrono_literals;

// Three posts: a binary semaphore lets one decrease through, a counting one three.
TEST(SemaphoreTest, BinaryPostsDoNotAccumulateCountingPostsDo) {
    for (auto [binary, passes] : {std::pair{true, 1}, {false, 3}}) {
        Semaphore sem(binary);
        for (int i = 0; i < 3; ++i) sem.increase();
        int passed = 0;
        while (sem.tryDecrease()) ++passed;
        EXPECT_EQ(passed, passes) << (binary ? "binary" : "counting");
    }
}

TEST(SemaphoreTest, DecreaseWaitsForAPostFromAnotherThread) {
    Semaphore sem;
    auto waiter = std::async(std::launch::async, [&] { sem.decrease(); });
    EXPECT_EQ(waiter.wait_for(0ms), std::future_status::timeout);
    sem.increase();
    EXPECT_EQ(waiter.wait_for(10s), std::future_status::ready);
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

// Not threaded, stopped before it ran, or stopped after: posts are handled at once on
// the posting thread, and stop says so in the log either way.
TEST(IpcHandlerTest, WithoutARunningWorkerPostsAreHandledInline) {
    struct Case {
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
        ASSERT_EQ(handler.handled, (std::vector<int>{1, 2}));
        EXPECT_EQ(handler.threads, std::vector<std::thread::id>(2, std::this_thread::get_id()));
        EXPECT_EQ(handler.queuedMessages(), 0u);
    }
}

// In order on the worker; a throwing handleEvent loses only its own message.
TEST(IpcHandlerTest, ThreadedHandlesPostsInOrderOnTheWorkerAndSurvivesAThrow) {
    rux::test::LogCapture capture;
    RecordingHandler handler(true);
    std::vector<int> expected;
    handler.postToSelf(-1);
    for (int i = 0; i < 100; ++i) {
        handler.postToSelf(i);
        expected.push_back(i);
    }
    ASSERT_TRUE(handler.waitFor(expected.size()));
    std::lock_guard<std::mutex> lock(handler.mutex);
    EXPECT_EQ(handler.handled, expected);
    for (auto id : handler.threads) EXPECT_EQ(id, handler.worker.get_id());
    EXPECT_TRUE(capture.waitForText("running infinite loop"));
    EXPECT_NE(capture.findEndingWith("handleEvent threw; message dropped").priority, -1);
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
