// Digest and RSA verification through the provider slots of the callback table.
#include <cstdint>

#include "tavo/cmsv.h"

extern "C" {

TAVO_API uint32_t cmsv_md_ctx_create(CmsvVrfCtx *ctx, void **md) {
    if (ctx == nullptr || ctx->funcs.mdCtxCreate == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.mdCtxCreate(md);
}

TAVO_API uint32_t cmsv_md_init(CmsvVrfCtx *ctx, void *md, uint32_t hashId) {
    if (ctx == nullptr || ctx->funcs.mdInit == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.mdInit(md, hashId);
}

TAVO_API uint32_t cmsv_md_update(CmsvVrfCtx *ctx, void *md, const uint8_t *data, uint32_t len) {
    if (ctx == nullptr || ctx->funcs.mdUpdate == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.mdUpdate(md, data, len);
}

TAVO_API uint32_t cmsv_md_final(CmsvVrfCtx *ctx, void *md, uint8_t *digest, uint32_t *len) {
    if (ctx == nullptr || ctx->funcs.mdFinal == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.mdFinal(md, digest, len);
}

TAVO_API void cmsv_md_ctx_destory(CmsvVrfCtx *ctx, void *md) {
    if (ctx == nullptr || ctx->funcs.mdCtxDestroy == nullptr) {
        return;
    }
    ctx->funcs.mdCtxDestroy(md);
}

TAVO_API uint32_t cmsv_verify_ctx_create(CmsvVrfCtx *ctx, void **vrf) {
    if (ctx == nullptr || ctx->funcs.verifyCtxCreate == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.verifyCtxCreate(vrf);
}

TAVO_API uint32_t cmsv_verify_init(CmsvVrfCtx *ctx, void *vrf, const CmsvKeyPart *e,
                                   const CmsvKeyPart *n, uint32_t hashId) {
    if (ctx == nullptr || ctx->funcs.verifyInit == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.verifyInit(vrf, e, n, hashId);
}

TAVO_API uint32_t cmsv_verify_update(CmsvVrfCtx *ctx, void *vrf, const uint8_t *data,
                                     uint32_t len) {
    if (ctx == nullptr || ctx->funcs.verifyUpdate == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.verifyUpdate(vrf, data, len);
}

TAVO_API uint32_t cmsv_verify_final(CmsvVrfCtx *ctx, void *vrf, const uint8_t *sig, uint32_t sigLen,
                                    uint32_t *result) {
    if (ctx == nullptr || ctx->funcs.verifyFinal == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.verifyFinal(vrf, sig, sigLen, result);
}

TAVO_API void cmsv_verify_ctx_destory(CmsvVrfCtx *ctx, void *vrf) {
    if (ctx == nullptr || ctx->funcs.verifyCtxDestroy == nullptr) {
        return;
    }
    ctx->funcs.verifyCtxDestroy(vrf);
}

}  // extern "C"
