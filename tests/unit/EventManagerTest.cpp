// EventManager over real socket pairs: dispatch, deferred and immediate removal, removal
// from other threads and from inside callbacks, and the fatal set-up failures.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <future>

#include "LogCapture.h"
#include "SdkTestSupport.h"
#include "SocketPair.h"
#include "event/EventManager.h"
#include "event/RuxTimer.h"

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
std::string line(const char* fmt, int fd) {
    char buf[256];
    snprintf(buf, sizeof(buf), fmt, fd);
    return buf;
}
// "event 7", "close 7": what a callback saw.
std::string entry(const char* what, int fd) {
    return what + (" " + std::to_string(fd));
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
        char buf[64];
        while (read(fd, buf, sizeof(buf)) > 0) {
        }
        j->put(entry("event", fd));
        if (j->onEvent) j->onEvent(fd);
    }
    static void closed(int fd, void* self) {
        auto* j = static_cast<Journal*>(self);
        j->put(entry("close", fd));
        if (j->onClose) j->onClose(fd);
    }
};

class EventManagerTest : public ::testing::Test {
protected:
    EventManagerTest() {
        deadline_.addTimedCallback(
            10000, [](void*) { return 0; }, nullptr);
    }

    // One loop pass that gives up after the deadline instead of hanging when an
    // expected event never comes.
    void pass() { em_.processEvents(&deadline_); }
    bool add(const SocketPair& sp, Journal* j = nullptr, bool withClose = false) {
        return em_.addEventHandler(sp.local, Journal::event, j ? j : &journal_,
                                   withClose ? Journal::closed : nullptr, EPOLLIN);
    }
    void drop(int fd) { em_.removeEventHandler(fd, false, nullptr, nullptr); }
    bool logged(const char* fmt, int fd) { return capture_.contains(line(fmt, fd)); }
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

// Deferred removal: dispatch stops at once, the closeCallback runs on the caller without
// the manager's lock, and the next pass takes the descriptor out of epoll and closes it
// as asked.
TEST_F(EventManagerTest, RemoveStopsDispatchAndTheNextPassClosesAsAsked) {
    const struct {
        const char* name;
        bool closeFd, withCloseFn, expectClosed;
    } cases[] = {
        {"kept open", false, false, false},
        {"closed by the manager", true, false, true},
        {"closeFn instead of close", true, true, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SocketPair sp;
        Journal journal;
        journal.onClose = [&](int) { EXPECT_TRUE(lockIsFree()); };
        std::vector<void*> closeFnData;
        ASSERT_TRUE(add(sp, &journal, true));
        sp.poke();
        EventManager::CloseFn closeFn = [&](void* d) { closeFnData.push_back(d); };
        em_.removeEventHandler(sp.local, c.closeFd, c.withCloseFn ? closeFn : nullptr, &journal);
        EXPECT_EQ(journal.get(), Entries{entry("close", sp.local)});
        capture_.clear();
        pass();  // sp is ready, but only the removal is carried out
        EXPECT_EQ(journal.get(), Entries{entry("close", sp.local)});
        EXPECT_TRUE(logged("removing %d from epollFd", sp.local)) << capture_.dump();
        EXPECT_EQ(logged("Closed %d", sp.local), c.closeFd);
        EXPECT_EQ(closeFnData, c.withCloseFn ? std::vector<void*>{&journal} : std::vector<void*>{});
        EXPECT_EQ(isOpen(sp.local), !c.expectClosed);
        if (c.expectClosed) {
            sp.local = -1;
        } else {
            sp.poke();  // out of epoll: more data does not wake the loop for it
            em_.wake();
            pass();
            EXPECT_EQ(journal.size(), 1u);
        }
    }
}

// Two descriptors ready in one wait; whichever is dispatched first removes the other,
// whose event is then dropped by the approval test, and itself, which the next pass
// closes.
TEST_F(EventManagerTest, RemovalsFromInsideACallback) {
    SocketPair a, b;
    journal_.onEvent = [&](int fd) {
        drop(fd == a.local ? b.local : a.local);
        em_.removeEventHandler(fd, true, nullptr, nullptr);
    };
    ASSERT_TRUE(add(a, nullptr, true));
    ASSERT_TRUE(add(b));
    a.poke();
    b.poke();
    pass();
    ASSERT_EQ(journal_.size(), 2u);
    SocketPair& first = journal_.get()[0] == entry("event", a.local) ? a : b;
    const int other = &first == &a ? b.local : a.local;
    const auto dropped = capture_.findEndingWith(
        line("file descriptor %d is not on the approved list, cannot process event", other));
    EXPECT_EQ(dropped.priority, ANDROID_LOG_ERROR) << capture_.dump();
    pass();  // the queued removals
    EXPECT_FALSE(isOpen(first.local));
    first.local = -1;
    EXPECT_EQ(journal_.size(), 2u);  // its close callback, if any, ran once
}

// Hang-up, an event without EPOLLIN, and a handler without a callback all take the
// immediate-removal path: closeCallback first (without the manager's lock), then
// closed by the loop in the same pass.
TEST_F(EventManagerTest, UnusableDescriptorIsClosedInTheSamePass) {
    const struct {
        int events;
        bool withCallback, hangUp;
        const char* expected;
    } cases[] = {
        {EPOLLIN, true, true, "file descriptor '%d' sent HUP/ERR."},
        {EPOLLOUT, true, false, "Unhandled epoll event: EPOLLOUT  [flags 04]. SHOULD NOT HAPPEN"},
        {EPOLLIN, false, false, "no callback registered fd:%d. SHOULD NOT HAPPEN."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.expected);
        SocketPair sp;
        Journal journal;
        journal.onClose = [&](int) { EXPECT_TRUE(lockIsFree()); };
        ASSERT_TRUE(em_.addEventHandler(sp.local, c.withCallback ? Journal::event : nullptr,
                                        &journal, Journal::closed, c.events));
        c.hangUp ? sp.closePeer() : sp.poke();
        capture_.clear();
        pass();
        EXPECT_EQ(capture_.findEndingWith(line(c.expected, sp.local)).priority, ANDROID_LOG_ERROR)
            << capture_.dump();
        EXPECT_EQ(journal.get(), Entries{entry("close", sp.local)});
        EXPECT_FALSE(isOpen(sp.local));
        sp.local = -1;
    }
    EXPECT_EQ(em_.getNumRegisteredFds(), 0);
}

// A removal on another thread while the loop runs that descriptor's callback returns
// only after the callback has: the caller may then free the callback's data. A caller
// that holds the manager's lock does not wait (the callback may need the lock), also
// after a pass that carried out removals.
TEST_F(EventManagerTest, RemovalWaitsForTheRunningCallbackUnlessTheCallerHoldsTheLock) {
    for (bool holdsLock : {false, true}) {
        SCOPED_TRACE(holdsLock);
        SocketPair sp;
        Journal journal;
        std::promise<void> entered, release;
        std::shared_future<void> released = release.get_future().share();
        std::atomic<bool> callbackDone{false};
        journal.onEvent = [&](int) {
            entered.set_value();
            released.wait();
            // Needs the lock: with a holder that waited, it would never get it.
            EXPECT_TRUE(lockIsFree());
            callbackDone = true;
        };
        journal.onClose = [&](int) { journal.put(callbackDone ? "after" : "during"); };
        ASSERT_TRUE(add(sp, &journal, true));
        sp.poke();
        auto loop = std::async(std::launch::async, [&] { em_.processEvents(nullptr); });
        ASSERT_EQ(entered.get_future().wait_for(kDeadline), std::future_status::ready);
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
        EXPECT_EQ(journal.get(), (Entries{entry("event", sp.local), entry("close", sp.local),
                                          holdsLock ? "during" : "after"}));
        capture_.clear();
        pass();  // carries out the removal
        EXPECT_TRUE(logged("removing %d from epollFd", sp.local));
    }
}

// A descriptor removed without closing is closed by its owner and the number comes
// back as a new descriptor before the loop ran: the new registration must survive the
// stale removal.
TEST_F(EventManagerTest, ReusedNumberKeepsItsNewRegistration) {
    auto first = std::make_unique<SocketPair>();
    const int number = first->local;
    ASSERT_TRUE(add(*first));
    drop(number);
    first.reset();  // the owner closes both ends
    SocketPair second;
    ASSERT_EQ(second.local, number) << "the lowest free number is handed out again";
    ASSERT_TRUE(add(second));
    for (int round = 0; round < 2; ++round) {
        second.poke();
        pass();
    }
    EXPECT_EQ(journal_.get(), Entries(2, entry("event", number)));
    drop(second.local);
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
    // Give the limit back before the exit handlers registered earlier (sanitizer
    // reports) need descriptors of their own.
    atexit([] { setrlimit(RLIMIT_NOFILE, &saved); });
}

TEST(EventManagerDeathTest, SetUpFailureEndsTheProcessWithItsLine) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    int allowed = 0;
    for (const char* what : {"epoll", "eventfd", "removeFd"}) {
        EXPECT_EXIT(
            {
                setenv("RUX_TEST_LOG_STDERR", "1", 1);
                LogCapture capture;
                limitDescriptorsTo(allowed);
                EventManager em;
            },
            ::testing::ExitedWithCode(255),
            std::string("6/\\(null\\): Cannot create ") + what + " instance\n$");
        ++allowed;
    }
}

}  // namespace
