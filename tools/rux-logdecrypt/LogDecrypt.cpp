#include "LogDecrypt.h"

#include "log/LogFileFormat.h"

namespace rux::tools {

DecryptResult decryptLogFile(const std::vector<uint8_t>& file, CryptoUtil& key,
                             const LineSink& onLine, const ProblemSink& onProblem) {
    DecryptResult result;
    auto problem = [&](size_t offset, const std::string& what) {
        ++result.problems;
        onProblem(offset, what);
    };
    if (file.size() < logfile::kHeaderSize) {
        problem(0, "header truncated: " + std::to_string(file.size()) + " of " +
                       std::to_string(logfile::kHeaderSize) + " bytes");
        return result;
    }
    const size_t keyBytes = static_cast<size_t>(key.privateKeySize());
    if (keyBytes == 0 || keyBytes > logfile::kHeaderSize) {
        problem(0, "no usable RSA private key");
        return result;
    }
    const std::vector<uint8_t> wrapped(file.begin(), file.begin() + static_cast<long>(keyBytes));
    std::vector<uint8_t> sessionKey;
    if (key.decryptWithRSAPrivKey(wrapped, sessionKey) != static_cast<int>(CryptoUtil::kAesKeySize)) {
        problem(0, "header damaged: the session key does not decrypt with this private key");
        return result;
    }

    size_t offset = logfile::kHeaderSize;
    for (;;) {
        logfile::Record record;
        size_t next = offset;
        const logfile::ParseStatus status = logfile::parseRecord(file, offset, record, next);
        if (status == logfile::ParseStatus::kEnd) break;
        if (status != logfile::ParseStatus::kOk) {
            // Without a trustworthy length the next record cannot be found.
            problem(offset, logfile::describe(status));
            break;
        }
        std::vector<uint8_t> plain;
        if (key.decryptMsg(record.cipher, record.iv, record.tag, sessionKey, plain)) {
            ++result.lines;
            onLine(std::string(plain.begin(), plain.end()));
        } else {
            problem(offset, "record damaged: GCM tag does not verify");
        }
        offset = next;
    }
    return result;
}

}  // namespace rux::tools
