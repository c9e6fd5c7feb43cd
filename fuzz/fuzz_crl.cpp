// Decodes the input as one DER CRL, then reads what the revocation check and the
// CRL summary read from a decoded CRL.
#include "fuzz_callbacks.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CmsvVrfCtx *ctx = tavo::fuzz::NewContext();
    CmsvCrl *crl = nullptr;
    uint32_t consumed = 0;
    if (cmsv_x509_decode_crl(ctx, data, static_cast<uint32_t>(size), &crl, &consumed) != 0) {
        return 0;
    }
    char *issuer = nullptr;
    uint32_t len = 0;
    if (cmsv_convert_from_x509_name(ctx, &crl->tbsCertList.issuer, &issuer, &len) == 0) {
        cmsv_free(ctx, issuer);
    }
    int64_t seconds = 0;
    cmsv_convert_datetime_to_time(&crl->tbsCertList.thisUpdate, &seconds);
    cmsv_convert_datetime_to_time(&crl->tbsCertList.nextUpdate, &seconds);
    const CmsvRevokedList &revoked = crl->tbsCertList.revokedCertificates;
    for (uint32_t i = 0; i < revoked.count && i < CMSV_CRL_MAX_REVOKED; ++i) {
        cmsv_convert_datetime_to_time(&revoked.entries[i].revocationDate, &seconds);
    }
    cmsv_x509_free_crl(ctx, crl);
    return 0;
}
