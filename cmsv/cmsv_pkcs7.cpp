// PKCS#7 SignedData with its embedded certificates decoded.
//
//   ContentInfo ::= SEQUENCE { contentType OID, content [0] EXPLICIT SignedData }
//   SignedData  ::= SEQUENCE { version, digestAlgorithms SET, encapContentInfo,
//                              certificates [0] IMPLICIT (at most 2) OPTIONAL,
//                              crls [1] OPTIONAL, signerInfos SET (at most 1) }
#include "cmsv/cmsv_owned.h"
#include "tavo/cmsv.h"

namespace {

constexpr uint32_t kUniversal = 0;
constexpr uint32_t kTagSequence = 16;

uint32_t decode_embedded_certs(CmsvVrfCtx *ctx, CmsvSignedData *signedData) {
    const CmsvCertificateSet &set = signedData->signedData.certificates;
    for (uint32_t i = 0; i < set.count && i < CMSV_PKCS7_MAX_CERTS; ++i) {
        const CmsvAsnOcts &raw = set.items[i];
        if (raw.cls != kUniversal || raw.constructed != 1 || raw.tag != kTagSequence) {
            return CMSV_ERR_NAME_ATTRIBUTE;
        }
        CmsvCert *cert = nullptr;
        uint32_t consumed = 0;
        uint32_t rc = cmsv_x509_decode_cert(ctx, raw.data, raw.len, &cert, &consumed);
        if (rc != CMSV_OK) {
            return rc;
        }
        rc = cmsv_list_add(&signedData->certs, cert);
        if (rc != CMSV_OK) {
            cmsv_x509_free_cert(ctx, cert);
            return rc;
        }
    }
    return CMSV_OK;
}

}  // namespace

TAVO_API uint32_t cmsv_pkcs7_decode_signed(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                           CmsvSignedData **out, uint32_t *consumed) {
    if (ctx == nullptr || data == nullptr || len == 0 || out == nullptr || consumed == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *out = nullptr;
    void *record = nullptr;
    uint32_t used = 0;
    if (cmsv_asn_decode(ctx, data, len, &CMSV_PKCS7_CONTENT_item, 0, &record, &used) != CMSV_OK) {
        return CMSV_ERR_PKCS7_DECODE;
    }
    auto *signedData = static_cast<CmsvSignedData *>(record);
    const uint32_t rc = decode_embedded_certs(ctx, signedData);
    if (rc != CMSV_OK) {
        cmsv_pkcs7_free_signed(ctx, signedData);
        return rc == CMSV_ERR_NAME_ATTRIBUTE ? rc : CMSV_ERR_PKCS7_DECODE;
    }
    *out = signedData;
    *consumed = used;
    return CMSV_OK;
}

TAVO_API void cmsv_pkcs7_free_signed(CmsvVrfCtx *ctx, CmsvSignedData *signedData) {
    if (signedData == nullptr) {
        return;
    }
    cmsv_list_free(ctx, &signedData->certs, cmsv_release_cert_item);
    cmsv_asn_free(ctx, signedData);
}
