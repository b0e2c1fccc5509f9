// All libcrypto use of the library, over OpenSSL 3's EVP interfaces. RSA-OAEP here is
// the PKCS#1 v2 OAEP with SHA-1 and MGF1-SHA-1, byte-compatible with what older
// RSA_public_encrypt(..., RSA_PKCS1_OAEP_PADDING) produced.
#include "log/CryptoUtil.h"

#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/params.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/rsa.h>

#include <memory>

#include "log/Log.h"

namespace rux {

namespace {

constexpr size_t kRsaHeaderSize = 512;

struct CtxFree {
    void operator()(EVP_CIPHER_CTX* c) const { EVP_CIPHER_CTX_free(c); }
    void operator()(EVP_PKEY_CTX* c) const { EVP_PKEY_CTX_free(c); }
    void operator()(EVP_PKEY* k) const { EVP_PKEY_free(k); }
    void operator()(BIO* b) const { BIO_free(b); }
    void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
};
template <typename T>
using Owned = std::unique_ptr<T, CtxFree>;

std::string toHex(const std::vector<uint8_t>& bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (uint8_t b : bytes) {
        out += digits[b >> 4];
        out += digits[b & 0x0F];
    }
    return out;
}

std::string lastOpensslError() {
    char text[256] = "unknown error";
    if (unsigned long e = ERR_get_error()) ERR_error_string_n(e, text, sizeof text);
    ERR_clear_error();
    return text;
}

bool isRsa(EVP_PKEY* key) { return key != nullptr && EVP_PKEY_is_a(key, "RSA") == 1; }

}  // namespace

CryptoUtil::~CryptoUtil() {
    EVP_CIPHER_CTX_free(recordCtx);
    EVP_PKEY_free(ecKey);
    EVP_PKEY_free(publicRsa);
    EVP_PKEY_free(privateRsa);
}

bool CryptoUtil::createRSA(const std::string& pem, int isPublic) {
    static const char* const kFn = "createRSA";
    Owned<BIO> bio(BIO_new(BIO_s_mem()));
    if (!bio) {
        RUX_LOG(6, "RUX", "%s(): Key BIO creation failed!", kFn);
        return false;
    }
    const int put = BIO_puts(bio.get(), pem.c_str());
    if (put == -2) {
        RUX_LOG(6, "RUX", "%s(): BIO_puts() not supported", kFn);
        return false;
    }
    if (put <= 0) {
        RUX_LOG(6, "RUX", "%s(): Could not write key into bio", kFn);
        return false;
    }
    EVP_PKEY* key = isPublic ? PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr)
                             : PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr);
    if (key != nullptr && !isRsa(key)) {
        EVP_PKEY_free(key);
        key = nullptr;
        RUX_LOG(6, "RUX", "%s(): %s", kFn, "not an RSA key");
        return false;
    }
    if (key == nullptr) {
        RUX_LOG(6, "RUX", "%s(): %s", kFn, lastOpensslError().c_str());
        return false;
    }
    EVP_PKEY*& slot = isPublic ? publicRsa : privateRsa;
    EVP_PKEY_free(slot);
    slot = key;
    return true;
}

int CryptoUtil::encryptWithRSAPubKey(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
    if (publicRsa == nullptr) return -1;
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, publicRsa, nullptr));
    size_t outLen = 0;
    if (!ctx || EVP_PKEY_encrypt_init(ctx.get()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_OAEP_PADDING) <= 0 ||
        EVP_PKEY_encrypt(ctx.get(), nullptr, &outLen, in.data(), in.size()) <= 0 ||
        outLen > out.size() ||
        EVP_PKEY_encrypt(ctx.get(), out.data(), &outLen, in.data(), in.size()) <= 0) {
        ERR_clear_error();
        return -1;
    }
    return static_cast<int>(outLen);
}

int CryptoUtil::decryptWithRSAPrivKey(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
    if (privateRsa == nullptr) return -1;
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, privateRsa, nullptr));
    size_t outLen = 0;
    if (!ctx || EVP_PKEY_decrypt_init(ctx.get()) <= 0 ||
        EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_OAEP_PADDING) <= 0 ||
        EVP_PKEY_decrypt(ctx.get(), nullptr, &outLen, in.data(), in.size()) <= 0) {
        ERR_clear_error();
        return -1;
    }
    out.resize(outLen);
    if (EVP_PKEY_decrypt(ctx.get(), out.data(), &outLen, in.data(), in.size()) <= 0) {
        ERR_clear_error();
        out.clear();
        return -1;
    }
    out.resize(outLen);
    return static_cast<int>(outLen);
}

int CryptoUtil::privateKeySize() const {
    return privateRsa == nullptr ? 0 : EVP_PKEY_get_size(privateRsa);
}

bool CryptoUtil::genAESKey(std::vector<uint8_t>& key) {
    key.resize(kAesKeySize);
    if (RAND_bytes(key.data(), static_cast<int>(key.size())) != 1) {
        RUX_LOG(6, "RUX", "%s(): Failed to generate AES key\n", __func__);
        return false;
    }
    return true;
}

bool CryptoUtil::genAESIV(std::vector<uint8_t>& iv) {
    iv.resize(kGcmIvSize);
    if (RAND_bytes(iv.data(), static_cast<int>(iv.size())) != 1)
        RUX_LOG(6, "RUX", "%s(): Failed to generate AES iv\n", __func__);
    return false;  // callers do not look at the result
}

bool CryptoUtil::getRandomBytes(std::vector<uint8_t>& buf) {
    if (!buf.empty()) RAND_bytes(buf.data(), static_cast<int>(buf.size()));
    return true;
}

bool CryptoUtil::encryptMsg2(const std::vector<uint8_t>& plain, const std::vector<uint8_t>& key,
                             std::vector<uint8_t>& cipher, std::vector<uint8_t>& iv,
                             std::vector<uint8_t>& tag) {
    if (key.size() != kAesKeySize) return false;
    // Keying (the AES key schedule) is done once per key; each record only sets its IV.
    if (recordCtx == nullptr || recordKey != key) {
        EVP_CIPHER_CTX_free(recordCtx);
        recordKey.clear();
        recordCtx = EVP_CIPHER_CTX_new();
        if (recordCtx == nullptr ||
            EVP_EncryptInit_ex(recordCtx, EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
            EVP_CIPHER_CTX_ctrl(recordCtx, EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmIvSize),
                                nullptr) != 1 ||
            EVP_EncryptInit_ex(recordCtx, nullptr, nullptr, key.data(), nullptr) != 1) {
            EVP_CIPHER_CTX_free(recordCtx);
            recordCtx = nullptr;
            ERR_clear_error();
            return false;
        }
        recordKey = key;
    }
    genAESIV(iv);
    cipher.resize(plain.size());
    tag.resize(kGcmTagSize);
    int len = 0;
    int finalLen = 0;
    const bool ok = EVP_EncryptInit_ex(recordCtx, nullptr, nullptr, nullptr, iv.data()) == 1 &&
                    EVP_EncryptUpdate(recordCtx, cipher.data(), &len, plain.data(),
                                      static_cast<int>(plain.size())) == 1 &&
                    EVP_EncryptFinal_ex(recordCtx, cipher.data() + len, &finalLen) == 1 &&
                    EVP_CIPHER_CTX_ctrl(recordCtx, EVP_CTRL_GCM_GET_TAG,
                                        static_cast<int>(kGcmTagSize), tag.data()) == 1;
    if (!ok) {
        ERR_clear_error();
        EVP_CIPHER_CTX_free(recordCtx);  // the next record starts from a fresh context
        recordCtx = nullptr;
        recordKey.clear();
    }
    return ok;
}

bool CryptoUtil::encryptMsg(const std::vector<uint8_t>& plain, const std::vector<uint8_t>& key,
                            const std::vector<uint8_t>& iv, std::vector<uint8_t>& cipher,
                            std::vector<uint8_t>& tag) {
    Owned<EVP_CIPHER_CTX> ctx(EVP_CIPHER_CTX_new());
    if (!ctx || key.size() != kAesKeySize || iv.size() != kGcmIvSize) {
        RUX_LOG(6, "RUX", "encryptMsg[%d] failed", __LINE__);
        return false;
    }
    cipher.resize(plain.size() + 512);
    tag.resize(kGcmTagSize);
    int len = 0;
    if (EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmIvSize),
                            nullptr) != 1 ||
        EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), iv.data()) != 1 ||
        EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1 ||
        EVP_EncryptUpdate(ctx.get(), cipher.data(), &len, plain.data(),
                          static_cast<int>(plain.size())) != 1) {
        ERR_clear_error();
        RUX_LOG(6, "RUX", "encryptMsg[%d] failed", __LINE__);
        return false;
    }
    RUX_LOG(3, "RUX", "encryptMsg[%d]  ciperedlen[%d]", __LINE__, len);
    int finalLen = 0;
    if (EVP_EncryptFinal_ex(ctx.get(), cipher.data() + len, &finalLen) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kGcmTagSize),
                            tag.data()) != 1) {
        ERR_clear_error();
        RUX_LOG(6, "RUX", "encryptMsg[%d] failed", __LINE__);
        return false;
    }
    RUX_LOG(3, "RUX", "encryptMsg[%d]  ciperedlenFinal[%d]", __LINE__, finalLen);
    cipher.resize(static_cast<size_t>(len + finalLen));
    return true;
}

bool CryptoUtil::decryptMsg(const std::vector<uint8_t>& cipher, const std::vector<uint8_t>& iv,
                            const std::vector<uint8_t>& tag, const std::vector<uint8_t>& key,
                            std::vector<uint8_t>& plain) {
    Owned<EVP_CIPHER_CTX> ctx(EVP_CIPHER_CTX_new());
    if (!ctx || key.size() != kAesKeySize || iv.size() != kGcmIvSize ||
        tag.size() != kGcmTagSize) {
        RUX_LOG(6, "RUX", "decryptMsg[%d] failed", __LINE__);
        return false;
    }
    plain.resize(cipher.size() + 512);
    std::vector<uint8_t> expected = tag;  // the control call wants a writable buffer
    int len = 0;
    if (EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, static_cast<int>(kGcmIvSize),
                            nullptr) != 1 ||
        EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), iv.data()) != 1 ||
        EVP_CIPHER_CTX_set_padding(ctx.get(), 0) != 1 ||
        EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kGcmTagSize),
                            expected.data()) != 1 ||
        EVP_DecryptUpdate(ctx.get(), plain.data(), &len, cipher.data(),
                          static_cast<int>(cipher.size())) != 1) {
        ERR_clear_error();
        plain.clear();
        RUX_LOG(6, "RUX", "decryptMsg[%d] failed", __LINE__);
        return false;
    }
    RUX_LOG(3, "RUX", "decryptMsg[%d], decipherLen[%d]", __LINE__, len);
    int finalLen = 0;
    if (EVP_DecryptFinal_ex(ctx.get(), plain.data() + len, &finalLen) != 1) {
        ERR_clear_error();
        plain.clear();
        RUX_LOG(6, "RUX", "decryptMsg[%d] invalid GCM tag", __LINE__);
        return false;
    }
    RUX_LOG(3, "RUX", "decryptMsg[%d], decipherLenFinal[%d]", __LINE__, finalLen);
    plain.resize(static_cast<size_t>(len + finalLen));
    return true;
}

bool CryptoUtil::sha256(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
    out.resize(kSha256Size);
    unsigned int n = 0;
    if (EVP_Digest(in.data(), in.size(), out.data(), &n, EVP_sha256(), nullptr) != 1) {
        ERR_clear_error();
        out.clear();
        RUX_LOG(6, "RUX", "hashing[%d] failed", __LINE__);
        return false;
    }
    out.resize(n);
    return true;
}

bool CryptoUtil::generateEccPublicKey(std::vector<uint8_t>& out, int curveNid) {
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr));
    EVP_PKEY* key = nullptr;
    if (!ctx || EVP_PKEY_keygen_init(ctx.get()) <= 0 ||
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(ctx.get(), curveNid) <= 0 ||
        EVP_PKEY_keygen(ctx.get(), &key) <= 0) {
        ERR_clear_error();
        RUX_LOG(6, "RUX", "generateEccPublicKey[%d] failed", __LINE__);
        return false;
    }
    size_t len = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, nullptr, 0,
                                        &len) != 1) {
        ERR_clear_error();
        EVP_PKEY_free(key);
        RUX_LOG(6, "RUX", "generateEccPublicKey[%d] failed", __LINE__);
        return false;
    }
    out.resize(len);
    EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, out.data(),
                                    out.size(), &len);
    out.resize(len);
    EVP_PKEY_free(ecKey);
    ecKey = key;
    curve = curveNid;
    RUX_LOG(3, "RUX", "Ecc Public Key[%s]", toHex(out).c_str());
    return true;
}

bool CryptoUtil::generateEccSharedKey(const std::vector<uint8_t>& peerPoint,
                                      std::vector<uint8_t>& secret) {
    const char* group = curve != 0 ? OBJ_nid2sn(curve) : nullptr;
    EVP_PKEY* peer = nullptr;
    if (ecKey != nullptr && group != nullptr && !peerPoint.empty()) {
        Owned<EVP_PKEY_CTX> fromCtx(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
        std::vector<uint8_t> point = peerPoint;
        OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_PKEY_PARAM_GROUP_NAME,
                                             const_cast<char*>(group), 0),
            OSSL_PARAM_construct_octet_string(OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                              point.size()),
            OSSL_PARAM_construct_end(),
        };
        if (!fromCtx || EVP_PKEY_fromdata_init(fromCtx.get()) <= 0 ||
            EVP_PKEY_fromdata(fromCtx.get(), &peer, EVP_PKEY_PUBLIC_KEY, params) <= 0)
            peer = nullptr;
    }
    if (peer == nullptr) {
        ERR_clear_error();
        RUX_LOG(6, "RUX", "convert to EC failed");
        return false;
    }
    Owned<EVP_PKEY> peerOwned(peer);
    Owned<EVP_PKEY_CTX> ctx(EVP_PKEY_CTX_new_from_pkey(nullptr, ecKey, nullptr));
    size_t len = kMaxSharedSecretSize;
    secret.resize(kMaxSharedSecretSize);
    int result = 0;
    if (ctx && EVP_PKEY_derive_init(ctx.get()) > 0 &&
        EVP_PKEY_derive_set_peer(ctx.get(), peer) > 0 &&
        EVP_PKEY_derive(ctx.get(), nullptr, &len) > 0 && len <= kMaxSharedSecretSize &&
        EVP_PKEY_derive(ctx.get(), secret.data(), &len) > 0)
        result = static_cast<int>(len);
    RUX_LOG(3, "RUX", "compute result: %d", result);
    if (result <= 0) {
        ERR_clear_error();
        secret.clear();
        RUX_LOG(6, "RUX", "compute to EC failed");
        return false;
    }
    secret.resize(len);
    RUX_LOG(3, "RUX", "Ecc shared_secret Key[%s]", toHex(secret).c_str());
    return true;
}

bool CryptoUtil::initializeRsaEncryption(std::vector<uint8_t>& aesKey,
                                         std::vector<uint8_t>& encryptedKey,
                                         const std::vector<uint8_t>& publicKeyPem) {
    const std::string pem(publicKeyPem.begin(), publicKeyPem.end());
    RUX_LOG(6, "RUX", "public_key size %d", static_cast<int>(pem.size()));
    if (!createRSA(pem, 1)) return false;
    if (!genAESKey(aesKey)) return false;
    encryptedKey.assign(kRsaHeaderSize, 0);
    // Any non-zero result counts: an error (-1) leaves a zero header and encryption on.
    if (encryptWithRSAPubKey(aesKey, encryptedKey) == 0) {
        RUX_LOG(6, "RUX", "encryptWithRSAPubKey failed");
        aesKey.clear();
        encryptedKey.clear();
        return false;
    }
    return true;
}

bool CryptoUtil::generateRsaKeyPair(int bits, std::string& privatePem, std::string& publicPem) {
    EVP_PKEY* raw = EVP_RSA_gen(static_cast<unsigned int>(bits));
    if (raw == nullptr) {
        ERR_clear_error();
        return false;
    }
    Owned<EVP_PKEY> key(raw);
    auto toPem = [&](bool isPrivate, std::string& out) {
        Owned<BIO> bio(BIO_new(BIO_s_mem()));
        if (!bio) return false;
        const int ok = isPrivate ? PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr,
                                                            nullptr, 0, nullptr, nullptr)
                                 : PEM_write_bio_PUBKEY(bio.get(), key.get());
        if (ok != 1) return false;
        char* data = nullptr;
        const long n = BIO_get_mem_data(bio.get(), &data);
        out.assign(data, static_cast<size_t>(n));
        return true;
    };
    const bool ok = toPem(true, privatePem) && toPem(false, publicPem);
    if (!ok) ERR_clear_error();
    return ok;
}

}  // namespace rux
