// EventManager: the SDK's single-threaded epoll loop.
//
// Threads. Only the loop thread calls processEvents. addEventHandler,
// removeEventHandler, wake and the approved-list queries may come from any thread.
// Callbacks (EventCallback, CloseCallback) run without the manager's lock held, so
// they may call back into the manager, including removing their own descriptor.
//
// Removal. A removed descriptor stops dispatching at once (it leaves the approved
// list under the lock), but it leaves epoll and is closed only on the loop thread:
// the removal is queued in pendingUpdates and the loop is woken through removeFd.
// Events that epoll_wait has already returned for it are dropped by the approval
// test, and since the number stays open until the loop has taken it out of epoll, a
// stale event can never reach a descriptor that reuses the number. A removal made on
// another thread while the loop is running that descriptor's callback waits for the
// callback to return, so once removeEventHandler returns the callback's data may be
// freed. (The loop thread itself never waits: removing from inside a callback is fine.)
//
// Locks. One recursive mutex guards handlers, pendingUpdates and approvedFd; it is
// recursive because processEvents holds it around processRemove and while taking the
// immediate-removal path. lockRecursiveMutex/unlockRecursiveMutex let a caller batch
// operations. dispatchMutex only pairs with dispatchDone for the wait above and is
// never taken together with the recursive mutex.
//
// Lifecycle. Construct (fatal exit(-1) if epoll or an eventfd cannot be made), run
// processEvents on one thread, stop that thread, destroy. Handlers registered with the
// manager must be removed before it is destroyed.
#pragma once

#include <pthread.h>
#include <sys/epoll.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

namespace rux::utils {

class RuxTimer;

class EventManager {
public:
    using EventCallback = void (*)(int fd, void* data);
    using CloseCallback = void (*)(int fd, void* data);
    using CloseFn = std::function<void(void*)>;

    struct HandlerObject {
        EventCallback callback = nullptr;
        CloseCallback closeCallback = nullptr;
        void* data = nullptr;
    };

    struct EventManagerUpdate {
        int fd = -1;
        bool closeFd = false;  // the loop closes fd (through closeFn when set)
        CloseFn closeFn;
        void* closeData = nullptr;
    };

    static constexpr int kMaxEvents = 4;
    static constexpr int kInternalEvents = EPOLLIN | EPOLLHUP;  // 17

    EventManager();
    ~EventManager();

    EventManager(const EventManager&) = delete;
    EventManager& operator=(const EventManager&) = delete;

    // Registers fd for the epoll mask `events` and approves it. False (warn line) if
    // fd already has a handler, which is kept. An epoll_ctl failure is logged, and the
    // handler is stored all the same.
    bool addEventHandler(int fd, EventCallback callback, void* data, CloseCallback closeCallback,
                         int events);
    // Stops dispatch for fd at once and queues its removal from epoll (and, with
    // closeFd, its closing through closeFn or close()) for the loop thread. The
    // handler's closeCallback runs on the calling thread after the lock is released.
    // An fd without a handler is ignored.
    void removeEventHandler(int fd, bool closeFd, CloseFn closeFn, void* closeData);
    // The loop's own removal: unapproves fd and always queues it to be closed by the
    // loop, even without a handler; the closeCallback, if any, runs first.
    void immediatelyRemoveEventHandler(int fd);
    // One pass: wait at most the timer's time to its next event (forever without a
    // timer), run due timers, then dispatch what epoll_wait returned (at most 4).
    void processEvents(RuxTimer* timer);
    // Makes a blocked processEvents return.
    void wake();

    void addApprovedFd(int fd);
    void remApprovedFd(int fd);
    bool isApprovedFd(int fd);
    // Approved descriptors other than the manager's own two; logs each one.
    int getNumRegisteredFds();

    void lockRecursiveMutex();
    void unlockRecursiveMutex();

    // Reads fd until it would block. An EventCallback.
    static void clearRead(int fd, void* data);
    // Carries out the queued removals (loop thread).
    void processRemove(int fd, void* data);

private:
    static void processRemoveCallback(int fd, void* data);
    void queueUpdateLocked(int fd, bool closeFd, CloseFn closeFn, void* closeData);
    void eraseHandlerLocked(int fd);
    bool heldByThisThread() const;
    void waitForDispatchOf(int fd);
    void finishDispatch();
    void runRemovalsOnDestruction();

    pthread_mutex_t mutex;
    std::atomic<std::thread::id> mutexOwner{};  // written by the holder only
    int mutexDepth = 0;                         // guarded by mutex

    int epollFd = -1;
    int wakeFd = -1;
    int removeFd = -1;
    int processingDepth = 0;  // loop thread only
    epoll_event events[kMaxEvents]{};

    std::map<int, HandlerObject> handlers;                              // guarded by mutex
    std::map<int, std::shared_ptr<EventManagerUpdate>> pendingUpdates;  // guarded by mutex
    std::set<int> approvedFd;                                           // guarded by mutex

    // The callback that the loop thread is running right now: its fd (-1: none) and
    // that thread. Set under `mutex` before the callback starts, cleared under
    // dispatchMutex after it returns.
    std::atomic<int> dispatchFd{-1};
    std::atomic<std::thread::id> dispatchThread{};
    std::mutex dispatchMutex;
    std::condition_variable dispatchDone;
};

}  // namespace rux::utils
