// Shared pieces of the certificate/CRL tests: cached keys, decoded records that
// release themselves, and a small DER writer for hand-made names.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pki.h"
#include "tavo/cmsv.h"
#include "tests/cmsv/cmsv_test_context.h"

namespace x509test {

namespace pki = tavo::pki;
using pki::Bytes;

// RSA keys are slow to make; each (size, index) is made once per run.
inline const pki::Key &RsaKey(int bits, int index = 0) {
    static std::map<std::pair<int, int>, pki::Key> keys;
    auto [it, inserted] = keys.try_emplace({bits, index});
    if (inserted) {
        it->second = pki::make_rsa_key(bits);
    }
    return it->second;
}

// A root (serial 01) and two CAs under it (11, 12), "O=tavo,CN=<name>", each with its own key.
enum Who { kRoot, kCa1, kCa2 };
inline const pki::Cert &TestCa(int who) {
    static const std::vector<pki::Cert> certs = [] {
        std::vector<pki::Cert> out;
        const char *names[] = {"root", "ca1", "ca2"};
        const uint8_t serials[] = {0x01, 0x11, 0x12};
        for (int i = 0; i < 3; i++) {
            pki::CertProfile profile;
            profile.not_before = pki::utc(2020, 1, 1);
            profile.not_after = pki::utc(2045, 1, 1);
            profile.ca = true;
            profile.key_usage = pki::kKeyCertSign | pki::kCrlSign;
            profile.subject = pki::name({{"O", "tavo"}, {"CN", names[i]}});
            profile.serial = {serials[i]};
            out.push_back(pki::issue(profile, RsaKey(2048, i), i == 0 ? nullptr : &out.front(),
                                     RsaKey(2048, 0)));
        }
        return out;
    }();
    return certs[static_cast<size_t>(who)];
}

template <class T, void (*Free)(CmsvVrfCtx *, T *)>
struct Releaser {
    CmsvVrfCtx *ctx;
    void operator()(T *record) const { Free(ctx, record); }
};
using CertPtr = std::unique_ptr<CmsvCert, Releaser<CmsvCert, cmsv_x509_free_cert>>;
using CrlPtr = std::unique_ptr<CmsvCrl, Releaser<CmsvCrl, cmsv_x509_free_crl>>;

// Decodes DER that must outlive the record; null (and a test failure) on error.
template <class Ptr, class T>
Ptr Decode(CmsvVrfCtx *ctx, const Bytes &der,
           uint32_t (*decode)(CmsvVrfCtx *, const uint8_t *, uint32_t, T **, uint32_t *)) {
    T *record = nullptr;
    uint32_t consumed = 0;
    const uint32_t status =
        decode(ctx, der.data(), static_cast<uint32_t>(der.size()), &record, &consumed);
    EXPECT_EQ(status, CMSV_OK) << std::hex << status;
    return Ptr(record, {ctx});
}
inline CertPtr DecodeCert(CmsvVrfCtx *ctx, const Bytes &der) {
    return Decode<CertPtr>(ctx, der, cmsv_x509_decode_cert);
}
inline CrlPtr DecodeCrl(CmsvVrfCtx *ctx, const Bytes &der) {
    return Decode<CrlPtr>(ctx, der, cmsv_x509_decode_crl);
}

inline Bytes View(const CmsvAsnOcts &octs) {
    return Bytes(octs.data, octs.data + octs.len);
}

inline Bytes Concat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes &part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

// ---- DER writer (lengths below 65536)
inline Bytes Tlv(uint8_t tag, const Bytes &content) {
    const size_t n = content.size();
    Bytes out{tag};
    if (n < 0x80) {
        out.push_back(static_cast<uint8_t>(n));
    } else {
        out.insert(out.end(), {0x82, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)});
    }
    return Concat({out, content});
}
inline Bytes Utf8(const std::string &text) {
    return Tlv(0x0C, Bytes(text.begin(), text.end()));
}
inline Bytes Atv(const Bytes &type, const Bytes &value) {
    return Tlv(0x30, Concat({Tlv(0x06, type), value}));
}
inline Bytes Rdn(std::initializer_list<Bytes> atvs) {
    return Tlv(0x31, Concat(atvs));
}
inline Bytes NameDer(std::initializer_list<Bytes> rdns) {
    return Tlv(0x30, Concat(rdns));
}

// A decoded Name record with its own copy of the DER it points into.
struct NameRecord {
    NameRecord(CmsvVrfCtx *c, Bytes bytes) : ctx(c), der(std::move(bytes)) {
        uint32_t consumed = 0;
        status = cmsv_asn_decode(ctx, der.data(), static_cast<uint32_t>(der.size()),
                                 &CMSV_X509_NAME_item, 0, &record, &consumed);
    }
    ~NameRecord() { cmsv_asn_free(ctx, record); }
    NameRecord(const NameRecord &) = delete;
    NameRecord &operator=(const NameRecord &) = delete;
    const CmsvX509Name *get() const { return static_cast<const CmsvX509Name *>(record); }

    CmsvVrfCtx *ctx;
    Bytes der;
    void *record = nullptr;
    uint32_t status = CMSV_ERR_GENERIC;
};

}  // namespace x509test
