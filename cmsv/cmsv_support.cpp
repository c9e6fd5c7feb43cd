// Memory and string operations of the engine. Each one forwards to the caller's
// callback table copied into the context; the engine calls no runtime library.
#include <cstddef>
#include <cstdint>

#include "tavo/cmsv.h"

extern "C" {

TAVO_API uint32_t cmsv_malloc(CmsvVrfCtx *ctx, void **out, size_t size) {
    if (ctx == nullptr || ctx->funcs.mallocFn == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    return ctx->funcs.mallocFn(out, size);
}

TAVO_API uint32_t cmsv_malloc_with0(CmsvVrfCtx *ctx, void **out, size_t size) {
    uint32_t status = cmsv_malloc(ctx, out, size);
    if (status != CMSV_OK) {
        return status;
    }
    status = cmsv_memset_s(ctx, *out, size, 0, size);
    if (status != CMSV_OK) {
        cmsv_free(ctx, *out);
        *out = nullptr;
    }
    return status;
}

TAVO_API void cmsv_free(CmsvVrfCtx *ctx, void *p) {
    if (ctx == nullptr || p == nullptr || ctx->funcs.freeFn == nullptr) {
        return;
    }
    ctx->funcs.freeFn(p);
}

TAVO_API uint32_t cmsv_memset_s(CmsvVrfCtx *ctx, void *dest, size_t destMax, int c, size_t count) {
    if (ctx == nullptr || ctx->funcs.memsetS == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    if (count > destMax) {
        return CMSV_ERR_MEM_RANGE;
    }
    return ctx->funcs.memsetS(dest, destMax, c, count);
}

TAVO_API uint32_t cmsv_memcpy_s(CmsvVrfCtx *ctx, void *dest, size_t destMax, const void *src,
                                size_t count) {
    if (ctx == nullptr || ctx->funcs.memcpyS == nullptr) {
        return CMSV_ERR_GENERIC;
    }
    if (count > destMax) {
        return CMSV_ERR_MEM_RANGE;
    }
    return ctx->funcs.memcpyS(dest, destMax, src, count);
}

TAVO_API int32_t cmsv_memcmp(CmsvVrfCtx *ctx, const void *a, const void *b, size_t count) {
    if (ctx == nullptr || ctx->funcs.memcmpFn == nullptr) {
        return static_cast<int32_t>(CMSV_ERR_GENERIC);
    }
    return ctx->funcs.memcmpFn(a, b, count);
}

TAVO_API int32_t cmsv_strncmp(CmsvVrfCtx *ctx, const char *a, const char *b, size_t count) {
    if (ctx == nullptr || ctx->funcs.strncmpFn == nullptr) {
        return static_cast<int32_t>(CMSV_ERR_GENERIC);
    }
    return ctx->funcs.strncmpFn(a, b, count);
}

TAVO_API int32_t cmsv_strcmp(CmsvVrfCtx *ctx, const char *a, const char *b) {
    if (ctx == nullptr || ctx->funcs.strcmpFn == nullptr) {
        return static_cast<int32_t>(CMSV_ERR_GENERIC);
    }
    return ctx->funcs.strcmpFn(a, b);
}

TAVO_API char *cmsv_strstr(CmsvVrfCtx *ctx, const char *a, const char *b) {
    if (ctx == nullptr || ctx->funcs.strstrFn == nullptr) {
        return nullptr;
    }
    return ctx->funcs.strstrFn(a, b);
}

TAVO_API char *cmsv_strchr(CmsvVrfCtx *ctx, const char *s, int c) {
    if (ctx == nullptr || ctx->funcs.strchrFn == nullptr) {
        return nullptr;
    }
    return ctx->funcs.strchrFn(s, c);
}

TAVO_API size_t cmsv_strlen(CmsvVrfCtx *ctx, const char *s) {
    if (ctx == nullptr || ctx->funcs.strlenFn == nullptr) {
        return 0;
    }
    return ctx->funcs.strlenFn(s);
}

// The fit checks compare 32-bit lengths, as the bounded copies of the platform do.
TAVO_API uint32_t cmsv_strcpy_s(CmsvVrfCtx *ctx, char *dest, size_t destMax, const char *src) {
    if (ctx == nullptr || ctx->funcs.strcpyS == nullptr || dest == nullptr || src == nullptr) {
        return CMSV_ERR_PARAM;
    }
    if (static_cast<uint32_t>(cmsv_strlen(ctx, src)) >= static_cast<uint32_t>(destMax)) {
        return CMSV_ERR_STR_RANGE;
    }
    return ctx->funcs.strcpyS(dest, destMax, src);
}

TAVO_API uint32_t cmsv_strcat_s(CmsvVrfCtx *ctx, char *dest, size_t destMax, const char *src) {
    if (ctx == nullptr || ctx->funcs.strcatS == nullptr || dest == nullptr || src == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const uint32_t total = static_cast<uint32_t>(cmsv_strlen(ctx, dest)) +
                           static_cast<uint32_t>(cmsv_strlen(ctx, src));
    if (total >= static_cast<uint32_t>(destMax)) {
        return CMSV_ERR_STR_RANGE;
    }
    return ctx->funcs.strcatS(dest, destMax, src);
}

}  // extern "C"
