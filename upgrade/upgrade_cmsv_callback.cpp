// Crypto provider of the CMS engine (unit upgrade_cmsv_callback). The engine calls
// no runtime or crypto library itself; this table gives it memory and string
// functions over the bounds-checked operations, SHA-256/384/512 and RSA PKCS#1 v1.5
// verification over mbedtls. It is the only unit of the library that includes
// mbedtls headers.
#include "upgrade/upgrade_cmsv_callback.h"

#include <mbedtls/bignum.h>
#include <mbedtls/platform.h>
#include <mbedtls/rsa.h>
#include <mbedtls/sha256.h>
#include <mbedtls/sha512.h>

#include <array>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

#include "api/tavo_log.h"
#include "base/bounded.h"

namespace {

using tavo::upgrade::kCvbErrAlloc;
using tavo::upgrade::kCvbErrCopy;
using tavo::upgrade::kCvbErrFill;
using tavo::upgrade::kCvbErrNullOperand;
using tavo::upgrade::kCvbErrString;
using tavo::upgrade::kCvbFailure;

constexpr const char *kUnit = "upgrade_cmsv_callback";

static_assert(sizeof(CmsvCallbackFuncs) == CMSV_CALLBACK_FUNCS_SIZE);

// Digest context handed to the engine as an opaque md handle.
struct CvbMdCtx {
    uint32_t size;
    void *hashState;  // mbedtls_sha256_context or mbedtls_sha512_context, by hashId
    uint32_t hashId;
};

// Verify context handed to the engine as an opaque vrf handle.
struct CvbVerifyCtx {
    uint32_t size;
    mbedtls_rsa_context *rsaKey;
    CvbMdCtx *mdCtx;
};

// mbedtls allocates bignums and hash states with the system allocator. Builds of
// mbedtls without run-time allocator hooks already call calloc and free.
void CvbInstallAllocator() {
#if defined(MBEDTLS_PLATFORM_MEMORY) && !defined(MBEDTLS_PLATFORM_FREE_MACRO)
    (void)mbedtls_platform_set_calloc_free(std::calloc, std::free);
#endif
}

// ---- System slots -------------------------------------------------------------

uint32_t CvbMallocImpl(void **out, size_t size) {
    if (out == nullptr) {
        return kCvbErrAlloc;
    }
    *out = std::malloc(size);
    return *out == nullptr ? kCvbErrAlloc : 0;
}

uint32_t CvbMemsetSImpl(void *dest, size_t destMax, int c, size_t count) {
    return memset_s(dest, destMax, c, count) != 0 ? kCvbErrFill : 0;
}

uint32_t CvbMemcpySImpl(void *dest, size_t destMax, const void *src, size_t count) {
    return memcpy_s(dest, destMax, src, count) != 0 ? kCvbErrCopy : 0;
}

void CvbFreeImpl(void *p) {
    if (p != nullptr) {
        std::free(p);
    }
}

int32_t CvbMemcmpImpl(const void *a, const void *b, size_t count) {
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(kCvbErrNullOperand);
    }
    return std::memcmp(a, b, count);
}

int32_t CvbStrncmpImpl(const char *a, const char *b, size_t count) {
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(kCvbErrNullOperand);
    }
    return std::strncmp(a, b, count);
}

char *CvbStrstrImpl(const char *haystack, const char *needle) {
    if (haystack == nullptr || needle == nullptr) {
        return nullptr;
    }
    return const_cast<char *>(std::strstr(haystack, needle));
}

char *CvbStrchrImpl(const char *s, int c) {
    if (s == nullptr) {
        return nullptr;
    }
    return const_cast<char *>(std::strchr(s, c));
}

size_t CvbStrlenImpl(const char *s) {
    return std::strlen(s);
}

int32_t CvbStrcmpImpl(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(kCvbErrNullOperand);
    }
    return std::strcmp(a, b);
}

uint32_t CvbStrcpySImpl(char *dest, size_t destMax, const char *src) {
    return strcpy_s(dest, destMax, src) != 0 ? kCvbErrString : 0;
}

// The status is turned round on purpose: the engine's callers of this slot expect
// 0x880004FF after a successful concatenation and 0 after a failed one.
uint32_t CvbStrcatSImpl(char *dest, size_t destMax, const char *src) {
    if (dest == nullptr || src == nullptr) {
        return kCvbErrNullOperand;
    }
    return strncat_s(dest, destMax, src, std::strlen(src)) == 0 ? kCvbErrString : 0;
}

__attribute__((format(printf, 4, 0))) int32_t CvbVsnprintfImpl(char *dest, size_t /*ignored*/,
                                                               size_t limit, const char *format,
                                                               va_list args) {
    return vsnprintf_s(dest, limit, limit - 1, format, args);
}

// ---- Digests ------------------------------------------------------------------

void CvbLogUndefinedHash(const char *function, uint32_t hashId) {
    TAVO_LOG_FOR(tavo::log::kErr, kUnit, function,
                 "Undefined hash algorithm : hash_algo = %d\r\n\r\n", static_cast<int>(hashId));
}

// Releases the hash state of `md`, by the algorithm it was started for.
void CvbMdFreeState(CvbMdCtx *md, const char *function) {
    switch (md->hashId) {
        case AOID_SHA384:
        case AOID_SHA512:
            if (md->hashState != nullptr) {
                mbedtls_sha512_free(static_cast<mbedtls_sha512_context *>(md->hashState));
            }
            break;
        case AOID_SHA256:
            if (md->hashState != nullptr) {
                mbedtls_sha256_free(static_cast<mbedtls_sha256_context *>(md->hashState));
            }
            break;
        default:
            CvbLogUndefinedHash(function, md->hashId);
            break;
    }
    CvbFreeImpl(md->hashState);
    md->hashState = nullptr;
}

uint32_t CvbMdCtxCreateImpl(void **out) {
    if (out == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : md_ctx is null.\r\n\r\n");
        return kCvbFailure;
    }
    CvbInstallAllocator();
    void *block = nullptr;
    uint32_t ret = CvbMallocImpl(&block, sizeof(CvbMdCtx));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMallocImpl failed.\r\n\r\n");
        return ret;
    }
    ret = CvbMemsetSImpl(block, sizeof(CvbMdCtx), 0, sizeof(CvbMdCtx));
    if (ret != 0) {
        CvbFreeImpl(block);
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMemsetSImpl failed.\r\n\r\n");
        return ret;
    }
    auto *md = static_cast<CvbMdCtx *>(block);
    md->size = sizeof(CvbMdCtx);
    *out = md;
    return 0;
}

template <typename Context>
uint32_t CvbMdAllocState(CvbMdCtx *md, Context **state) {
    void *block = nullptr;
    uint32_t ret = CvbMallocImpl(&block, sizeof(Context));
    if (ret != 0) {
        return ret;
    }
    *state = static_cast<Context *>(block);
    md->hashState = block;
    return 0;
}

uint32_t CvbMdInitImpl(void *handle, uint32_t hashId) {
    auto *md = static_cast<CvbMdCtx *>(handle);
    if (md == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : pMd is null.\r\n\r\n");
        return kCvbFailure;
    }
    if (md->hashState != nullptr) {
        // Started again: drop the earlier state first.
        CvbMdFreeState(md, __func__);
    }
    md->hashId = hashId;
    switch (hashId) {
        case AOID_SHA256: {
            mbedtls_sha256_context *state = nullptr;
            uint32_t ret = CvbMdAllocState(md, &state);
            if (ret != 0) {
                return ret;
            }
            mbedtls_sha256_init(state);
            return mbedtls_sha256_starts_ret(state, 0) == 0 ? 0 : kCvbFailure;
        }
        case AOID_SHA384:
        case AOID_SHA512: {
            mbedtls_sha512_context *state = nullptr;
            uint32_t ret = CvbMdAllocState(md, &state);
            if (ret != 0) {
                return ret;
            }
            mbedtls_sha512_init(state);
            return mbedtls_sha512_starts_ret(state, hashId == AOID_SHA384 ? 1 : 0) == 0
                       ? 0
                       : kCvbFailure;
        }
        default:
            CvbLogUndefinedHash(__func__, hashId);
            return kCvbFailure;
    }
}

uint32_t CvbMdUpdateImpl(void *handle, const uint8_t *data, uint32_t len) {
    auto *md = static_cast<CvbMdCtx *>(handle);
    if (md == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : pMd is null.\r\n\r\n");
        return kCvbFailure;
    }
    if (data == nullptr || len == 0) {
        return 0;
    }
    switch (md->hashId) {
        case AOID_SHA384:
        case AOID_SHA512:
            if (md->hashState == nullptr) {
                break;
            }
            return mbedtls_sha512_update_ret(static_cast<mbedtls_sha512_context *>(md->hashState),
                                             data, len) == 0
                       ? 0
                       : kCvbFailure;
        case AOID_SHA256:
            if (md->hashState == nullptr) {
                break;
            }
            return mbedtls_sha256_update_ret(static_cast<mbedtls_sha256_context *>(md->hashState),
                                             data, len) == 0
                       ? 0
                       : kCvbFailure;
        default:
            CvbLogUndefinedHash(__func__, md->hashId);
            return kCvbFailure;
    }
    // A known algorithm whose start failed: nothing to feed.
    TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : pMd is null.\r\n\r\n");
    return kCvbFailure;
}

uint32_t CvbMdFinalImpl(void *handle, uint8_t *digest, uint32_t *len) {
    auto *md = static_cast<CvbMdCtx *>(handle);
    if (md == nullptr || digest == nullptr || len == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : pMd, pbDigest or len is null.\r\n\r\n");
        return kCvbFailure;
    }
    int ret = 0;
    uint32_t digestLen = 0;
    switch (md->hashId) {
        case AOID_SHA384:
        case AOID_SHA512:
            if (md->hashState == nullptr) {
                break;
            }
            ret = mbedtls_sha512_finish_ret(static_cast<mbedtls_sha512_context *>(md->hashState),
                                            digest);
            digestLen = md->hashId == AOID_SHA384 ? 48 : 64;
            break;
        case AOID_SHA256:
            if (md->hashState == nullptr) {
                break;
            }
            ret = mbedtls_sha256_finish_ret(static_cast<mbedtls_sha256_context *>(md->hashState),
                                            digest);
            digestLen = 32;
            break;
        default:
            CvbLogUndefinedHash(__func__, md->hashId);
            return kCvbFailure;
    }
    if (digestLen == 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : pMd, pbDigest or len is null.\r\n\r\n");
        return kCvbFailure;
    }
    if (ret != 0) {
        return kCvbFailure;
    }
    *len = digestLen;
    return 0;
}

void CvbMdCtxDestoryImpl(void *handle) {
    auto *md = static_cast<CvbMdCtx *>(handle);
    if (md == nullptr) {
        return;
    }
    CvbMdFreeState(md, __func__);
    CvbFreeImpl(md);
}

// ---- RSA verification ------------------------------------------------------------

mbedtls_md_type_t CvbGetMdType(uint32_t hashId) {
    switch (hashId) {
        case AOID_SHA256:
            return MBEDTLS_MD_SHA256;
        case AOID_SHA384:
            return MBEDTLS_MD_SHA384;
        case AOID_SHA512:
            return MBEDTLS_MD_SHA512;
        default:
            return MBEDTLS_MD_NONE;
    }
}

void CvbFreeRsaKey(mbedtls_rsa_context *key) {
    if (key != nullptr) {
        mbedtls_rsa_free(key);
        CvbFreeImpl(key);
    }
}

uint32_t CvbVerifyCtxCreateImpl(void **out) {
    if (out == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : vrf_ctx is null.\r\n\r\n");
        return kCvbFailure;
    }
    CvbInstallAllocator();
    void *block = nullptr;
    uint32_t ret = CvbMallocImpl(&block, sizeof(CvbVerifyCtx));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMallocImpl failed, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        return kCvbFailure;
    }
    ret = CvbMemsetSImpl(block, sizeof(CvbVerifyCtx), 0, sizeof(CvbVerifyCtx));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMemsetSImpl failed, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        CvbFreeImpl(block);
        return kCvbFailure;
    }
    void *md = nullptr;
    ret = CvbMdCtxCreateImpl(&md);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMdCtxCreateImpl failed, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        CvbFreeImpl(block);
        return kCvbFailure;
    }
    auto *vrf = static_cast<CvbVerifyCtx *>(block);
    vrf->size = sizeof(CvbVerifyCtx);
    vrf->mdCtx = static_cast<CvbMdCtx *>(md);
    *out = vrf;
    return 0;
}

// Reads one key part into `mpi`; a length beyond the record is refused as bad input.
int CvbReadKeyPart(mbedtls_mpi *mpi, const CmsvKeyPart *part) {
    if (part->len > CMSV_KEY_PART_MAX) {
        return MBEDTLS_ERR_MPI_BAD_INPUT_DATA;
    }
    return mbedtls_mpi_read_binary(mpi, part->data, part->len);
}

uint32_t CvbVerifyInitImpl(void *handle, const CmsvKeyPart *e, const CmsvKeyPart *n,
                           uint32_t hashId) {
    auto *vrf = static_cast<CvbVerifyCtx *>(handle);
    if (vrf == nullptr || e == nullptr || n == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : pVrf, e or n is null.\r\n\r\n");
        return kCvbFailure;
    }
    uint32_t ret = CvbMdInitImpl(vrf->mdCtx, hashId);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMdInitImpl failed, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        return kCvbFailure;
    }
    void *block = nullptr;
    ret = CvbMallocImpl(&block, sizeof(mbedtls_rsa_context));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CvbMallocImpl failed, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        return kCvbFailure;
    }
    auto *key = static_cast<mbedtls_rsa_context *>(block);
    mbedtls_rsa_init(key, MBEDTLS_RSA_PKCS_V15, 0);
    int mpiRet = CvbReadKeyPart(&key->E, e);
    if (mpiRet == 0) {
        mpiRet = CvbReadKeyPart(&key->N, n);
    }
    if (mpiRet != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "mbedtls_mpi_read_binary failed, ret = %d\r\n\r\n",
                    mpiRet);
        CvbFreeRsaKey(key);
        return kCvbFailure;
    }
    key->len = mbedtls_mpi_size(&key->N);
    CvbFreeRsaKey(vrf->rsaKey);  // a context initialised again drops its earlier key
    vrf->rsaKey = key;
    return 0;
}

uint32_t CvbVerifyUpdateImpl(void *handle, const uint8_t *data, uint32_t len) {
    auto *vrf = static_cast<CvbVerifyCtx *>(handle);
    if (vrf == nullptr || vrf->mdCtx == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : pVrf or pVrf->md_ctx is null.\r\n\r\n");
        return kCvbFailure;
    }
    return CvbMdUpdateImpl(vrf->mdCtx, data, len);
}

// Result 1 and status 0 only for a signature that verifies; every failure,
// including a signature that does not match, gives result 0 and status -1.
uint32_t CvbVerifyFinalImpl(void *handle, const uint8_t *sig, uint32_t sigLen, uint32_t *result) {
    if (result == nullptr) {
        return kCvbFailure;
    }
    *result = 0;
    auto *vrf = static_cast<CvbVerifyCtx *>(handle);
    if (vrf == nullptr || vrf->mdCtx == nullptr || vrf->rsaKey == nullptr || sig == nullptr ||
        sigLen != vrf->rsaKey->len) {
        return kCvbFailure;
    }
    std::array<uint8_t, tavo::upgrade::kCvbDigestMax> digest{};
    uint32_t digestLen = 0;
    if (CvbMdFinalImpl(vrf->mdCtx, digest.data(), &digestLen) != 0) {
        return kCvbFailure;
    }
    int ret =
        mbedtls_rsa_pkcs1_verify(vrf->rsaKey, nullptr, nullptr, MBEDTLS_RSA_PUBLIC,
                                 CvbGetMdType(vrf->mdCtx->hashId), digestLen, digest.data(), sig);
    if (ret != 0) {
        return kCvbFailure;
    }
    *result = 1;
    return 0;
}

void CvbVerifyCtxDestoryImpl(void *handle) {
    auto *vrf = static_cast<CvbVerifyCtx *>(handle);
    if (vrf == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : pVrf is null.\r\n\r\n");
        return;
    }
    CvbMdCtxDestoryImpl(vrf->mdCtx);
    CvbFreeRsaKey(vrf->rsaKey);
    CvbFreeImpl(vrf);
}

}  // namespace

TAVO_API int32_t CmsvSetCallbackFuncs(CmsvCallbackFuncs *funcs) {
    if (funcs == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : pFuncs is null.\r\n\r\n");
        return -1;
    }
    int ret = memset_s(funcs, sizeof(*funcs), 0, sizeof(*funcs));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "call memset_s failed.%d\n\r\n", ret);
    }
    funcs->size = CMSV_CALLBACK_FUNCS_SIZE;
    funcs->sysSize = CMSV_SYS_FUNCS_SIZE;
    funcs->sysInnerSize = CMSV_SYS_INNER_FUNCS_SIZE;
    funcs->mallocFn = CvbMallocImpl;
    funcs->memsetS = CvbMemsetSImpl;
    funcs->memcpyS = CvbMemcpySImpl;
    funcs->freeFn = CvbFreeImpl;
    funcs->memcmpFn = CvbMemcmpImpl;
    funcs->strncmpFn = CvbStrncmpImpl;
    funcs->strstrFn = CvbStrstrImpl;
    funcs->strchrFn = CvbStrchrImpl;
    funcs->strlenFn = CvbStrlenImpl;
    funcs->strcmpFn = CvbStrcmpImpl;
    funcs->strcpyS = CvbStrcpySImpl;
    funcs->strcatS = CvbStrcatSImpl;
    funcs->vsnprintfFn = CvbVsnprintfImpl;
    funcs->verifySize = CMSV_VERIFY_FUNCS_SIZE;
    funcs->verifyCtxCreate = CvbVerifyCtxCreateImpl;
    funcs->verifyInit = CvbVerifyInitImpl;
    funcs->verifyUpdate = CvbVerifyUpdateImpl;
    funcs->verifyFinal = CvbVerifyFinalImpl;
    funcs->verifyCtxDestroy = CvbVerifyCtxDestoryImpl;
    funcs->mdSize = CMSV_MD_FUNCS_SIZE;
    funcs->mdCtxCreate = CvbMdCtxCreateImpl;
    funcs->mdInit = CvbMdInitImpl;
    funcs->mdUpdate = CvbMdUpdateImpl;
    funcs->mdFinal = CvbMdFinalImpl;
    funcs->mdCtxDestroy = CvbMdCtxDestoryImpl;
    return 0;
}
