#include "Output.h"

#include <cstdio>

namespace ruxctl {

namespace {

std::string value(const Json& v) {
    if (v.is_string()) return v.get<std::string>();
    std::string out;
    if (v.is_object()) {
        for (auto it = v.begin(); it != v.end(); ++it)
            out += (out.empty() ? "" : " ") + it.key() + "=" + value(it.value());
        return "{" + out + "}";
    }
    if (v.is_array()) {
        for (const auto& entry : v) out += (out.empty() ? "" : " ") + value(entry);
        return "[" + out + "]";
    }
    return v.dump();  // numbers, true/false, null
}

}  // namespace

std::string formatLine(const Json& record) {
    std::string out;
    bool first = true;
    for (auto it = record.begin(); it != record.end(); ++it) {
        if (first) {
            out = value(it.value());  // what the record is, without its key
            first = false;
            continue;
        }
        out += " " + it.key() + "=" + value(it.value());
    }
    return out;
}

std::string formatJson(const Json& record) {
    return record.dump();
}

void printRecord(const Json& record, bool asJson) {
    const std::string line = (asJson ? formatJson(record) : formatLine(record)) + "\n";
    std::fputs(line.c_str(), stdout);
    std::fflush(stdout);
}

}  // namespace ruxctl
