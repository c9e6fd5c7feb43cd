// Path verification helpers shared with the signature verifier.
#pragma once

#include "tavo/cmsv.h"

// Checks a signer certificate for a usage (CMSV_EKU_CODE_SIGNING in mode 0,
// CMSV_EKU_TIME_STAMPING in mode 1): digitalSignature, the usage flag, then its
// path at the context's verifyTime.
uint32_t cmsv_pki_check_signer(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t usage);
