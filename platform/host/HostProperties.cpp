// Host backend of system properties: values set by tests, then the key=value file
// named by RUX_PROPERTY_FILE (read on every call, so a test or a simulator can edit
// it while a process runs), then the caller's default.

#include <cutils/properties.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "rux/platform/host.h"

namespace {

std::mutex gMutex;
std::map<std::string, std::string> gOverrides;  // guarded by gMutex

std::string trim(const std::string& s) {
    const auto first = s.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) return "";
    const auto last = s.find_last_not_of(" \t\r\n");
    return s.substr(first, last - first + 1);
}

std::optional<std::string> lookupFile(const std::string& key) {
    const char* path = std::getenv("RUX_PROPERTY_FILE");
    if (path == nullptr || *path == '\0') return std::nullopt;
    std::ifstream in(path);
    std::optional<std::string> found;
    std::string line;
    while (std::getline(in, line)) {
        line = trim(line);
        if (line.empty() || line[0] == '#') continue;
        const auto eq = line.find('=');
        if (eq == std::string::npos) continue;
        if (trim(line.substr(0, eq)) == key) found = trim(line.substr(eq + 1));  // last one wins
    }
    return found;
}

std::optional<std::string> lookup(const char* key) {
    if (key == nullptr) return std::nullopt;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        auto it = gOverrides.find(key);
        if (it != gOverrides.end()) return it->second;
    }
    return lookupFile(key);
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
    if (value == nullptr) return 0;
    std::optional<std::string> v = lookup(key);
    const std::string text = v ? *v : (default_value ? default_value : "");
    const size_t n = std::min(text.size(), static_cast<size_t>(PROPERTY_VALUE_MAX - 1));
    std::memcpy(value, text.data(), n);
    value[n] = '\0';
    return static_cast<int>(n);
}

extern "C" int8_t property_get_bool(const char* key, int8_t default_value) {
    std::optional<std::string> v = lookup(key);
    if (!v) return default_value;
    static const char* const kTrue[] = {"1", "y", "yes", "on", "true"};
    static const char* const kFalse[] = {"0", "n", "no", "off", "false"};
    for (const char* t : kTrue)
        if (*v == t) return 1;
    for (const char* f : kFalse)
        if (*v == f) return 0;
    return default_value;
}

namespace rux::platform {

void setProperty(const std::string& key, const std::string& value) {
    std::lock_guard<std::mutex> lock(gMutex);
    gOverrides[key] = value;
}

void unsetProperty(const std::string& key) {
    std::lock_guard<std::mutex> lock(gMutex);
    gOverrides.erase(key);
}

void clearProperties() {
    std::lock_guard<std::mutex> lock(gMutex);
    gOverrides.clear();
}

}  // namespace rux::platform
