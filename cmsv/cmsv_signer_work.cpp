// Work items of a detached verification.
#include "cmsv/cmsv_signer_work.h"

namespace {

void release_item(CmsvVrfCtx *ctx, void *item) {
    cmsv_signer_work_release(ctx, static_cast<CmsvSignerWork *>(item));
}

}  // namespace

void cmsv_signer_work_release(CmsvVrfCtx *ctx, CmsvSignerWork *work) {
    if (work == nullptr) {
        return;
    }
    if (work->md != nullptr) {
        cmsv_md_ctx_destory(ctx, work->md);
    }
    if (work->vrf != nullptr) {
        cmsv_verify_ctx_destory(ctx, work->vrf);
    }
    cmsv_free(ctx, work);
}

void cmsv_signer_work_free(CmsvVrfCtx *ctx) {
    if (ctx == nullptr) {
        return;
    }
    cmsv_list_free(ctx, &ctx->signerWork, release_item);
}
