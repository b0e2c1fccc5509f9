#include "log/LogFileFormat.h"

#include <algorithm>

namespace rux::logfile {

std::vector<uint8_t> encodeConfig(const Config& config) {
    std::vector<uint8_t> out;
    out.reserve(9 + config.publicKeyPem.size());
    for (int i = 0; i < 8; ++i) out.push_back(static_cast<uint8_t>(config.maxRecordsPerFile >> (8 * i)));
    out.push_back(static_cast<uint8_t>(std::min<uint64_t>(config.maxFiles, 255)));
    out.insert(out.end(), config.publicKeyPem.begin(), config.publicKeyPem.end());
    return out;
}

Config decodeConfig(const std::vector<uint8_t>& bytes) {
    Config config;
    if (bytes.size() >= 8) {
        uint64_t v = 0;
        for (int i = 7; i >= 0; --i) v = (v << 8) | bytes[i];
        config.maxRecordsPerFile = v;
    }
    if (bytes.size() >= 9) {
        config.maxFiles = bytes[8];
        config.publicKeyPem.assign(bytes.begin() + 9, bytes.end());
    }
    return config;
}

uint64_t clampMaxRecords(uint64_t value) {
    return std::clamp(value, kMinMaxRecords, kMaxMaxRecords);
}

uint64_t clampMaxFiles(uint64_t value) { return std::clamp(value, kMinMaxFiles, kMaxMaxFiles); }

std::vector<uint8_t> encodeRecord(const std::vector<uint8_t>& iv, const std::vector<uint8_t>& tag,
                                  const std::vector<uint8_t>& cipher) {
    const size_t length = kRecordOverhead + cipher.size();
    if (iv.size() != kIvSize || tag.size() != kTagSize || length > 0xFFFF) return {};
    std::vector<uint8_t> out;
    out.reserve(kLengthSize + length);
    out.push_back(static_cast<uint8_t>(length & 0xFF));
    out.push_back(static_cast<uint8_t>(length >> 8));
    out.insert(out.end(), iv.begin(), iv.end());
    out.insert(out.end(), tag.begin(), tag.end());
    out.insert(out.end(), cipher.begin(), cipher.end());
    return out;
}

ParseStatus parseRecord(const std::vector<uint8_t>& file, size_t offset, Record& record,
                        size_t& next) {
    if (offset >= file.size()) return ParseStatus::kEnd;
    const size_t left = file.size() - offset;
    if (left < kLengthSize) return ParseStatus::kTruncatedLength;
    const size_t length = file[offset] | (static_cast<size_t>(file[offset + 1]) << 8);
    if (length < kRecordOverhead) return ParseStatus::kBadLength;
    if (left - kLengthSize < length) return ParseStatus::kTruncatedBody;
    const auto body = file.begin() + static_cast<std::ptrdiff_t>(offset + kLengthSize);
    record.iv.assign(body, body + kIvSize);
    record.tag.assign(body + kIvSize, body + kRecordOverhead);
    record.cipher.assign(body + kRecordOverhead, body + static_cast<std::ptrdiff_t>(length));
    next = offset + kLengthSize + length;
    return ParseStatus::kOk;
}

std::string describe(ParseStatus status) {
    switch (status) {
        case ParseStatus::kOk: return "ok";
        case ParseStatus::kEnd: return "end of file";
        case ParseStatus::kTruncatedLength: return "record truncated: length field cut";
        case ParseStatus::kBadLength: return "record damaged: length below 28";
        case ParseStatus::kTruncatedBody: return "record truncated: body shorter than its length";
    }
    return "unknown";
}

}  // namespace rux::logfile
