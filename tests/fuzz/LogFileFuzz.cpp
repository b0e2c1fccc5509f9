// The encrypted log file reader of rux-logdecrypt. The first input byte picks a mode:
//  - even: the rest is lines ('\n'-separated) written as a real log file (header and a
//    record per line, under a key pair made once per run), then damaged as three more
//    bytes say: not at all, truncated, or one byte flipped past a record's length field.
//    The reader must give back every line before the damage, in order, report the
//    damaged record at its offset, and go on after a flipped one;
//  - odd: the rest follows a valid header as the records. Whatever they hold, every
//    problem is reported at a record offset inside the file, in order, and a reason
//    other than a failed tag can only come last.
#include <string>

#include "FuzzSupport.h"
#include "LogDecrypt.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

namespace {

using Bytes = std::vector<uint8_t>;
using Lines = std::vector<std::string>;
namespace logfile = rux::logfile;

struct Keys {
    std::string privatePem, publicPem;
    Bytes aesKey, header;
};
const Keys& keys() {
    static const Keys k = [] {
        Keys out;
        FUZZ_CHECK(rux::CryptoUtil::generateRsaKeyPair(1024, out.privatePem, out.publicPem));
        FUZZ_CHECK(rux::CryptoUtil().initializeRsaEncryption(
            out.aesKey, out.header, Bytes(out.publicPem.begin(), out.publicPem.end())));
        return out;
    }();
    return k;
}

const std::string kBadTag = "record damaged: GCM tag does not verify";

// The lines read back, and the problems (offset, reason) reported.
std::pair<Lines, std::vector<std::pair<size_t, std::string>>> decrypt(const Bytes& file) {
    rux::CryptoUtil key;
    FUZZ_CHECK(key.createRSA(keys().privatePem, 0));
    std::pair<Lines, std::vector<std::pair<size_t, std::string>>> out;
    const auto result = rux::tools::decryptLogFile(
        file, key, [&](const std::string& line) { out.first.push_back(line); },
        [&](size_t offset, const std::string& what) { out.second.emplace_back(offset, what); });
    FUZZ_CHECK(result.lines == out.first.size() && result.problems == out.second.size());
    return out;
}

void checkWrittenLines(rux::fuzz::Input& input) {
    const uint8_t damage = input.byte() % 3;  // 0 none, 1 truncate, 2 flip
    const size_t low = input.byte(), where = low | size_t{input.byte()} << 8;
    Lines lines(1);
    for (uint8_t c : input.bytes(input.left())) {
        if (c == '\n') lines.emplace_back();
        else if (lines.back().size() < 511) lines.back() += static_cast<char>(c);
    }
    Bytes file = keys().header;
    std::vector<size_t> starts;
    for (const auto& l : lines) {
        Bytes cipher, iv, tag;
        FUZZ_CHECK(rux::CryptoUtil().encryptMsg2(Bytes(l.begin(), l.end()), keys().aesKey,
                                                 cipher, iv, tag));
        starts.push_back(file.size());
        const Bytes record = logfile::encodeRecord(iv, tag, cipher);
        file.insert(file.end(), record.begin(), record.end());
    }
    starts.push_back(file.size());
    const size_t at = logfile::kHeaderSize + where % (file.size() - logfile::kHeaderSize);
    size_t hit = 0;  // the record the damage falls in
    while (starts[hit + 1] <= at) ++hit;
    if (damage == 2 && at < starts[hit] + logfile::kLengthSize)
        return;  // a flipped length field moves every record after it
    if (damage == 2) file[at] ^= 0x01;
    if (damage == 1) file.resize(at);

    const auto [read, problems] = decrypt(file);
    if (damage == 0) {
        FUZZ_CHECK(read == lines && problems.empty());
    } else if (damage == 1) {  // a cut on a record boundary is a shorter file, not a damaged one
        FUZZ_CHECK(read == Lines(lines.begin(), lines.begin() + static_cast<long>(hit)));
        FUZZ_CHECK(problems.size() == (at == starts[hit] ? 0u : 1u));
        FUZZ_CHECK(problems.empty() || (problems[0].first == starts[hit] &&
                                        problems[0].second.find("record truncated") == 0));
    } else {
        lines.erase(lines.begin() + static_cast<long>(hit));
        FUZZ_CHECK(read == lines && problems.size() == 1);
        FUZZ_CHECK(problems[0].first == starts[hit] && problems[0].second == kBadTag);
    }
}

void checkAnyRecords(rux::fuzz::Input& input) {
    Bytes file = keys().header;
    const Bytes records = input.bytes(input.left());
    file.insert(file.end(), records.begin(), records.end());
    const auto [read, problems] = decrypt(file);
    for (size_t i = 0, last = 0; i < problems.size(); last = problems[i++].first + 1) {
        const auto& [offset, what] = problems[i];
        FUZZ_CHECK(offset >= logfile::kHeaderSize && offset < file.size() && offset >= last);
        FUZZ_CHECK(what == kBadTag || i + 1 == problems.size());
    }
    for (const auto& l : read) FUZZ_CHECK(l.size() <= 0xFFFF - logfile::kRecordOverhead);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    rux::fuzz::Input input{data, size};
    if (input.byte() % 2 == 0)
        checkWrittenLines(input);
    else
        checkAnyRecords(input);
    return 0;
}
