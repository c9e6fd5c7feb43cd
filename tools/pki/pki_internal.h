// RAII holders and small helpers shared by the tavo::pki sources.
#pragma once

#include <openssl/asn1.h>
#include <openssl/bio.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/ts.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <memory>
#include <string>

#include "pki.h"

namespace tavo::pki::detail {

template <auto Free>
struct Deleter {
    template <typename T>
    void operator()(T *p) const {
        Free(p);
    }
};
template <typename T, auto Free>
using Ptr = std::unique_ptr<T, Deleter<Free>>;

using BioPtr = Ptr<BIO, BIO_free_all>;
using PkeyPtr = Ptr<EVP_PKEY, EVP_PKEY_free>;
using PkeyCtxPtr = Ptr<EVP_PKEY_CTX, EVP_PKEY_CTX_free>;
using X509Ptr = Ptr<X509, X509_free>;
using NamePtr = Ptr<X509_NAME, X509_NAME_free>;
using ExtPtr = Ptr<X509_EXTENSION, X509_EXTENSION_free>;
using CrlPtr = Ptr<X509_CRL, X509_CRL_free>;
using RevokedPtr = Ptr<X509_REVOKED, X509_REVOKED_free>;
using CmsPtr = Ptr<CMS_ContentInfo, CMS_ContentInfo_free>;
using IntPtr = Ptr<ASN1_INTEGER, ASN1_INTEGER_free>;
using TimePtr = Ptr<ASN1_TIME, ASN1_TIME_free>;
using OctetPtr = Ptr<ASN1_OCTET_STRING, ASN1_OCTET_STRING_free>;
using BitStrPtr = Ptr<ASN1_BIT_STRING, ASN1_BIT_STRING_free>;
using ObjPtr = Ptr<ASN1_OBJECT, ASN1_OBJECT_free>;
using EnumPtr = Ptr<ASN1_ENUMERATED, ASN1_ENUMERATED_free>;
using TstPtr = Ptr<TS_TST_INFO, TS_TST_INFO_free>;
using TsReqPtr = Ptr<TS_REQ, TS_REQ_free>;
using TsRespPtr = Ptr<TS_RESP, TS_RESP_free>;
using ImprintPtr = Ptr<TS_MSG_IMPRINT, TS_MSG_IMPRINT_free>;
using AlgorPtr = Ptr<X509_ALGOR, X509_ALGOR_free>;
using BnPtr = Ptr<BIGNUM, BN_free>;

// Throws Error(what + ": " + the OpenSSL error queue), clearing the queue.
[[noreturn]] void fail(const std::string &what);
// Throws via fail() when ok is false / the pointer is null.
inline void check(bool ok, const char *what) {
    if (!ok) {
        fail(what);
    }
}
template <typename T>
T *check_ptr(T *p, const char *what) {
    if (p == nullptr) {
        fail(what);
    }
    return p;
}

// "sha256" etc.; throws for anything else.
const EVP_MD *md_by_name(const std::string &name);

IntPtr make_integer(const Bytes &big_endian);
Bytes integer_bytes(const ASN1_INTEGER *i);
std::time_t asn1_time_to_time_t(const ASN1_TIME *t);

// DER encoding through an i2d function.
template <typename T, typename F>
Bytes encode(const T *obj, F i2d, const char *what) {
    int n = i2d(obj, nullptr);
    check(n > 0, what);
    Bytes out(static_cast<std::size_t>(n));
    unsigned char *p = out.data();
    check(i2d(obj, &p) == n, what);
    return out;
}

CmsPtr parse_cms(const Bytes &der);
std::string name_text(const X509_NAME *n);

}  // namespace tavo::pki::detail

namespace tavo::pki::detail {
SignerSummary summarize(CMS_SignerInfo *si);
std::vector<SignerSummary> summarize_all(CMS_ContentInfo *cms);
std::vector<Cert> certs_of(CMS_ContentInfo *cms);
}  // namespace tavo::pki::detail
