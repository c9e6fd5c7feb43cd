// Digest and signature work items of a detached verification.
#pragma once

#include "tavo/cmsv.h"

// One pending check over the streamed content, kept in the context's signerWork list
// between begin and final. A digest item has `md` and an expected digest; a signature
// item has `vrf` and the signature value to finish with.
struct CmsvSignerWork {
    void *md;
    uint32_t hashId;
    uint8_t expectedDigest[CMSV_DIGEST_MAX];
    uint32_t expectedDigestLen;
    void *vrf;
    uint8_t signature[CMSV_SIGNATURE_MAX];
    uint32_t signatureLen;
};

// Destroys every work item of the context (and its handles) and empties the list.
void cmsv_signer_work_free(CmsvVrfCtx *ctx);

// Destroys one item's handles and frees it; null is ignored.
void cmsv_signer_work_release(CmsvVrfCtx *ctx, CmsvSignerWork *work);
