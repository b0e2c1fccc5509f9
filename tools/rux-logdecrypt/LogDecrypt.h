// Reading encrypted log files back: the session key from the 512-byte header (RSA
// private key), then every record, its GCM tag verified. Damaged and truncated
// records are reported with their byte offset; a damaged record whose length field
// is intact is skipped and reading goes on.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "log/CryptoUtil.h"

namespace rux::tools {

struct DecryptResult {
    size_t lines = 0;     // records decrypted and verified
    size_t problems = 0;  // damaged or truncated records, unreadable header
};

using LineSink = std::function<void(const std::string& line)>;
using ProblemSink = std::function<void(size_t offset, const std::string& what)>;

// `key` holds the RSA private key (CryptoUtil::createRSA(pem, 0)).
DecryptResult decryptLogFile(const std::vector<uint8_t>& file, CryptoUtil& key,
                             const LineSink& onLine, const ProblemSink& onProblem);

}  // namespace rux::tools
