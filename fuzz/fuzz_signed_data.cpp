// Takes the input as a detached signature file. Decodes it as SignedData, then
// verifies it over a fixed content against a fixed store: the root certificate and
// the CRL file of the PKI that made the seeds.
#include <cstdio>
#include <cstdlib>

#include "fuzz_callbacks.h"
#include "fuzz_content.h"
#include "trust_material.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace tavo::fuzz;
    auto len = static_cast<uint32_t>(size);
    CmsvVrfCtx *ctx = NewContext();

    CmsvSignedData *signedData = nullptr;
    uint32_t consumed = 0;
    if (cmsv_pkcs7_decode_signed(ctx, data, len, &signedData, &consumed) == 0) {
        cmsv_pkcs7_free_signed(ctx, signedData);
    }

    uint32_t rc = cmsv_verify_add_cert(ctx, kTrustRoot, sizeof(kTrustRoot));
    if (rc == 0) {
        rc = cmsv_verify_add_crl(ctx, kTrustCrls, sizeof(kTrustCrls));
    }
    if (rc != 0) {
        std::fprintf(stderr, "the fixed trust material does not load: 0x%08X\n", rc);
        std::abort();
    }
    if (cmsv_verify_detach_signature_begin(ctx, data, len) == 0) {
        const uint32_t half = sizeof(kContent) / 2;
        cmsv_verify_detach_signature_update(ctx, kContent, half);
        cmsv_verify_detach_signature_update(ctx, kContent + half, sizeof(kContent) - half);
    }
    uint32_t result = 0;
    cmsv_verify_detach_signature_final(ctx, &result);
    cmsv_vrf_ctx_free(ctx);
    return 0;
}
