// EventManager over real socket pairs: removals inside callbacks and beside a running one, a
// reused number, a hang-up, fatal set-up failures; RuxEventHandler's queue on the same loop.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>
#include <memory>
#include <stdexcept>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "SocketPair.h"
#include "event/EventManager.h"
#include "event/RuxTimer.h"
#include "sdk/RuxEventHandler.h"

namespace {

using rux::test::LogCapture;
using rux::utils::EventManager;
using rux::utils::RuxTimer;
using namespace std::chrono_literals;
using Entries = std::vector<std::string>;

constexpr auto kDeadline = 10s;

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}
// `fmt` with its one %d filled in: a log line, or a journal entry such as "event 7".
std::string line(const char* fmt, int fd) {
    char buf[256];
    snprintf(buf, sizeof(buf), fmt, fd);
    return buf;
}

// The manager watches `local`, non-blocking; poke() makes it readable.
struct SocketPair : rux::test::SocketPair {
    SocketPair() : rux::test::SocketPair(SOCK_NONBLOCK) {}
    void poke() const { write({'x'}); }
};

// What the callbacks saw, in order, with optional extra work inside them.
struct Journal : rux::test::Inbox<std::string> {
    std::function<void(int)> onEvent, onClose;

    static void event(int fd, void* self) {
        auto* j = static_cast<Journal*>(self);
        EventManager::clearRead(fd, nullptr);
        j->put(line("event %d", fd));
        if (j->onEvent) j->onEvent(fd);
    }
    static void closed(int fd, void* self) {
        auto* j = static_cast<Journal*>(self);
        j->put(line("close %d", fd));
        if (j->onClose) j->onClose(fd);
    }
};

class EventManagerTest : public ::testing::Test {
protected:
    EventManagerTest() { EXPECT_GT(deadline_.addTimedCallback(10000, again, nullptr), 0); }
    static int again(void*) { return 0; }

    // One loop pass; it gives up after 10 s instead of hanging on an event that never comes.
    void pass() { em_.processEvents(&deadline_); }
    bool add(const SocketPair& sp, Journal& j) {
        return em_.addEventHandler(sp.local, Journal::event, &j, Journal::closed, EPOLLIN);
    }
    void drop(int fd) { em_.removeEventHandler(fd, false, nullptr, nullptr); }
    // From inside a callback: whether another thread can take the manager's lock now.
    // The probes outlive the callbacks: a stuck one must not block the one that started it.
    bool lockIsFree() {
        probes_.push_back(std::async(std::launch::async, [this] { return em_.isApprovedFd(-1); }));
        return probes_.back().wait_for(kDeadline) == std::future_status::ready;
    }

    LogCapture capture_;
    EventManager em_;
    Journal journal_;
    RuxTimer deadline_;
    std::vector<std::future<bool>> probes_;
};

// Two descriptors ready in one wait; whichever is dispatched first removes the other,
// kept open, whose event is then dropped, and itself, handed to a closeFn.
// Close callbacks run on the remover without the manager's lock; the next pass calls
// the closeFn and leaves both descriptors open.
TEST_F(EventManagerTest, RemovalsFromInsideACallback) {
    SocketPair a, b;
    std::vector<void*> closeFnData;
    journal_.onEvent = [&](int fd) {
        drop(fd == a.local ? b.local : a.local);
        em_.removeEventHandler(
            fd, true, [&](void* d) { closeFnData.push_back(d); }, &closeFnData);
    };
    journal_.onClose = [&](int) { EXPECT_TRUE(lockIsFree()); };
    ASSERT_TRUE(add(a, journal_) && add(b, journal_));
    a.poke();
    b.poke();
    pass();
    const bool aFirst = journal_.get().at(0) == line("event %d", a.local);
    const int first = aFirst ? a.local : b.local, other = aFirst ? b.local : a.local;
    EXPECT_EQ(journal_.get(),
              (Entries{line("event %d", first), line("close %d", other), line("close %d", first)}));
    pass();  // the queued removals
    EXPECT_EQ(closeFnData, std::vector<void*>{&closeFnData});
    EXPECT_TRUE(isOpen(first) && isOpen(other));
}

// A removal on another thread while the loop runs that descriptor's callback returns
// only after the callback has: the caller may then free the callback's data. A caller
// that holds the manager's lock does not wait (the callback may need the lock).
TEST_F(EventManagerTest, RemovalWaitsForTheRunningCallbackUnlessTheCallerHoldsTheLock) {
    for (bool holdsLock : {false, true}) {
        SCOPED_TRACE(holdsLock);
        SocketPair sp;
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();
        std::atomic<bool> callbackDone{false};
        journal_.clear();
        capture_.clear();
        journal_.onEvent = [&](int) {
            released.wait();
            EXPECT_TRUE(lockIsFree());  // never, if a holder of the lock waited
            callbackDone = true;
        };
        ASSERT_TRUE(add(sp, journal_));
        sp.poke();
        auto loop = std::async(std::launch::async, [&] { em_.processEvents(nullptr); });
        ASSERT_TRUE(journal_.waitFor(1));  // the callback has started
        auto remover = std::async(std::launch::async, [&] {
            if (holdsLock) em_.lockRecursiveMutex();
            drop(sp.local);
            const bool done = callbackDone.load();
            if (holdsLock) em_.unlockRecursiveMutex();
            return done;
        });
        ASSERT_TRUE(capture_.waitForText(line("removeEventHandler(int fd: %d) EX", sp.local)));
        release.set_value();
        ASSERT_EQ(remover.wait_for(kDeadline), std::future_status::ready);
        EXPECT_EQ(remover.get(), !holdsLock);
        ASSERT_EQ(loop.wait_for(kDeadline), std::future_status::ready);
    }
}

// A descriptor removed without closing is closed by its owner and the number comes
// back as a new descriptor before the loop ran: the new registration survives the stale
// removal. Its hang-up then takes the loop's own removal path: closeCallback first, then
// closed in the same pass.
TEST_F(EventManagerTest, ReusedNumberKeepsItsNewRegistrationUntilItHangsUp) {
    auto first = std::make_unique<SocketPair>();
    const int number = first->local;
    ASSERT_TRUE(add(*first, journal_));
    drop(number);
    first.reset();  // the owner closes both ends
    SocketPair second;
    ASSERT_EQ(second.local, number) << "the lowest free number is handed out again";
    ASSERT_TRUE(add(second, journal_));
    EXPECT_FALSE(add(second, journal_));  // one registration per number
    for (int round = 0; round < 2; ++round) {
        second.poke();
        pass();
    }
    second.closePeer();
    pass();
    EXPECT_EQ(journal_.get(), (Entries{line("close %d", number), line("event %d", number),
                                       line("event %d", number), line("close %d", number)}));
    EXPECT_FALSE(isOpen(number));
    second.local = -1;
}

class Recorder : public rux::utils::RuxEventHandler<std::shared_ptr<int>> {
public:
    Recorder(RuxTimer* timer, EventManager* em) : RuxEventHandler(timer, em, "Recorder") {}
    int fd() const { return mFd; }
    void post(int v) { postEvent(std::make_shared<int>(v)); }
    std::vector<int> handled;

protected:
    // The first event posts two more and throws.
    void handleEvent(std::shared_ptr<int> ev) override {
        if (*ev == 1) {
            post(10);
            post(11);
            throw std::runtime_error("boom");
        }
        handled.push_back(*ev);
    }
};
using RuxEventHandlerTest = EventManagerTest;

// One wake-up drains everything queued, in order, including what handleEvent posts; a
// throw loses only its own event. Destroying the handler hands its eventfd back.
TEST_F(RuxEventHandlerTest, OneWakeDrainsEveryQueuedEventInOrderPastAThrow) {
    auto rec = std::make_unique<Recorder>(&deadline_, &em_);
    for (int v : {1, 2, 3}) rec->post(v);
    pass();
    EXPECT_EQ(rec->handled, (std::vector<int>{2, 3, 10, 11}));
    EXPECT_EQ(capture_.findEndingWith("RuxEventHandler: handleEvent threw: boom").priority,
              ANDROID_LOG_ERROR)
        << capture_.dump();

    const int fd = rec->fd();
    rec.reset();
    EXPECT_EQ(em_.getNumRegisteredFds(), 0);
    pass();
    EXPECT_TRUE(capture_.contains(line("Closed %d", fd))) << capture_.dump();
}

// Descriptors 0..limit-1 are usable; `allowed` of the three set-up descriptors fit.
void limitDescriptorsTo(int allowed) {
    int lowestFree[3];
    for (int& fd : lowestFree) fd = open("/dev/null", O_RDONLY);
    for (int fd : lowestFree) close(fd);
    static rlimit saved;
    getrlimit(RLIMIT_NOFILE, &saved);
    rlimit lowered = saved;
    lowered.rlim_cur = static_cast<rlim_t>(lowestFree[allowed]);
    setrlimit(RLIMIT_NOFILE, &lowered);
    // Given back before exit handlers registered earlier (sanitizer reports) need descriptors.
    atexit([] { setrlimit(RLIMIT_NOFILE, &saved); });
}

TEST(EventManagerDeathTest, SetUpFailureEndsTheProcessWithItsLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const char* const failing[] = {"epoll", "eventfd", "removeFd"};
    for (int allowed = 0; allowed < 3; ++allowed) {
        EXPECT_EXIT(
            {
                setenv("RUX_TEST_LOG_STDERR", "1", 1);
                LogCapture capture;
                limitDescriptorsTo(allowed);
                EventManager em;
            },
            ::testing::ExitedWithCode(255),
            std::string("6/\\(null\\): Cannot create ") + failing[allowed] + " instance\n$");
    }
}

}  // namespace
