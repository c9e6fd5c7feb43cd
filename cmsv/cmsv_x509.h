// Certificate checks shared by the self-signed test and the issuer test.
#pragma once

#include "tavo/cmsv.h"

// Checks `cert`'s signature over its TBSCertificate with `key`; *valid is 1 when it
// verifies. A status other than 0 means the check could not be made, or (with the
// library's provider) that the signature does not verify.
uint32_t cmsv_x509_verify_signed_by(CmsvVrfCtx *ctx, const CmsvCert *cert,
                                    const CmsvRsaPublicKey *key, uint32_t *valid);
