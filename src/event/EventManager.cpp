#include "event/EventManager.h"

#include <android/log.h>
#include <errno.h>
#include <string.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "event/RuxTimer.h"

#define EM_LOG(prio, ...) __android_log_print((prio), nullptr, __VA_ARGS__)
#define EM_LOGD(...) EM_LOG(ANDROID_LOG_DEBUG, __VA_ARGS__)
#define EM_LOGW(...) EM_LOG(ANDROID_LOG_WARN, __VA_ARGS__)
#define EM_LOGE(...) EM_LOG(ANDROID_LOG_ERROR, __VA_ARGS__)

namespace rux::utils {

namespace {

void* fnAddress(void (*fn)(int, void*)) {
    return reinterpret_cast<void*>(fn);
}

// Writes the 8-byte value 1; returns what write() returned.
ssize_t signalEventFd(int fd) {
    const uint64_t one = 1;
    return write(fd, &one, sizeof(one));
}

}  // namespace

EventManager::EventManager() {
    pthread_mutexattr_t attr;
    pthread_mutexattr_init(&attr);
    pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&mutex, &attr);
    pthread_mutexattr_destroy(&attr);
    processingDepth = 0;
    EM_LOGD("EventManager: ctor");

    // The loop cannot work without any of these three, and nothing above it could do
    // anything useful with a half-built manager: give up on the process.
    epollFd = epoll_create(kMaxEvents);
    if (epollFd < 0) {
        EM_LOGE("Cannot create epoll instance");
        exit(-1);
    }
    wakeFd = eventfd(0, EFD_NONBLOCK);
    if (wakeFd < 0) {
        EM_LOGE("Cannot create eventfd instance");
        exit(-1);
    }
    addEventHandler(wakeFd, clearRead, nullptr, nullptr, kInternalEvents);
    removeFd = eventfd(0, EFD_NONBLOCK);
    if (removeFd < 0) {
        EM_LOGE("Cannot create removeFd instance");
        exit(-1);
    }
    addEventHandler(removeFd, processRemoveCallback, nullptr, nullptr, kInternalEvents);
    EM_LOGD("EventManager is ready. epollFd:%d", epollFd);
}

EventManager::~EventManager() {
    EM_LOGD("EventManager: dtor");
    immediatelyRemoveEventHandler(wakeFd);
    immediatelyRemoveEventHandler(removeFd);
    close(epollFd);
    runRemovalsOnDestruction();
    handlers.clear();
    approvedFd.clear();
    pthread_mutex_destroy(&mutex);
}

// No loop pass will come any more: whatever is still queued to be closed (the two
// eventfds above, and any descriptor removed since the last pass) is closed here
// rather than leaked.
void EventManager::runRemovalsOnDestruction() {
    lockRecursiveMutex();
    auto updates = std::move(pendingUpdates);
    pendingUpdates.clear();
    unlockRecursiveMutex();
    for (auto& [fd, update] : updates) {
        if (!update->closeFd) continue;
        if (update->closeFn)
            update->closeFn(update->closeData);
        else
            close(fd);
    }
}

void EventManager::lockRecursiveMutex() {
    pthread_mutex_lock(&mutex);
    if (mutexDepth++ == 0) mutexOwner.store(std::this_thread::get_id());
}

void EventManager::unlockRecursiveMutex() {
    if (--mutexDepth == 0) mutexOwner.store(std::thread::id());
    pthread_mutex_unlock(&mutex);
}

bool EventManager::heldByThisThread() const {
    return mutexOwner.load() == std::this_thread::get_id();
}

bool EventManager::addEventHandler(int fd, EventCallback callback, void* data,
                                   CloseCallback closeCallback, int events) {
    lockRecursiveMutex();
    EM_LOGD("addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, events %d) EX",
            fd, fnAddress(callback), data, fnAddress(closeCallback), events);
    if (handlers.count(fd) != 0) {
        EM_LOGW("fd=%d is already in handlers", fd);
        unlockRecursiveMutex();
        return false;
    }
    // A removal of this number that left the descriptor open is still waiting for the
    // loop. Carry out its epoll part now: done later, it would take the registration
    // made below out of epoll (the number may even belong to a new descriptor by now).
    auto pending = pendingUpdates.find(fd);
    if (pending != pendingUpdates.end() && !pending->second->closeFd) {
        epoll_ctl(epollFd, EPOLL_CTL_DEL, fd, nullptr);
        pendingUpdates.erase(pending);
    }
    epoll_event ev{};
    ev.events = static_cast<uint32_t>(events);
    ev.data.fd = fd;
    if (epoll_ctl(epollFd, EPOLL_CTL_ADD, fd, &ev) == 0)
        EM_LOGD("Added event handler %d", fd);
    else
        EM_LOGE("Cannot add event handler. err:%d", errno);
    handlers[fd] = HandlerObject{callback, closeCallback, data};
    approvedFd.insert(fd);
    unlockRecursiveMutex();
    return true;
}

void EventManager::eraseHandlerLocked(int fd) {
    const size_t erased = handlers.erase(fd);
    if (erased != 1)
        EM_LOGE("handlers.erase for fd %d returned %ld!", fd, static_cast<long>(erased));
}

void EventManager::queueUpdateLocked(int fd, bool closeFd, CloseFn closeFn, void* closeData) {
    auto update = std::make_shared<EventManagerUpdate>();
    update->fd = fd;
    update->closeFd = closeFd;
    update->closeFn = std::move(closeFn);
    update->closeData = closeData;
    pendingUpdates[fd] = std::move(update);
    const ssize_t rv = signalEventFd(removeFd);
    if (rv != static_cast<ssize_t>(sizeof(uint64_t)))
        EM_LOGE("Error in rem write. rv: %d, error: %s, for fd[%d]", static_cast<int>(rv),
                strerror(errno), removeFd);
}

void EventManager::removeEventHandler(int fd, bool closeFd, CloseFn closeFn, void* closeData) {
    lockRecursiveMutex();
    EM_LOGD("removeEventHandler(int fd: %d) EX", fd);
    auto it = handlers.find(fd);
    if (it == handlers.end()) {
        unlockRecursiveMutex();
        return;
    }
    const CloseCallback closeCallback = it->second.closeCallback;
    void* const data = it->second.data;
    eraseHandlerLocked(fd);
    approvedFd.erase(fd);
    queueUpdateLocked(fd, closeFd, std::move(closeFn), closeData);
    unlockRecursiveMutex();

    waitForDispatchOf(fd);
    if (closeCallback != nullptr) closeCallback(fd, data);
}

void EventManager::immediatelyRemoveEventHandler(int fd) {
    lockRecursiveMutex();
    EM_LOGD("immediatelyRemoveEventHandler(int fd: %d) EX", fd);
    approvedFd.erase(fd);
    queueUpdateLocked(fd, true, nullptr, nullptr);
    CloseCallback closeCallback = nullptr;
    void* data = nullptr;
    auto it = handlers.find(fd);
    if (it != handlers.end()) {
        closeCallback = it->second.closeCallback;
        data = it->second.data;
        eraseHandlerLocked(fd);
    }
    unlockRecursiveMutex();

    waitForDispatchOf(fd);
    if (closeCallback != nullptr) closeCallback(fd, data);
}

// Called with the manager's lock released. The loop thread never waits (it may be
// removing from inside the very callback), nor does a caller that still holds the
// recursive lock (the callback might need it).
void EventManager::waitForDispatchOf(int fd) {
    if (dispatchFd.load() != fd) return;
    if (dispatchThread.load() == std::this_thread::get_id() || heldByThisThread()) return;
    std::unique_lock<std::mutex> lock(dispatchMutex);
    dispatchDone.wait(lock, [&] { return dispatchFd.load() != fd; });
}

void EventManager::finishDispatch() {
    {
        std::lock_guard<std::mutex> lock(dispatchMutex);
        dispatchFd.store(-1);
    }
    dispatchDone.notify_all();
}

void EventManager::processRemoveCallback(int fd, void* data) {
    // removeFd is handled by processEvents itself; this stands in its handler slot.
    if (data != nullptr) static_cast<EventManager*>(data)->processRemove(fd, data);
}

void EventManager::processRemove(int /*fd*/, void* /*data*/) {
    EM_LOGD("processRemove enter");
    for (;;) {
        lockRecursiveMutex();
        const auto updates = pendingUpdates;
        unlockRecursiveMutex();

        for (const auto& [fd, update] : updates) {
            EM_LOGD("removing %d from epollFd", fd);
            if (epoll_ctl(epollFd, EPOLL_CTL_DEL, fd, nullptr) != 0)
                EM_LOGE("Cannot remove event handler errno %d", errno);
            if (update->closeFd) {
                if (update->closeFn)
                    update->closeFn(update->closeData);
                else
                    close(fd);
                EM_LOGD("Closed %d", fd);
            }
        }

        lockRecursiveMutex();
        for (const auto& [fd, update] : updates) {
            EM_LOGD("Clearing local update FD:%d", fd);
            // Only the update carried out above: one queued for the same number in
            // the meantime is still to be done.
            auto it = pendingUpdates.find(fd);
            if (it != pendingUpdates.end() && it->second == update) pendingUpdates.erase(it);
        }
        if (pendingUpdates.empty()) {
            clearRead(removeFd, nullptr);
            unlockRecursiveMutex();
            EM_LOGD("processRemove exit");
            return;
        }
        EM_LOGD("updateEpollFd not finished, repeating: %p", static_cast<void*>(this));
        unlockRecursiveMutex();
    }
}

void EventManager::processEvents(RuxTimer* timer) {
    const int timeout = timer != nullptr ? timer->timeUntilNextEvent() : -1;
    const int n = epoll_wait(epollFd, events, kMaxEvents, timeout);
    if (n == -1) {
        EM_LOGE("epoll_wait error");
        return;
    }
    ++processingDepth;
    dispatchThread.store(std::this_thread::get_id());
    struct PassEnd {
        EventManager* self;
        ~PassEnd() { --self->processingDepth; }
    } passEnd{this};

    if (timer != nullptr) timer->processEvents();

    // Removals queued by the hang-up paths below are carried out in this same pass.
    bool removalsPending = false;
    for (int i = 0; i < n; ++i) {
        EM_LOGD("there are %d file descriptor(s) with events pending", n - i);
        const int fd = events[i].data.fd;
        const uint32_t mask = events[i].events;
        if (fd == removeFd) {
            removalsPending = true;
            continue;
        }
        lockRecursiveMutex();
        if (approvedFd.count(fd) == 0) {
            EM_LOGE("file descriptor %d is not on the approved list, cannot process event", fd);
            unlockRecursiveMutex();
            continue;
        }
        EM_LOGD("processing event number: %d, handling %d for %d", i, static_cast<int>(mask), fd);
        if ((mask & (EPOLLERR | EPOLLHUP | EPOLLRDHUP)) != 0) {
            EM_LOGE("file descriptor '%d' sent HUP/ERR.", fd);
        } else if ((mask & EPOLLIN) == 0) {
            std::string text;
            if (mask & EPOLLOUT) text += "EPOLLOUT ";
            if (mask & EPOLLPRI) text += "EPOLLPRI ";
            if (mask & EPOLLERR) text += "EPOLLERR ";
            if (mask & EPOLLHUP) text += "EPOLLHUP ";
            if (mask & EPOLLET) text += "EPOLLET ";
            EM_LOGE("Unhandled epoll event: %s [flags 0%o]. SHOULD NOT HAPPEN", text.c_str(), mask);
        } else {
            auto it = handlers.find(fd);
            if (it == handlers.end()) {
                EM_LOGE(
                    "file descriptor '%d' does not have an event handler registered. SHOULD NOT "
                    "HAPPEN",
                    fd);
            } else if (it->second.callback == nullptr) {
                EM_LOGE("no callback registered fd:%d. SHOULD NOT HAPPEN.", fd);
            } else {
                const HandlerObject handler = it->second;
                EM_LOGD("file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
                        fnAddress(handler.callback), handler.data);
                dispatchFd.store(fd);
                unlockRecursiveMutex();
                struct DispatchEnd {
                    EventManager* self;
                    ~DispatchEnd() { self->finishDispatch(); }
                } dispatchEnd{this};
                handler.callback(fd, handler.data);
                continue;
            }
        }
        // Hang-up, error, an unexpected mask or no usable handler: drop the descriptor.
        unlockRecursiveMutex();
        immediatelyRemoveEventHandler(fd);
        removalsPending = true;
    }

    if (removalsPending) {
        lockRecursiveMutex();
        processRemove(removeFd, this);
        unlockRecursiveMutex();
    }
}

void EventManager::wake() {
    EM_LOGD("wake() EX");
    const ssize_t rv = signalEventFd(wakeFd);
    if (rv != static_cast<ssize_t>(sizeof(uint64_t)))
        EM_LOGW("Error in writing rv: %ld, error: %s", static_cast<long>(rv), strerror(errno));
}

void EventManager::clearRead(int fd, void* /*data*/) {
    char buffer[256];
    ssize_t r;
    do {
        r = read(fd, buffer, sizeof(buffer));
    } while (r > 0);
    if (r < 0 && errno != EAGAIN) EM_LOGW("Error while clearing the read buffer on fd %d", fd);
}

void EventManager::addApprovedFd(int fd) {
    lockRecursiveMutex();
    approvedFd.insert(fd);
    unlockRecursiveMutex();
}

void EventManager::remApprovedFd(int fd) {
    lockRecursiveMutex();
    approvedFd.erase(fd);
    unlockRecursiveMutex();
}

bool EventManager::isApprovedFd(int fd) {
    lockRecursiveMutex();
    const bool approved = approvedFd.count(fd) != 0;
    unlockRecursiveMutex();
    return approved;
}

int EventManager::getNumRegisteredFds() {
    lockRecursiveMutex();
    const int n = static_cast<int>(approvedFd.size()) - 2;
    if (n < 0) EM_LOGE("Invalid approvedFd size %d. Should not happen", n);
    for (int fd : approvedFd) EM_LOGD("Approved FD: %d", fd);
    unlockRecursiveMutex();
    return n;
}

}  // namespace rux::utils
