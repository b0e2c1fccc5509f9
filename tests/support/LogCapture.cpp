#include "LogCapture.h"

#include <android/log.h>

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>

namespace rux::test {

namespace {

std::mutex gMutex;
std::condition_variable gCond;
std::vector<LogLine> gLines;  // guarded by gMutex

void captureLogger(const struct __android_logger_data* data, const char* message) {
    LogLine line{data->priority, data->tag ? data->tag : LogCapture::kNullTag,
                 message ? message : ""};
    if (std::getenv("RUX_TEST_LOG_STDERR") != nullptr)  // a death test's only outlet
        std::fprintf(stderr, "%d/%s: %s\n", line.priority, line.tag.c_str(), line.text.c_str());
    {
        std::lock_guard<std::mutex> lock(gMutex);
        gLines.push_back(std::move(line));
    }
    gCond.notify_all();
}

void installOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        __android_log_set_default_tag(LogCapture::kNullTag);
        __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
        __android_log_set_logger(captureLogger);
    });
}

}  // namespace

LogCapture::LogCapture() {
    installOnce();
    clear();
}

std::vector<LogLine> LogCapture::lines() const {
    std::lock_guard<std::mutex> lock(gMutex);
    return gLines;
}

std::vector<LogLine> LogCapture::matching(const std::string& needle) const {
    std::vector<LogLine> out;
    for (auto& l : lines())
        if (l.text.find(needle) != std::string::npos) out.push_back(l);
    return out;
}

LogLine LogCapture::findEndingWith(const std::string& suffix) const {
    for (auto& l : lines())
        if (l.text.size() >= suffix.size() &&
            l.text.compare(l.text.size() - suffix.size(), suffix.size(), suffix) == 0)
            return l;
    return LogLine{-1, "", ""};
}

void LogCapture::clear() {
    std::lock_guard<std::mutex> lock(gMutex);
    gLines.clear();
}

bool LogCapture::waitFor(const std::function<bool(const std::vector<LogLine>&)>& predicate,
                         std::chrono::milliseconds timeout) const {
    std::unique_lock<std::mutex> lock(gMutex);
    return gCond.wait_for(lock, timeout, [&] { return predicate(gLines); });
}

bool LogCapture::waitForText(const std::string& needle, std::chrono::milliseconds timeout) const {
    auto has = [&](const LogLine& l) { return l.text.find(needle) != std::string::npos; };
    return waitFor([&](const auto& ls) { return std::any_of(ls.begin(), ls.end(), has); }, timeout);
}

MinimumPriority::MinimumPriority(int priority) {
    __android_log_set_minimum_priority(priority);
}

MinimumPriority::~MinimumPriority() {
    __android_log_set_minimum_priority(ANDROID_LOG_VERBOSE);
}

std::vector<std::string> LogCapture::rows() const {
    std::vector<std::string> out;
    for (auto& l : lines()) out.push_back(std::to_string(l.priority) + "/" + l.tag + ": " + l.text);
    return out;
}

std::string LogCapture::dump() const {
    std::string out;
    for (auto& row : rows()) out += row + "\n";
    return out;
}

}  // namespace rux::test
