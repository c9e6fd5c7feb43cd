// Takes the input as a CRL/certificate file: a concatenation of DER certificates and
// CRLs. Walks it, loads it into a fresh store the three ways the engine offers,
// compares its CRL summaries with those of a known CRL file (both ways), then
// verifies every stored certificate's path and looks up every CRL's signer.
#include "cmsv/cmsv_bundle.h"
#include "fuzz_callbacks.h"
#include "trust_material.h"

namespace {

void FreeCert(CmsvVrfCtx *ctx, void *cert) {
    cmsv_x509_free_cert(ctx, static_cast<CmsvCert *>(cert));
}

void FreeCrl(CmsvVrfCtx *ctx, void *crl) {
    cmsv_x509_free_crl(ctx, static_cast<CmsvCrl *>(crl));
}

// 2036-01-01T00:00:00Z: inside the seeds' validity periods and before their CRLs'
// nextUpdate.
constexpr int64_t kVerifyTime = 2082758400;

void VerifyStore(CmsvVrfCtx *ctx) {
    const CmsvPkiStore *store = ctx->pkiStore;
    for (int32_t i = 0; i < store->certs.count && i < CMSV_LIST_CAPACITY; ++i) {
        auto *cert = static_cast<CmsvCert *>(store->certs.items[i]);
        for (uint32_t mode = 0; mode < 2; ++mode) {
            ctx->verifyTime = kVerifyTime;
            uint32_t ok = 0;
            cmsv_pki_verify_cert(ctx, cert, 1, mode, &ok);
        }
        cmsv_pki_find_cert_by_issuer_sn(ctx, &cert->tbs.issuer, &cert->tbs.serialNumber);
    }
    for (int32_t i = 0; i < store->crls.count && i < CMSV_LIST_CAPACITY; ++i) {
        cmsv_pki_find_crl_issuer(ctx, static_cast<CmsvCrl *>(store->crls.items[i]));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    auto len = static_cast<uint32_t>(size);
    CmsvVrfCtx *ctx = tavo::fuzz::NewContext();

    CmsvList certs{};
    CmsvList crls{};
    cmsv_decode_bundle(ctx, data, len, &certs, &crls);
    cmsv_list_free(ctx, &certs, FreeCert);
    cmsv_list_free(ctx, &crls, FreeCrl);

    cmsv_verify_add_cert(ctx, data, len);
    cmsv_verify_add_crl(ctx, data, len);
    CmsvCrlInfoList *summaries = nullptr;
    if (cmsv_decode_crl(ctx, data, len, &summaries) == 0) {
        cmsv_verify_add_cert(ctx, tavo::fuzz::kTrustRoot, sizeof(tavo::fuzz::kTrustRoot));
        CmsvCrlInfoList *known = nullptr;
        cmsv_decode_crl(ctx, tavo::fuzz::kTrustCaCrls, sizeof(tavo::fuzz::kTrustCaCrls), &known);
        uint32_t result = 0;
        cmsv_crl_compare(ctx, summaries, summaries, &result);
        if (known != nullptr) {
            cmsv_crl_compare(ctx, summaries, known, &result);
            cmsv_crl_compare(ctx, known, summaries, &result);
            cmsv_crl_free(ctx, known);
        }
        cmsv_crl_free(ctx, summaries);
    }
    VerifyStore(ctx);
    cmsv_vrf_ctx_free(ctx);
    return 0;
}
