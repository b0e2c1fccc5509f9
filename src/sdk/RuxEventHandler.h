// RuxEventHandler<T>: turns a post from any thread into a handleEvent() call on the
// thread that runs the EventManager loop.
//
// A locked FIFO of T paired with an eventfd in semaphore mode: every post pushes one
// event and adds one count; every dispatch reads one count and pops one event. When
// the eventfd becomes readable the loop calls cb(), which drains until the counter
// is empty (EAGAIN), so one wake-up dispatches everything queued so far in FIFO order,
// including events that handleEvent() posts while the drain is running.
//
// Threads: postEvent() from any thread; cb() and handleEvent() only on the loop
// thread; handleEvent() runs without the lock and may post. mLock guards the queue
// only: the eventfd is written after the push and read before the pop, outside it, so
// a poster never holds the lock across a system call and the loop never waits on a
// poster's. The pairing still holds: every count follows its event into the queue,
// and the loop pops one event per count it reads, so a count read always finds its
// event (only a count written by someone else finds none, and is reported).
//
// Lifecycle: the EventManager must outlive the handler. The destructor hands the
// eventfd back to the manager, whose loop takes it out of epoll and closes it; if the
// loop is running this handler's cb() on another thread at that moment, the
// destructor waits for it to return. That wait comes too late for a subclass's own
// members, so a subclass that may be destroyed while the loop runs calls
// detachFromLoop() first thing in its destructor.
#pragma once

#include <android/log.h>
#include <errno.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>

#include "event/EventManager.h"
#include "event/RuxTimer.h"

namespace rux::utils {

namespace detail {

// The address a log line shows for an event: what a (smart) pointer points at, or the
// event object itself.
template <typename U>
const void* eventAddress(const std::shared_ptr<U>& ev) {
    return ev.get();
}
template <typename U, typename D>
const void* eventAddress(const std::unique_ptr<U, D>& ev) {
    return ev.get();
}
template <typename U>
const void* eventAddress(U* const& ev) {
    return ev;
}
template <typename U>
std::enable_if_t<!std::is_pointer_v<U>, const void*> eventAddress(const U& ev) {
    return &ev;
}

}  // namespace detail

template <typename T>
class RuxEventHandler {
public:
    // Creates the eventfd and registers it with `em` for EPOLLIN. `name` only appears in
    // the constructor's log line.
    RuxEventHandler(RuxTimer* timer, EventManager* em, const std::string& name)
        : mTimer(timer), mEventManager(em) {
        mFd = eventfd(0, EFD_SEMAPHORE | EFD_NONBLOCK);
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "RuxEventHandler ctor");
        if (mFd < 0) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr, "RuxEventHandler: eventfd failed: %s",
                                strerror(errno));
        } else if (mEventManager == nullptr) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                "RuxEventHandler: no event manager for fd[%d]", mFd);
        } else {
            mEventManager->addEventHandler(mFd, cb, this, nullptr, EPOLLIN);
        }
        __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                            "RuxEventHandler: ctor fd[%d] name[%s] addr[%p]", mFd, name.c_str(),
                            static_cast<void*>(this));
    }

    virtual ~RuxEventHandler() {
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "dtor");
        detachFromLoop();
    }

    RuxEventHandler(const RuxEventHandler&) = delete;
    RuxEventHandler& operator=(const RuxEventHandler&) = delete;

    // Any thread. Queues `ev` and signals the loop. If the signal cannot be written the
    // event stays queued and goes out with the next successful wake-up.
    void postEvent(T ev) {
        __android_log_print(ANDROID_LOG_DEBUG, nullptr,
                            "RuxEventHandler postEvent start for fd[%d]", mFd);
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Wakelock evt start %p %p",
                            static_cast<const void*>(this), detail::eventAddress(ev));
        {
            std::lock_guard<std::mutex> lock(mLock);
            mQueue.push_back(std::move(ev));
        }
        const uint64_t one = 1;
        const ssize_t rv = write(mFd, &one, sizeof(one));
        if (rv != static_cast<ssize_t>(sizeof(one)))
            __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                "Error in writing rv: %d, error: %s, for fd[%d]",
                                static_cast<int>(rv), strerror(errno), mFd);
    }

    // The EventManager callback for mFd (loop thread).
    static void cb(int fd, void* self) {
        auto* handler = static_cast<RuxEventHandler*>(self);
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "RuxEventHandler cb start");
        for (;;) {
            uint64_t count = 0;
            if (read(fd, &count, sizeof(count)) != static_cast<ssize_t>(sizeof(count))) {
                const int err = errno;
                // EAGAIN is the normal end: the counter is drained.
                if (err != EAGAIN)
                    __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                        "CB thread woken, but fd read failed. SHOULD NEVER HAPPEN. "
                                        "fd=%d err=%d",
                                        err, fd);
                break;
            }
            std::unique_lock<std::mutex> lock(handler->mLock);
            if (handler->mQueue.empty()) {
                lock.unlock();
                __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                    "More fd reads than queue events. SHOULD NEVER HAPPEN. fd=%d",
                                    fd);
                break;
            }
            T ev = std::move(handler->mQueue.front());
            handler->mQueue.pop_front();
            lock.unlock();

            const void* address = detail::eventAddress(ev);
            handler->dispatch(std::move(ev));
            __android_log_print(ANDROID_LOG_DEBUG, nullptr, "Wakelock evt end %p %p",
                                static_cast<const void*>(handler), address);
        }
        __android_log_print(ANDROID_LOG_DEBUG, nullptr, "RuxEventHandler cb end");
    }

protected:
    virtual void handleEvent(T ev) = 0;

    // Stops dispatch and hands the eventfd to the manager to close. When it returns no
    // cb() of this handler is running or will run. Only the first call does anything.
    void detachFromLoop() {
        if (mDetached.exchange(true) || mFd < 0) return;
        if (mEventManager != nullptr)
            mEventManager->removeEventHandler(mFd, true, nullptr, nullptr);
        else
            close(mFd);
    }

    RuxTimer* mTimer;
    EventManager* mEventManager;
    int mFd = -1;
    std::mutex mLock;      // guards mQueue
    std::deque<T> mQueue;  // guarded by mLock
    std::atomic<bool> mDetached{false};

private:
    // The loop thread must survive whatever a handler throws.
    void dispatch(T ev) {
        try {
            handleEvent(std::move(ev));
        } catch (const std::exception& e) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                "RuxEventHandler: handleEvent threw: %s", e.what());
        } catch (...) {
            __android_log_print(ANDROID_LOG_ERROR, nullptr,
                                "RuxEventHandler: handleEvent threw an unknown exception");
        }
    }
};

}  // namespace rux::utils
