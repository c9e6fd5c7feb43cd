// Walk over a concatenation of DER certificates and CRLs.
#include "cmsv/cmsv_bundle.h"

namespace {

// Undecodable bytes at the end of a bundle shorter than this are padding.
constexpr uint32_t kTrailingTolerated = 33;

}  // namespace

uint32_t cmsv_decode_bundle(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len, CmsvList *certs,
                            CmsvList *crls) {
    if (ctx == nullptr || data == nullptr || len == 0 || certs == nullptr || crls == nullptr) {
        return CMSV_ERR_PARAM;
    }
    ctx->decodeFlags = 0;
    uint32_t pos = 0;
    while (pos < len) {
        const uint8_t *at = data + pos;
        const uint32_t left = len - pos;
        uint32_t consumed = 0;
        // A decoder that succeeded without consuming anything would stall the walk.
        const auto advance = [&]() { pos += consumed > 0 && consumed <= left ? consumed : left; };

        CmsvCert *cert = nullptr;
        uint32_t status = cmsv_x509_decode_cert(ctx, at, left, &cert, &consumed);
        if (status == CMSV_OK) {
            status = cmsv_list_add(certs, cert);
            if (status != CMSV_OK) {
                cmsv_x509_free_cert(ctx, cert);
                return status;
            }
            advance();
            continue;
        }

        CmsvCrl *crl = nullptr;
        status = cmsv_x509_decode_crl(ctx, at, left, &crl, &consumed);
        if (status == CMSV_OK) {
            status = cmsv_list_add(crls, crl);
            if (status != CMSV_OK) {
                cmsv_x509_free_crl(ctx, crl);
                return status;
            }
            advance();
            continue;
        }

        return left < kTrailingTolerated ? CMSV_OK : status;
    }
    return CMSV_OK;
}
