// The log encryption's configuration file: its fields are read as stored and brought into
// range (3000..30000 records, 3..10 files), a file of 9 bytes or more encodes back to
// itself, and the session set-up over its key either succeeds with a 32-byte key and a
// 512-byte header or fails without a key.
#include "FuzzSupport.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    namespace logfile = rux::logfile;
    const std::vector<uint8_t> bytes(data, data + size);
    const logfile::Config config = logfile::decodeConfig(bytes);
    const uint64_t records = logfile::clampMaxRecords(config.maxRecordsPerFile);
    const uint64_t files = logfile::clampMaxFiles(config.maxFiles);
    FUZZ_CHECK(records >= 3000 && records <= 30000 && files >= 3 && files <= 10);
    FUZZ_CHECK((records == config.maxRecordsPerFile) ==
               (config.maxRecordsPerFile >= 3000 && config.maxRecordsPerFile <= 30000));
    if (size >= 9)
        FUZZ_CHECK(logfile::encodeConfig(config) == bytes);
    else
        FUZZ_CHECK(config.publicKeyPem.empty() && config.maxFiles == logfile::kDefaultMaxFiles);

    std::vector<uint8_t> aesKey = {1}, header = {1};
    rux::CryptoUtil crypto;
    if (crypto.initializeRsaEncryption(aesKey, header, config.publicKeyPem))
        FUZZ_CHECK(aesKey.size() == rux::CryptoUtil::kAesKeySize &&
                   header.size() == logfile::kHeaderSize);
    else
        FUZZ_CHECK(aesKey.empty() || aesKey == std::vector<uint8_t>{1});
    return 0;
}
