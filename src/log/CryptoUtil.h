// CryptoUtil: the library's only door to libcrypto. RSA-OAEP for the session key of a
// log file, AES-256-GCM for its records, SHA-256 and elliptic-curve keys for other users.
//
// Objects are cheap and not shared between threads; most are created per use. One that
// encrypts many records keeps its keyed AES-GCM context between them. Byte vectors
// passed as outputs are resized by the callee unless an operation says otherwise.
// Failures come back as false or -1 and a log line; nothing throws.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct evp_pkey_st;        // libcrypto's EVP_PKEY, kept out of this header
struct evp_cipher_ctx_st;  // libcrypto's EVP_CIPHER_CTX

namespace rux {

class CryptoUtil {
public:
    static constexpr size_t kAesKeySize = 32;
    static constexpr size_t kGcmIvSize = 12;
    static constexpr size_t kGcmTagSize = 16;
    static constexpr size_t kSha256Size = 32;
    static constexpr size_t kMaxSharedSecretSize = 67;

    CryptoUtil() = default;
    virtual ~CryptoUtil();
    CryptoUtil(const CryptoUtil&) = delete;
    CryptoUtil& operator=(const CryptoUtil&) = delete;

    // Reads an RSA key in PEM form: a public key (SubjectPublicKeyInfo) when isPublic
    // is non-zero, else a private key. Replaces the key of that kind held before.
    bool createRSA(const std::string& pem, int isPublic);
    // RSA-OAEP (SHA-1, MGF1-SHA-1) under the public key into `out`, which must already
    // hold at least the key's size; its size is kept. The output length, or -1.
    int encryptWithRSAPubKey(const std::vector<uint8_t>& in, std::vector<uint8_t>& out);
    // RSA-OAEP decryption under the private key; `out` is resized to the result.
    // The plaintext length, or -1.
    int decryptWithRSAPrivKey(const std::vector<uint8_t>& in, std::vector<uint8_t>& out);
    // Size in bytes of the private key's modulus (0 without a private key).
    int privateKeySize() const;

    bool genAESKey(std::vector<uint8_t>& key);
    // 12 random bytes. Returns false even on success (callers ignore the result).
    bool genAESIV(std::vector<uint8_t>& iv);
    bool getRandomBytes(std::vector<uint8_t>& buf);

    // AES-256-GCM of one log record with a fresh random IV: cipher has the plaintext's
    // length, tag 16 bytes. False only for a key of the wrong size or a libcrypto failure.
    // The context keyed with `key` is kept for the next record under the same key.
    bool encryptMsg2(const std::vector<uint8_t>& plain, const std::vector<uint8_t>& key,
                     std::vector<uint8_t>& cipher, std::vector<uint8_t>& iv,
                     std::vector<uint8_t>& tag);
    // AES-256-GCM with the caller's 12-byte IV; tag receives 16 bytes.
    bool encryptMsg(const std::vector<uint8_t>& plain, const std::vector<uint8_t>& key,
                    const std::vector<uint8_t>& iv, std::vector<uint8_t>& cipher,
                    std::vector<uint8_t>& tag);
    // AES-256-GCM decryption; false (and a log line) when the tag does not verify.
    bool decryptMsg(const std::vector<uint8_t>& cipher, const std::vector<uint8_t>& iv,
                    const std::vector<uint8_t>& tag, const std::vector<uint8_t>& key,
                    std::vector<uint8_t>& plain);
    bool sha256(const std::vector<uint8_t>& in, std::vector<uint8_t>& out);

    // A new key pair on the curve `curveNid` (an OpenSSL NID, e.g. NID_X9_62_prime256v1);
    // `out` receives the public point in uncompressed form.
    bool generateEccPublicKey(std::vector<uint8_t>& out, int curveNid);
    // ECDH of the key above with a peer's public point on the same curve.
    bool generateEccSharedKey(const std::vector<uint8_t>& peerPoint,
                              std::vector<uint8_t>& secret);

    // Session set-up of an encrypted log file: a new AES key and, in a 512-byte
    // buffer, that key under the PEM public key.
    bool initializeRsaEncryption(std::vector<uint8_t>& aesKey,
                                 std::vector<uint8_t>& encryptedKey,
                                 const std::vector<uint8_t>& publicKeyPem);

    // A new RSA key pair of `bits` bits as PEM texts (private key in PKCS#8 form,
    // public key in SubjectPublicKeyInfo form), for provisioning encrypted logging.
    static bool generateRsaKeyPair(int bits, std::string& privatePem, std::string& publicPem);

private:
    int curve = 0;
    evp_pkey_st* ecKey = nullptr;
    evp_pkey_st* publicRsa = nullptr;
    evp_pkey_st* privateRsa = nullptr;
    evp_cipher_ctx_st* recordCtx = nullptr;  // AES-256-GCM keyed with recordKey
    std::vector<uint8_t> recordKey;
};

}  // namespace rux
