// CryptoUtil over real libcrypto, and the byte formats of encrypted logging
// (configuration file and log record). Every failure leaves libcrypto's error queue
// of the thread empty for the next user.
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>

#include "LogTestSupport.h"

namespace {

using rux::CryptoUtil;
using rux::test::Bytes;
using rux::test::bytesOf;

std::string hexOf(const Bytes& bytes) {
    std::string out;
    char two[3];
    for (uint8_t b : bytes) out.append(two, std::snprintf(two, sizeof two, "%02x", b));
    return out;
}

TEST(CryptoUtilTest, CreateRsaAcceptsOnlyRsaKeysOfTheRequestedKind) {
    const auto& keys = rux::test::testKeys();
    const std::string ecPublic =
        "-----BEGIN PUBLIC KEY-----\n"
        "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEVnWay5Ayvpb6lPEqKZ42G72vVyVX\n"
        "lvGL1C/CiqfilKti7Bx05/WRtdloeKzSCmLUvQhns/O1qAnhKWuFBxS19w==\n"
        "-----END PUBLIC KEY-----\n";
    const struct {
        std::string pem;
        int isPublic;
        bool ok;
    } cases[] = {
        {keys.publicPem, 1, true},
        {keys.privatePem, 0, true},
        {keys.publicPem, 0, false},
        {keys.privatePem, 1, false},
        {ecPublic, 1, false},
        {"-----BEGIN PUBLIC KEY-----\n", 1, false},
        {"-----BEGIN PUBLIC KEY-----\nMAMCAQA=\n-----END PUBLIC KEY-----\n", 1, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        rux::test::LogCapture capture;
        CryptoUtil crypto;
        EXPECT_EQ(crypto.createRSA(c.pem, c.isPublic), c.ok);
        EXPECT_EQ(crypto.privateKeySize(), c.ok && !c.isPublic ? 128 : 0);
        // Every failure says why, at error priority, naming the function.
        std::vector<int> priorities;
        for (const auto& l : capture.matching("createRSA(): ")) priorities.push_back(l.priority);
        EXPECT_EQ(priorities, c.ok ? std::vector<int>() : std::vector<int>{6}) << capture.dump();
        EXPECT_EQ(ERR_peek_error(), 0u);
    }
}

// The header's first bytes are the key under RSA-OAEP (SHA-1), as the openssl tool
// unwraps it (the decoder's tests read it back); the rest of the 512 bytes are zero.
TEST(CryptoUtilTest, SessionHeaderIsTheKeyUnderRsaOaepInA512ByteBuffer) {
    const auto& keys = rux::test::testKeys();
    CryptoUtil writer;
    Bytes aesKey, header;
    ASSERT_TRUE(writer.initializeRsaEncryption(aesKey, header, bytesOf(keys.publicPem)));
    ASSERT_EQ(aesKey.size(), 32u);
    ASSERT_EQ(header.size(), 512u);
    EXPECT_EQ(Bytes(header.begin() + 128, header.end()), Bytes(384, 0));
    const Bytes wrapped(header.begin(), header.begin() + 128);
    rux::test::TempDir dir;
    rux::test::writeBytes(dir.path() + "/private.pem", bytesOf(keys.privatePem));
    rux::test::writeBytes(dir.path() + "/wrapped", wrapped);
    const std::string command = "openssl pkeyutl -decrypt -inkey " + dir.path() +
                                "/private.pem -pkeyopt rsa_padding_mode:oaep -in " + dir.path() +
                                "/wrapped -out " + dir.path() + "/key 2>&1";
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
    EXPECT_EQ(rux::test::readBytes(dir.path() + "/key"), aesKey);

    // Failures: no key at all, and a key OAEP cannot carry 32 bytes under (512 bits),
    // whose error result is non-zero and so taken as success, with a zero header.
    CryptoUtil none;
    header.clear();
    EXPECT_FALSE(none.initializeRsaEncryption(aesKey, header, bytesOf("not a key")));
    EXPECT_TRUE(header.empty());
    std::string privatePem, publicPem;
    ASSERT_TRUE(CryptoUtil::generateRsaKeyPair(512, privatePem, publicPem));
    EXPECT_TRUE(none.initializeRsaEncryption(aesKey, header, bytesOf(publicPem)));
    EXPECT_EQ(aesKey.size(), 32u);
    EXPECT_EQ(header, Bytes(512, 0));
    EXPECT_EQ(ERR_peek_error(), 0u);
}

// Each record gets a fresh IV, a 16-byte tag and no padding, under the key it is given
// (the kept context is re-keyed); decryption refuses another key (the decoder's tests
// alter every byte of a file), and parts of the wrong size before libcrypto.
TEST(CryptoUtilTest, RecordsDecryptOnlyUnaltered) {
    CryptoUtil crypto;
    const Bytes key(32, 7), plain = bytesOf("2025-05-24 13:02:11.045 I RUX : hello");
    Bytes cipher, iv, tag, c2, iv2, t2, out;
    ASSERT_TRUE(crypto.encryptMsg2(plain, Bytes(32, 9), c2, iv2, t2));
    ASSERT_TRUE(crypto.encryptMsg2(plain, key, cipher, iv, tag));
    EXPECT_TRUE(crypto.decryptMsg(c2, iv2, t2, Bytes(32, 9), out));
    ASSERT_TRUE(crypto.encryptMsg2(plain, key, c2, iv2, t2));
    EXPECT_EQ(std::vector<size_t>({iv.size(), tag.size(), cipher.size()}),
              std::vector<size_t>({12, 16, plain.size()}));
    EXPECT_NE(iv, iv2);
    EXPECT_NE(cipher, c2);
    EXPECT_FALSE(crypto.encryptMsg2(plain, Bytes(16), cipher, iv, tag));
    EXPECT_FALSE(crypto.genAESIV(iv2));  // its result means nothing
    const struct {
        Bytes cipher, iv, tag, key;
        const char* says;
    } cases[] = {
        {cipher, iv, tag, Bytes(32, 8), "invalid GCM tag"},
        {cipher, Bytes(8), tag, key, "] failed"},
        {cipher, iv, Bytes(15), key, "] failed"},
        {cipher, iv, tag, Bytes(31), "] failed"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        rux::test::LogCapture capture;
        out = {1};
        EXPECT_FALSE(crypto.decryptMsg(c.cipher, c.iv, c.tag, c.key, out));
        EXPECT_EQ(out, std::string(c.says) == "] failed" ? Bytes{1} : Bytes{});  // or untouched
        EXPECT_TRUE(capture.contains(c.says)) << capture.dump();
        EXPECT_EQ(ERR_peek_error(), 0u);
    }
    EXPECT_TRUE(crypto.decryptMsg(cipher, iv, tag, key, out));
    EXPECT_EQ(out, plain);
}

// The operations without a caller in the library, one row each: digest, GCM with the
// caller's IV, random bytes, a curve key and ECDH between two of them.
TEST(CryptoUtilTest, OtherOperationsGiveKnownOrAgreedResults) {
    CryptoUtil crypto, alice, bob;
    const Bytes zero(32, 0);
    Bytes out, tag, a, b, shared;
    ASSERT_TRUE(alice.generateEccPublicKey(a, NID_X9_62_prime256v1) &&
                bob.generateEccPublicKey(b, NID_X9_62_prime256v1));
    EXPECT_EQ(std::make_pair(a.size(), a[0]), std::make_pair(size_t{65}, uint8_t{4}));
    // What the call left in `out`, or "failed"; either way no libcrypto error is left.
    auto result = [&](bool ok) {
        return (ok ? hexOf(out) : "failed") + (ERR_peek_error() ? ", error left" : "");
    };
    const struct {
        const char* what;
        std::string gave, expected;
    } rows[] = {
        {"sha256", result(crypto.sha256(bytesOf("abc"), out)),
         "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
        {"gcm, zero key and IV, one zero block",
         result(crypto.encryptMsg(Bytes(16, 0), zero, Bytes(12, 0), out = Bytes(), tag) &&
                hexOf(tag) == "d0d1c8a799996bf0265b98b5d48ab919"),
         "cea7403d4d606b6e074ec5d3baf39d18"},
        {"random: 64 bytes, not all zero, in hex",
         std::to_string(result(crypto.getRandomBytes(out = Bytes(64)) && out != Bytes(64)).size()),
         "128"},
        {"ecdh P-256: both sides derive the same 32 bytes",
         result(alice.generateEccSharedKey(b, shared) && bob.generateEccSharedKey(a, out) &&
                out.size() == 32),
         hexOf(shared)},
    };
    for (const auto& r : rows) EXPECT_EQ(r.gave, r.expected) << r.what;
}

TEST(LogFileFormatTest, ConfigurationAndRecordBytes) {
    const auto config = rux::logfile::decodeConfig({8, 7, 6, 5, 4, 3, 2, 1, 7, 'P', 'E', 'M'});
    EXPECT_EQ(config.maxRecordsPerFile, 0x0102030405060708u);
    EXPECT_EQ(config.maxFiles, 7u);
    EXPECT_EQ(config.publicKeyPem, bytesOf("PEM"));
    EXPECT_EQ(rux::logfile::encodeConfig(config),
              (Bytes{8, 7, 6, 5, 4, 3, 2, 1, 7, 'P', 'E', 'M'}));
    EXPECT_TRUE(rux::logfile::decodeConfig(Bytes(8, 0)).publicKeyPem.empty());
    using P = std::pair<uint64_t, uint64_t>;
    for (auto [in, out] : {P{2, 3}, P{3, 3}, P{7, 7}, P{10, 10}, P{11, 10}})
        EXPECT_EQ(rux::logfile::clampMaxFiles(in), out) << in;
    for (auto [in, out] : {P{2999, 3000}, P{3000, 3000}, P{12345, 12345}, P{30001, 30000}})
        EXPECT_EQ(rux::logfile::clampMaxRecords(in), out) << in;

    // A one-character line gives a 31-byte record: L = 12 + 16 + 1, little-endian.
    EXPECT_EQ(hexOf(rux::logfile::encodeRecord(Bytes(12, 0xAA), Bytes(16, 0xBB), {'x'})),
              "1d00" + std::string(24, 'a') + std::string(32, 'b') + "78");
    EXPECT_TRUE(rux::logfile::encodeRecord(Bytes(11), Bytes(16), {'x'}).empty());
    EXPECT_TRUE(rux::logfile::encodeRecord(Bytes(12), Bytes(17), {'x'}).empty());
    EXPECT_TRUE(rux::logfile::encodeRecord(Bytes(12), Bytes(16), Bytes(65508)).empty());
    EXPECT_EQ(rux::logfile::encodeRecord(Bytes(12), Bytes(16), Bytes(65507)).size(), 65537u);
}

// A length too short to hold an IV and a tag is damage (the decoder's tests read every
// other outcome of parsing).
TEST(LogFileFormatTest, ParsingRefusesALengthBelow28) {
    Bytes file = rux::logfile::encodeRecord(Bytes(12), Bytes(16), {});
    rux::logfile::Record record;
    size_t next = 0;
    file[0] = 27;
    EXPECT_EQ(rux::logfile::parseRecord(file, 0, record, next),
              rux::logfile::ParseStatus::kBadLength);
}

}  // namespace
