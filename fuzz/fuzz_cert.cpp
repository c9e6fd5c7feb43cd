// Decodes the input as one DER certificate, then runs the per-certificate
// operations the path verifier applies to a decoded certificate.
#include <initializer_list>

#include "fuzz_callbacks.h"

namespace {

void Inspect(CmsvVrfCtx *ctx, CmsvCert *cert) {
    for (const CmsvX509Name *name : {&cert->tbs.issuer, &cert->tbs.subject}) {
        char *text = nullptr;
        uint32_t len = 0;
        if (cmsv_convert_from_x509_name(ctx, name, &text, &len) == 0) {
            cmsv_free(ctx, text);
        }
    }
    int64_t seconds = 0;
    cmsv_convert_datetime_to_time(&cert->tbs.validity.notBefore, &seconds);
    cmsv_convert_datetime_to_time(&cert->tbs.validity.notAfter, &seconds);
    CmsvKeyPart e;
    CmsvKeyPart n;
    cmsv_x509_extract_public_key(ctx, cert, &e, &n);
    uint32_t selfSigned = 0;
    cmsv_x509_is_self_signed(ctx, cert, &selfSigned);
    cmsv_x509_is_self_signed(ctx, cert, &selfSigned);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static CmsvVrfCtx *ctx = tavo::fuzz::NewContext();
    CmsvCert *cert = nullptr;
    uint32_t consumed = 0;
    if (cmsv_x509_decode_cert(ctx, data, static_cast<uint32_t>(size), &cert, &consumed) == 0) {
        Inspect(ctx, cert);
        cmsv_x509_free_cert(ctx, cert);
    }
    return 0;
}
