// Creation and release of a verify context, and the engine's version text.
#include <cstdint>

#include "cmsv/cmsv_signer_work.h"
#include "tavo/cmsv.h"

static_assert(sizeof(CmsvCallbackFuncs) == CMSV_CALLBACK_FUNCS_SIZE);
static_assert(sizeof(CmsvCreateParams) == CMSV_CREATE_PARAMS_SIZE);
static_assert(sizeof(CmsvVrfCtx) == CMSV_VRF_CTX_SIZE);

namespace {

// Every slot the engine calls must be present; the binder's slot 15, the reserved
// slots and the size words of the two crypto blocks are not checked.
bool required_slots_present(const CmsvCallbackFuncs &f) {
    const bool system = f.mallocFn != nullptr && f.memsetS != nullptr && f.memcpyS != nullptr &&
                        f.freeFn != nullptr && f.memcmpFn != nullptr && f.strncmpFn != nullptr &&
                        f.strstrFn != nullptr && f.strchrFn != nullptr && f.strlenFn != nullptr &&
                        f.strcmpFn != nullptr && f.strcpyS != nullptr && f.strcatS != nullptr;
    const bool verify = f.verifyCtxCreate != nullptr && f.verifyInit != nullptr &&
                        f.verifyUpdate != nullptr && f.verifyFinal != nullptr &&
                        f.verifyCtxDestroy != nullptr;
    const bool digest = f.mdCtxCreate != nullptr && f.mdInit != nullptr && f.mdUpdate != nullptr &&
                        f.mdFinal != nullptr && f.mdCtxDestroy != nullptr;
    return system && verify && digest;
}

constexpr char kVersion[] = "cmsv 1.0.0 (tavo)";
static_assert(sizeof(kVersion) - 1 == 17);

}  // namespace

extern "C" {

TAVO_API uint32_t cmsv_verify_create_ctx(CmsvVrfCtx **out, const CmsvCreateParams *params) {
    if (out == nullptr || params == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const CmsvCallbackFuncs &f = params->funcs;
    if (params->size != CMSV_CREATE_PARAMS_SIZE || f.size != CMSV_CALLBACK_FUNCS_SIZE ||
        f.sysSize != CMSV_SYS_FUNCS_SIZE || f.sysInnerSize != CMSV_SYS_INNER_FUNCS_SIZE) {
        return CMSV_ERR_TABLE_SIZE;
    }
    if (!required_slots_present(f)) {
        return CMSV_ERR_CALLBACK_MISSING;
    }

    void *block = nullptr;
    const uint32_t status = f.mallocFn(&block, sizeof(CmsvVrfCtx));
    if (status != CMSV_OK) {
        return status;
    }
    if (block == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    if (f.memsetS(block, sizeof(CmsvVrfCtx), 0, sizeof(CmsvVrfCtx)) != 0) {
        f.freeFn(block);
        *out = nullptr;
        return CMSV_ERR_CTX_CLEAR;
    }
    auto *ctx = static_cast<CmsvVrfCtx *>(block);
    // The copy is the context's own table from here on; a failed copy leaves a
    // context that could call garbage, so it is treated like a failed clear.
    if (f.memcpyS(&ctx->funcs, sizeof(ctx->funcs), &f, sizeof(f)) != 0) {
        f.freeFn(block);
        *out = nullptr;
        return CMSV_ERR_CTX_CLEAR;
    }
    const uint32_t pki = cmsv_pki_init(ctx);
    if (pki != CMSV_OK) {
        f.freeFn(block);
        *out = nullptr;
        return pki;
    }
    ctx->size = CMSV_VRF_CTX_SIZE;
    *out = ctx;
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_vrf_ctx_free(CmsvVrfCtx *ctx) {
    if (ctx == nullptr) {
        return CMSV_ERR_PARAM;
    }
    cmsv_pki_uninit(ctx);
    cmsv_signer_work_free(ctx);
    cmsv_free(ctx, ctx);
    return CMSV_OK;
}

TAVO_API const char *cmsv_get_version(void) {
    return kVersion;
}

}  // extern "C"
