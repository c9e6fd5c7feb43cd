#include "cmsv/cmsv_oid.h"

#include <cstdint>

#include "tavo/cmsv.h"

namespace {

constexpr uint32_t kTagOid = 6;

// Content octets of each OID; the arc comments give the dotted form.
constexpr uint8_t kUnknown[] = {0xFF};
constexpr uint8_t kSha256[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                               0x03, 0x04, 0x02, 0x01};  // 2.16.840.1.101.3.4.2.1
constexpr uint8_t kSha384[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                               0x03, 0x04, 0x02, 0x02};  // 2.16.840.1.101.3.4.2.2
constexpr uint8_t kSha512[] = {0x60, 0x86, 0x48, 0x01, 0x65,
                               0x03, 0x04, 0x02, 0x03};  // 2.16.840.1.101.3.4.2.3
constexpr uint8_t kSha256Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7,
                                  0x0D, 0x01, 0x01, 0x0B};  // 1.2.840.113549.1.1.11
constexpr uint8_t kSha384Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7,
                                  0x0D, 0x01, 0x01, 0x0C};  // 1.2.840.113549.1.1.12
constexpr uint8_t kSha512Rsa[] = {0x2A, 0x86, 0x48, 0x86, 0xF7,
                                  0x0D, 0x01, 0x01, 0x0D};  // 1.2.840.113549.1.1.13
constexpr uint8_t kCommonName[] = {0x55, 0x04, 0x03};       // 2.5.4.3
constexpr uint8_t kLocality[] = {0x55, 0x04, 0x07};         // 2.5.4.7
constexpr uint8_t kStateOrProvince[] = {0x55, 0x04, 0x08};  // 2.5.4.8
constexpr uint8_t kOrganization[] = {0x55, 0x04, 0x0A};     // 2.5.4.10
constexpr uint8_t kOrgUnit[] = {0x55, 0x04, 0x0B};          // 2.5.4.11
constexpr uint8_t kCountry[] = {0x55, 0x04, 0x06};          // 2.5.4.6
constexpr uint8_t kEmail[] = {0x2A, 0x86, 0x48, 0x86, 0xF7,
                              0x0D, 0x01, 0x09, 0x01};       // 1.2.840.113549.1.9.1
constexpr uint8_t kKeyUsage[] = {0x55, 0x1D, 0x0F};          // 2.5.29.15
constexpr uint8_t kBasicConstraints[] = {0x55, 0x1D, 0x13};  // 2.5.29.19
constexpr uint8_t kExtKeyUsage[] = {0x55, 0x1D, 0x25};       // 2.5.29.37
constexpr uint8_t kCodeSigning[] = {0x2B, 0x06, 0x01, 0x05,
                                    0x05, 0x07, 0x03, 0x03};  // 1.3.6.1.5.5.7.3.3
constexpr uint8_t kTimeStamping[] = {0x2B, 0x06, 0x01, 0x05,
                                     0x05, 0x07, 0x03, 0x08};  // 1.3.6.1.5.5.7.3.8
constexpr uint8_t kIssuingDistPoint[] = {0x55, 0x1D, 0x1C};    // 2.5.29.28
constexpr uint8_t kCrlReasons[] = {0x55, 0x1D, 0x15};          // 2.5.29.21
constexpr uint8_t kSignedData[] = {0x2A, 0x86, 0x48, 0x86, 0xF7,
                                   0x0D, 0x01, 0x07, 0x02};  // 1.2.840.113549.1.7.2
constexpr uint8_t kMessageDigest[] = {0x2A, 0x86, 0x48, 0x86, 0xF7,
                                      0x0D, 0x01, 0x09, 0x04};  // 1.2.840.113549.1.9.4
constexpr uint8_t kTimeStampToken[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D,
                                       0x01, 0x09, 0x10, 0x02, 0x0E};  // 1.2.840.113549.1.9.16.2.14

template <uint32_t N>
constexpr CmsvAsnOcts oid(const uint8_t (&bytes)[N]) {
    return CmsvAsnOcts{N, 0, 0, kTagOid, bytes};
}

}  // namespace

const CmsvOidEntry g_cvbOIDTable[] = {
    {AOID_UNKNOWN, oid(kUnknown), "AOID_UNKNOWN"},
    {AOID_SHA256, oid(kSha256), "AOID_SHA256"},
    {AOID_SHA384, oid(kSha384), "AOID_SHA384"},
    {AOID_SHA512, oid(kSha512), "AOID_SHA512"},
    {AOID_SHA256WITHRSAENCRYPTION, oid(kSha256Rsa), "AOID_SHA256WITHRSAENCRYPTION"},
    {AOID_SHA384WITHRSAENCRYPTION, oid(kSha384Rsa), "AOID_SHA384WITHRSAENCRYPTION"},
    {AOID_SHA512WITHRSAENCRYPTION, oid(kSha512Rsa), "AOID_SHA512WITHRSAENCRYPTION"},
    {AOID_AT_COMMONNAME, oid(kCommonName), "AOID_AT_COMMONNAME"},
    {AOID_AT_LOCALITYNAME, oid(kLocality), "AOID_AT_LOCALITYNAME"},
    {AOID_AT_STATEORPROVINCENAME, oid(kStateOrProvince), "AOID_AT_STATEORPROVINCENAME"},
    {AOID_AT_ORGANIZATIONNAME, oid(kOrganization), "AOID_AT_ORGANIZATIONNAME"},
    {AOID_AT_ORGANIZATIONALUNITNAME, oid(kOrgUnit), "AOID_AT_ORGANIZATIONALUNITNAME"},
    {AOID_AT_COUNTRYNAME, oid(kCountry), "AOID_AT_COUNTRYNAME"},
    {AOID_PKCS9_AT_EMAILADDRESS, oid(kEmail), "AOID_PKCS9_AT_EMAILADDRESS"},
    {AOID_CE_KEYUSAGE, oid(kKeyUsage), "AOID_CE_KEYUSAGE"},
    {AOID_CE_BASICCONSTRAINTS, oid(kBasicConstraints), "AOID_CE_BASICCONSTRAINTS"},
    {AOID_CE_EXTKEYUSAGE, oid(kExtKeyUsage), "AOID_CE_EXTKEYUSAGE"},
    {AOID_KP_CODESIGNING, oid(kCodeSigning), "AOID_KP_CODESIGNING"},
    {AOID_KP_TIMESTAMPING, oid(kTimeStamping), "AOID_KP_TIMESTAMPING"},
    {AOID_CE_ISSUINGDISTRIBUTIONPOINT, oid(kIssuingDistPoint), "AOID_CE_ISSUINGDISTRIBUTIONPOINT"},
    {AOID_CE_CRLREASONS, oid(kCrlReasons), "AOID_CE_CRLREASONS"},
    {AOID_PKCS7_SIGNEDDATA, oid(kSignedData), "AOID_PKCS7_SIGNEDDATA"},
    {AOID_PKCS9_AT_MESSAGEDIGEST, oid(kMessageDigest), "AOID_PKCS9_AT_MESSAGEDIGEST"},
    {AOID_PKCS9_AT_TIMESTAMP_TOKEN, oid(kTimeStampToken), "AOID_PKCS9_AT_TIMESTAMP_TOKEN"},
};

const uint32_t g_cvbOidCount = sizeof(g_cvbOIDTable) / sizeof(g_cvbOIDTable[0]);

extern "C" {

TAVO_API const CmsvAsnOcts *cmsv_find_oid(uint32_t id) {
    for (uint32_t i = 0; i < g_cvbOidCount; ++i) {
        if (g_cvbOIDTable[i].id == id) {
            return &g_cvbOIDTable[i].oid;
        }
    }
    return nullptr;
}

TAVO_API uint32_t cmsv_compare_asn_octs(CmsvVrfCtx *ctx, const CmsvAsnOcts *a,
                                        const CmsvAsnOcts *b) {
    if (a == nullptr || b == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    if (a == b) {
        return 0;
    }
    if (a->len != b->len) {
        return CMSV_ERR_GENERIC;
    }
    if (a->data == b->data || a->len == 0) {
        return 0;
    }
    if (a->data == nullptr || b->data == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return static_cast<uint32_t>(cmsv_memcmp(ctx, a->data, b->data, a->len));
}

TAVO_API uint32_t cmsv_find_aoid(CmsvVrfCtx *ctx, const CmsvAsnOcts *oidValue) {
    if (oidValue == nullptr) {
        return AOID_UNKNOWN;
    }
    for (uint32_t i = 0; i < g_cvbOidCount; ++i) {
        if (cmsv_compare_asn_octs(ctx, oidValue, &g_cvbOIDTable[i].oid) == 0) {
            return g_cvbOIDTable[i].id;
        }
    }
    return AOID_UNKNOWN;
}

// A bare digest OID is accepted wherever a signature algorithm is expected.
TAVO_API uint32_t cmsv_get_hash_aoid_from_sign(CmsvVrfCtx *ctx,
                                               const CmsvAlgorithmIdentifier *algorithm) {
    if (algorithm == nullptr) {
        return AOID_UNKNOWN;
    }
    switch (cmsv_find_aoid(ctx, &algorithm->algorithm)) {
        case AOID_SHA256:
        case AOID_SHA256WITHRSAENCRYPTION:
            return AOID_SHA256;
        case AOID_SHA384:
        case AOID_SHA384WITHRSAENCRYPTION:
            return AOID_SHA384;
        case AOID_SHA512:
        case AOID_SHA512WITHRSAENCRYPTION:
            return AOID_SHA512;
        default:
            return AOID_UNKNOWN;
    }
}

}  // extern "C"
