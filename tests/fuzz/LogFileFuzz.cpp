// The encrypted log file reader of rux-logdecrypt, given a valid header followed by any
// bytes as the records. Whatever they hold, every problem is reported at a record offset
// inside the file, in order, a reason other than a failed tag can only come last, and no
// line is longer than a record can carry.
#include <string>

#include "FuzzSupport.h"
#include "LogDecrypt.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

namespace {

using Bytes = std::vector<uint8_t>;
namespace logfile = rux::logfile;

struct Keys {
    std::string privatePem, publicPem;
    Bytes header;
};
const Keys& keys() {
    static const Keys k = [] {
        Keys out;
        Bytes aesKey;
        FUZZ_CHECK(rux::CryptoUtil::generateRsaKeyPair(1024, out.privatePem, out.publicPem));
        FUZZ_CHECK(rux::CryptoUtil().initializeRsaEncryption(
            aesKey, out.header, Bytes(out.publicPem.begin(), out.publicPem.end())));
        return out;
    }();
    return k;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Bytes file = keys().header;
    file.insert(file.end(), data, data + size);
    rux::CryptoUtil key;
    FUZZ_CHECK(key.createRSA(keys().privatePem, 0));
    std::vector<std::string> read;
    std::vector<std::pair<size_t, std::string>> problems;
    const auto result = rux::tools::decryptLogFile(
        file, key, [&](const std::string& line) { read.push_back(line); },
        [&](size_t offset, const std::string& what) { problems.emplace_back(offset, what); });
    FUZZ_CHECK(result.lines == read.size() && result.problems == problems.size());
    for (size_t i = 0, last = 0; i < problems.size(); last = problems[i++].first + 1) {
        const auto& [offset, what] = problems[i];
        FUZZ_CHECK(offset >= logfile::kHeaderSize && offset < file.size() && offset >= last);
        FUZZ_CHECK(what == "record damaged: GCM tag does not verify" || i + 1 == problems.size());
    }
    for (const auto& l : read) FUZZ_CHECK(l.size() <= 0xFFFF - logfile::kRecordOverhead);
    return 0;
}
