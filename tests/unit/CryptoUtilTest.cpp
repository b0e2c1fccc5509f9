// CryptoUtil over real libcrypto, and the byte formats of encrypted logging
// (configuration file and log record), attacked at every offset.
#include <gtest/gtest.h>
#include <openssl/obj_mac.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "LogTestSupport.h"
#include "log/CryptoUtil.h"
#include "log/LogFileFormat.h"

namespace {

using rux::CryptoUtil;
using rux::test::LogCapture;
using Bytes = std::vector<uint8_t>;

const char kEcPublicPem[] =
    "-----BEGIN PUBLIC KEY-----\n"
    "MFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEVnWay5Ayvpb6lPEqKZ42G72vVyVX\n"
    "lvGL1C/CiqfilKti7Bx05/WRtdloeKzSCmLUvQhns/O1qAnhKWuFBxS19w==\n"
    "-----END PUBLIC KEY-----\n";

Bytes fromHex(const std::string& hex) {
    Bytes out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<uint8_t>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

Bytes toBytes(const std::string& s) {
    return Bytes(s.begin(), s.end());
}

TEST(CryptoUtilTest, CreateRsaAcceptsOnlyRsaKeysOfTheRequestedKind) {
    const auto& keys = rux::test::testKeys();
    ASSERT_FALSE(keys.publicPem.empty());
    struct Case {
        const char* name;
        std::string pem;
        int isPublic;
        bool ok;
    } cases[] = {
        {"public key", keys.publicPem, 1, true},
        {"private key", keys.privatePem, 0, true},
        {"public pem read as private", keys.publicPem, 0, false},
        {"private pem read as public", keys.privatePem, 1, false},
        {"EC public key", kEcPublicPem, 1, false},
        {"garbage", "-----BEGIN PUBLIC KEY-----\nnonsense\n-----END PUBLIC KEY-----\n", 1, false},
        {"empty", "", 1, false},
    };
    for (const auto& c : cases) {
        LogCapture capture;
        CryptoUtil crypto;
        EXPECT_EQ(crypto.createRSA(c.pem, c.isPublic), c.ok) << c.name;
        if (!c.ok) {
            // Every failure says why, at error priority, naming the function.
            const auto lines = capture.matching("createRSA(): ");
            ASSERT_FALSE(lines.empty()) << c.name << "\n" << capture.dump();
            EXPECT_EQ(lines[0].priority, 6) << c.name;
        }
    }
}

TEST(CryptoUtilTest, SessionHeaderIsTheKeyUnderRsaOaepInA512ByteBuffer) {
    const auto& keys = rux::test::testKeys();
    LogCapture capture;
    CryptoUtil writer;
    Bytes aesKey, header;
    ASSERT_TRUE(writer.initializeRsaEncryption(aesKey, header, toBytes(keys.publicPem)));
    EXPECT_EQ(
        capture.findEndingWith("public_key size " + std::to_string(keys.publicPem.size())).priority,
        6);
    ASSERT_EQ(aesKey.size(), 32u);
    ASSERT_EQ(header.size(), 512u);
    EXPECT_EQ(Bytes(header.begin() + 256, header.end()), Bytes(256, 0));  // 2048-bit key

    CryptoUtil reader;
    ASSERT_TRUE(reader.createRSA(keys.privatePem, 0));
    EXPECT_EQ(reader.privateKeySize(), 256);
    Bytes unwrapped;
    EXPECT_EQ(reader.decryptWithRSAPrivKey(Bytes(header.begin(), header.begin() + 256), unwrapped),
              32);
    EXPECT_EQ(unwrapped, aesKey);
    // OAEP is randomised: the same key wraps differently each time.
    Bytes again(512, 0);
    EXPECT_EQ(writer.encryptWithRSAPubKey(aesKey, again), 256);
    EXPECT_NE(again, header);
}

TEST(CryptoUtilTest, SessionSetUpFailures) {
    CryptoUtil crypto;
    Bytes aesKey, header;
    EXPECT_FALSE(crypto.initializeRsaEncryption(aesKey, header, toBytes("not a key")));
    EXPECT_TRUE(header.empty());
    // Without a key every RSA operation fails cleanly.
    Bytes out(512);
    EXPECT_EQ(crypto.encryptWithRSAPubKey(Bytes(32, 1), out), -1);
    EXPECT_EQ(crypto.decryptWithRSAPrivKey(Bytes(256, 1), out), -1);
    EXPECT_EQ(crypto.privateKeySize(), 0);

    // OAEP cannot carry 32 bytes under a 512-bit key; the error result is non-zero and
    // is taken as success, leaving a header nobody can open.
    std::string privatePem, publicPem;
    ASSERT_TRUE(CryptoUtil::generateRsaKeyPair(512, privatePem, publicPem));
    EXPECT_TRUE(crypto.initializeRsaEncryption(aesKey, header, toBytes(publicPem)));
    EXPECT_EQ(aesKey.size(), 32u);
    EXPECT_EQ(header, Bytes(512, 0));
}

TEST(CryptoUtilTest, KnownAnswers) {
    CryptoUtil crypto;
    // AES-256-GCM, zero key and IV, one zero block.
    Bytes cipher, tag, plain, digest;
    ASSERT_TRUE(crypto.encryptMsg(Bytes(16, 0), Bytes(32, 0), Bytes(12, 0), cipher, tag));
    EXPECT_EQ(cipher, fromHex("cea7403d4d606b6e074ec5d3baf39d18"));
    EXPECT_EQ(tag, fromHex("d0d1c8a799996bf0265b98b5d48ab919"));
    ASSERT_TRUE(crypto.decryptMsg(cipher, Bytes(12, 0), tag, Bytes(32, 0), plain));
    EXPECT_EQ(plain, Bytes(16, 0));
    // SHA-256.
    ASSERT_TRUE(crypto.sha256(toBytes("abc"), digest));
    EXPECT_EQ(digest, fromHex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    ASSERT_TRUE(crypto.sha256({}, digest));
    EXPECT_EQ(digest, fromHex("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"));
}

TEST(CryptoUtilTest, FreshIvPerRecordAndDecryptionRejectsEveryAlteredPart) {
    CryptoUtil crypto;
    const Bytes key(32, 7), plain = toBytes("2025-05-24 13:02:11.045 I RUX : hello");
    Bytes cipher, iv, tag, c2, iv2, t2;
    ASSERT_TRUE(crypto.encryptMsg2(plain, key, cipher, iv, tag));
    // Each record gets a fresh IV, a 16-byte tag and no padding.
    ASSERT_TRUE(crypto.encryptMsg2(plain, key, c2, iv2, t2));
    EXPECT_EQ(std::vector<size_t>({iv.size(), tag.size(), cipher.size()}),
              std::vector<size_t>({12, 16, plain.size()}));
    EXPECT_NE(iv, iv2);
    EXPECT_NE(cipher, c2);
    EXPECT_FALSE(crypto.genAESIV(iv2));  // its result means nothing
    struct Case {
        const char* what;
        Bytes cipher, iv, tag, key;
    } cases[] = {
        {"cipher", cipher, iv, tag, key},
        {"iv", cipher, iv, tag, key},
        {"tag", cipher, iv, tag, key},
        {"key", cipher, iv, tag, key},
    };
    cases[0].cipher[3] ^= 0x01;
    cases[1].iv[11] ^= 0x80;
    cases[2].tag[0] ^= 0x10;
    cases[3].key[31] ^= 0x02;
    for (auto& c : cases) {
        LogCapture capture;
        Bytes out;
        EXPECT_FALSE(crypto.decryptMsg(c.cipher, c.iv, c.tag, c.key, out)) << c.what;
        EXPECT_TRUE(out.empty()) << c.what;
        EXPECT_TRUE(capture.contains("] invalid GCM tag")) << c.what << capture.dump();
    }
    Bytes out;
    EXPECT_TRUE(crypto.decryptMsg(cipher, iv, tag, key, out));
    EXPECT_EQ(out, plain);
    // Wrong sizes are refused before libcrypto sees them.
    EXPECT_FALSE(crypto.decryptMsg(cipher, Bytes(8), tag, key, out));
    EXPECT_FALSE(crypto.encryptMsg2(plain, Bytes(16), cipher, iv, tag));
}

TEST(CryptoUtilTest, EcdhAgreesOnEachCurve) {
    for (int nid : {NID_X9_62_prime256v1, NID_secp384r1, NID_secp521r1}) {
        CryptoUtil alice, bob;
        Bytes a, b;
        ASSERT_TRUE(alice.generateEccPublicKey(a, nid)) << nid;
        ASSERT_TRUE(bob.generateEccPublicKey(b, nid)) << nid;
        EXPECT_EQ(a[0], 0x04) << "uncompressed point";
        Bytes s1, s2;
        ASSERT_TRUE(alice.generateEccSharedKey(b, s1));
        ASSERT_TRUE(bob.generateEccSharedKey(a, s2));
        EXPECT_EQ(s1, s2);
        EXPECT_LE(s1.size(), CryptoUtil::kMaxSharedSecretSize);
        EXPECT_EQ(s1.size(), (a.size() - 1) / 2);  // the x coordinate
    }
}

TEST(CryptoUtilTest, EcdhRejectsABadPeerPoint) {
    LogCapture capture;
    CryptoUtil crypto, noKey;
    Bytes mine, secret;
    ASSERT_TRUE(crypto.generateEccPublicKey(mine, NID_X9_62_prime256v1));
    Bytes bad = mine;
    bad[10] ^= 0x55;  // off the curve
    EXPECT_FALSE(crypto.generateEccSharedKey(bad, secret));
    EXPECT_FALSE(crypto.generateEccSharedKey({0x04, 1, 2}, secret));
    EXPECT_FALSE(noKey.generateEccSharedKey(mine, secret));
    EXPECT_EQ(capture.matching("convert to EC failed").size(), 3u) << capture.dump();
}

// --- byte formats ------------------------------------------------------------------

TEST(LogFileFormatTest, ConfigurationRoundTripAndClamps) {
    rux::logfile::Config config;
    config.maxRecordsPerFile = 0x0102030405060708ull;
    config.maxFiles = 7;
    config.publicKeyPem = toBytes("PEM");
    const Bytes bytes = rux::logfile::encodeConfig(config);
    EXPECT_EQ(bytes, (Bytes{8, 7, 6, 5, 4, 3, 2, 1, 7, 'P', 'E', 'M'}));
    const auto back = rux::logfile::decodeConfig(bytes);
    EXPECT_EQ(back.maxRecordsPerFile, config.maxRecordsPerFile);
    EXPECT_EQ(back.maxFiles, 7u);
    EXPECT_EQ(back.publicKeyPem, config.publicKeyPem);
    EXPECT_TRUE(rux::logfile::decodeConfig(Bytes(8, 0)).publicKeyPem.empty());

    const std::pair<uint64_t, uint64_t> files[] = {{0, 3}, {2, 3},   {3, 3},
                                                   {7, 7}, {10, 10}, {200, 10}};
    for (auto [in, out] : files) EXPECT_EQ(rux::logfile::clampMaxFiles(in), out) << in;
    const std::pair<uint64_t, uint64_t> records[] = {
        {0, 3000}, {100, 3000}, {3000, 3000}, {12345, 12345}, {30000, 30000}, {1000000, 30000}};
    for (auto [in, out] : records) EXPECT_EQ(rux::logfile::clampMaxRecords(in), out) << in;
}

TEST(LogFileFormatTest, AOneCharacterLineGivesA31ByteRecord) {
    const Bytes record = rux::logfile::encodeRecord(Bytes(12, 0xAA), Bytes(16, 0xBB), {'x'});
    ASSERT_EQ(record.size(), 31u);
    EXPECT_EQ(record[0], 29);
    EXPECT_EQ(record[1], 0);
    EXPECT_EQ(Bytes(record.begin() + 2, record.begin() + 14), Bytes(12, 0xAA));
    EXPECT_EQ(Bytes(record.begin() + 14, record.begin() + 30), Bytes(16, 0xBB));
    EXPECT_EQ(record[30], 'x');
    EXPECT_TRUE(rux::logfile::encodeRecord(Bytes(11), Bytes(16), {'x'}).empty());
    EXPECT_TRUE(rux::logfile::encodeRecord(Bytes(12), Bytes(16), Bytes(65508)).empty());
    EXPECT_EQ(rux::logfile::encodeRecord(Bytes(12), Bytes(16), Bytes(65507)).size(), 65537u);
}

TEST(LogFileFormatTest, ParsingStopsAtEveryTruncationWithTheRightVerdict) {
    using rux::logfile::ParseStatus;
    Bytes file(rux::logfile::kHeaderSize, 0);
    const Bytes r1 = rux::logfile::encodeRecord(Bytes(12, 1), Bytes(16, 2), toBytes("first"));
    const Bytes r2 = rux::logfile::encodeRecord(Bytes(12, 3), Bytes(16, 4), toBytes("second!"));
    file.insert(file.end(), r1.begin(), r1.end());
    file.insert(file.end(), r2.begin(), r2.end());
    const size_t second = rux::logfile::kHeaderSize + r1.size();

    for (size_t cut = second; cut <= file.size(); ++cut) {
        const Bytes truncated(file.begin(), file.begin() + static_cast<long>(cut));
        rux::logfile::Record record;
        size_t next = 0;
        ASSERT_EQ(rux::logfile::parseRecord(truncated, rux::logfile::kHeaderSize, record, next),
                  ParseStatus::kOk);
        EXPECT_EQ(next, second);
        EXPECT_EQ(record.cipher, toBytes("first"));
        const ParseStatus expected = cut == second       ? ParseStatus::kEnd
                                     : cut == second + 1 ? ParseStatus::kTruncatedLength
                                     : cut < file.size() ? ParseStatus::kTruncatedBody
                                                         : ParseStatus::kOk;
        size_t after = 12345;
        EXPECT_EQ(rux::logfile::parseRecord(truncated, second, record, after), expected) << cut;
        EXPECT_EQ(after, expected == ParseStatus::kOk ? file.size() : 12345u) << cut;
    }
    // A length that cannot hold an IV and a tag.
    for (uint8_t length : {0, 1, 27}) {
        Bytes bad = file;
        bad[second] = length;
        rux::logfile::Record record;
        size_t next = 0;
        EXPECT_EQ(rux::logfile::parseRecord(bad, second, record, next), ParseStatus::kBadLength);
    }
}

}  // namespace
