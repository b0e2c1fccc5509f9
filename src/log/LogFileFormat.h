// Byte formats of encrypted logging, written down once (docs/log-file-format.md):
//
// Configuration file "<log root>/config/rux_log_config":
//   0  u64 LE  max records per file     8  u8  max files     9..  public key, PEM
//
// Log file: a 512-byte header (the RSA-OAEP encrypted 32-byte session key, zero
// padded), then records:
//   0  u16 LE  L = 12 + 16 + n   2  IV (12)   14  GCM tag (16)   30  ciphertext (n)
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rux::logfile {

constexpr size_t kHeaderSize = 512;
constexpr size_t kLengthSize = 2;
constexpr size_t kIvSize = 12;
constexpr size_t kTagSize = 16;
constexpr size_t kRecordOverhead = kIvSize + kTagSize;  // the smallest L

constexpr uint64_t kDefaultMaxRecords = 30000;
constexpr uint64_t kMinMaxRecords = 3000;
constexpr uint64_t kMaxMaxRecords = 30000;
constexpr uint64_t kDefaultMaxFiles = 10;
constexpr uint64_t kMinMaxFiles = 3;
constexpr uint64_t kMaxMaxFiles = 10;

struct Config {
    uint64_t maxRecordsPerFile = kDefaultMaxRecords;
    uint64_t maxFiles = kDefaultMaxFiles;
    std::vector<uint8_t> publicKeyPem;
};

// The configuration file's bytes. maxFiles is written as one byte (cut to 255).
std::vector<uint8_t> encodeConfig(const Config& config);
// Reads the fields as stored (no clamping); a file shorter than 9 bytes keeps the
// defaults for what is missing and has no key.
Config decodeConfig(const std::vector<uint8_t>& bytes);
// The configured values brought into 3000..30000 records and 3..10 files.
uint64_t clampMaxRecords(uint64_t value);
uint64_t clampMaxFiles(uint64_t value);

// One record: length, IV, tag, ciphertext. Empty when the parts do not fit the
// format (wrong IV or tag size, L above 65535).
std::vector<uint8_t> encodeRecord(const std::vector<uint8_t>& iv, const std::vector<uint8_t>& tag,
                                  const std::vector<uint8_t>& cipher);

struct Record {
    std::vector<uint8_t> iv;
    std::vector<uint8_t> tag;
    std::vector<uint8_t> cipher;
};

enum class ParseStatus {
    kOk,
    kEnd,             // no bytes left: the file ended cleanly
    kTruncatedLength, // fewer than 2 bytes left for the length
    kBadLength,       // L below 28: cannot hold an IV and a tag
    kTruncatedBody,   // fewer than L bytes follow the length
};

// Parses the record at `offset` of a file's bytes. On kOk, `record` holds it and
// `next` the offset of the following record; otherwise `next` is left unchanged.
ParseStatus parseRecord(const std::vector<uint8_t>& file, size_t offset, Record& record,
                        size_t& next);
// Text for a status, e.g. "record truncated: length field cut".
std::string describe(ParseStatus status);

}  // namespace rux::logfile
