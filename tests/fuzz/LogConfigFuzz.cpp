// The log encryption's configuration file, any bytes: decoding and the session set-up
// over its key either succeed with a 32-byte key and a 512-byte header or fail without
// a key.
#include "FuzzSupport.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const rux::logfile::Config config =
        rux::logfile::decodeConfig(std::vector<uint8_t>(data, data + size));
    std::vector<uint8_t> aesKey = {1}, header = {1};
    rux::CryptoUtil crypto;
    if (crypto.initializeRsaEncryption(aesKey, header, config.publicKeyPem))
        FUZZ_CHECK(aesKey.size() == rux::CryptoUtil::kAesKeySize &&
                   header.size() == rux::logfile::kHeaderSize);
    else
        FUZZ_CHECK(aesKey.empty() || aesKey == std::vector<uint8_t>{1});
    return 0;
}
