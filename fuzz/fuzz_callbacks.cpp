#include "fuzz_callbacks.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace tavo::fuzz {
namespace {

constexpr uint32_t kErrAlloc = 0x88000001u;
constexpr uint32_t kErrCopy = 0x88000002u;
constexpr uint32_t kErrFill = 0x88000003u;
constexpr uint32_t kFailure = 0xFFFFFFFFu;
constexpr uint64_t kFnvOffset = 0xcbf29ce484222325ull;
constexpr uint64_t kFnvPrime = 0x100000001b3ull;

uint32_t Malloc(void **out, size_t size) {
    if (out == nullptr) {
        return kErrAlloc;
    }
    *out = std::malloc(size);
    return *out == nullptr ? kErrAlloc : 0;
}

uint32_t MemsetS(void *dest, size_t destMax, int c, size_t count) {
    if (dest == nullptr || count > destMax) {
        return kErrFill;
    }
    std::memset(dest, c, count);
    return 0;
}

uint32_t MemcpyS(void *dest, size_t destMax, const void *src, size_t count) {
    if (dest == nullptr || src == nullptr || count > destMax) {
        return kErrCopy;
    }
    std::memcpy(dest, src, count);
    return 0;
}

void Free(void *p) {
    std::free(p);
}

int32_t Memcmp(const void *a, const void *b, size_t count) {
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(CMSV_ERR_PARAM);
    }
    return std::memcmp(a, b, count);
}

int32_t Strncmp(const char *a, const char *b, size_t count) {
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(CMSV_ERR_PARAM);
    }
    return std::strncmp(a, b, count);
}

char *Strstr(const char *haystack, const char *needle) {
    if (haystack == nullptr || needle == nullptr) {
        return nullptr;
    }
    return const_cast<char *>(std::strstr(haystack, needle));
}

char *Strchr(const char *s, int c) {
    return s == nullptr ? nullptr : const_cast<char *>(std::strchr(s, c));
}

size_t Strlen(const char *s) {
    return std::strlen(s);
}

int32_t Strcmp(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) {
        return static_cast<int32_t>(CMSV_ERR_PARAM);
    }
    return std::strcmp(a, b);
}

uint32_t StrcpyS(char *dest, size_t destMax, const char *src) {
    if (dest == nullptr || src == nullptr || destMax == 0) {
        return CMSV_ERR_STR_RANGE;
    }
    size_t n = std::strlen(src);
    if (n >= destMax) {
        dest[0] = '\0';
        return CMSV_ERR_STR_RANGE;
    }
    std::memcpy(dest, src, n + 1);
    return 0;
}

// The provider reports a successful concatenation as 0x880004FF and a failed one as
// 0; the stand-in keeps that inversion so the engine sees what it sees in the field.
uint32_t StrcatS(char *dest, size_t destMax, const char *src) {
    if (dest == nullptr || src == nullptr) {
        return CMSV_ERR_PARAM;
    }
    size_t have = strnlen(dest, destMax);
    size_t add = std::strlen(src);
    if (have == destMax || have + add >= destMax) {
        if (destMax > 0) {
            dest[0] = '\0';
        }
        return 0;
    }
    std::memcpy(dest + have, src, add + 1);
    return CMSV_ERR_STR_RANGE;
}

__attribute__((format(printf, 4, 0))) int32_t Vsnprintf(char *dest, size_t, size_t limit,
                                                        const char *format, va_list args) {
    if (dest == nullptr || format == nullptr || limit == 0) {
        return -1;
    }
    return std::vsnprintf(dest, limit, format, args);
}

struct Digest {
    uint32_t hashId;
    uint64_t state;
};

uint32_t MdCtxCreate(void **out) {
    if (out == nullptr) {
        return kFailure;
    }
    *out = new (std::nothrow) Digest{0, 0};
    return *out == nullptr ? kFailure : 0;
}

uint32_t MdInit(void *md, uint32_t hashId) {
    if (md == nullptr || StandInDigestLength(hashId) == 0) {
        return kFailure;
    }
    auto *d = static_cast<Digest *>(md);
    d->hashId = hashId;
    d->state = kFnvOffset ^ hashId;
    return 0;
}

uint32_t MdUpdate(void *md, const uint8_t *data, uint32_t len) {
    if (md == nullptr) {
        return kFailure;
    }
    auto *d = static_cast<Digest *>(md);
    if (StandInDigestLength(d->hashId) == 0) {
        return kFailure;
    }
    for (uint32_t i = 0; data != nullptr && i < len; ++i) {
        d->state = (d->state ^ data[i]) * kFnvPrime;
    }
    return 0;
}

void Stretch(uint64_t state, uint32_t len, uint8_t *out) {
    for (uint32_t i = 0; i < len; i += 8) {
        state += 0x9e3779b97f4a7c15ull;
        uint64_t z = state;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        z ^= z >> 31;
        for (uint32_t j = 0; j < 8; ++j) {
            out[i + j] = static_cast<uint8_t>(z >> (8 * j));
        }
    }
}

uint32_t MdFinal(void *md, uint8_t *digest, uint32_t *len) {
    if (md == nullptr || digest == nullptr || len == nullptr) {
        return kFailure;
    }
    auto *d = static_cast<Digest *>(md);
    uint32_t n = StandInDigestLength(d->hashId);
    if (n == 0) {
        return kFailure;
    }
    Stretch(d->state, n, digest);
    *len = n;
    return 0;
}

void MdCtxDestroy(void *md) {
    delete static_cast<Digest *>(md);
}

struct Verifier {
    Digest digest;
    bool keyed;
    CmsvKeyPart modulus;
};

uint32_t VerifyCtxCreate(void **out) {
    if (out == nullptr) {
        return kFailure;
    }
    *out = new (std::nothrow) Verifier{};
    return *out == nullptr ? kFailure : 0;
}

uint32_t VerifyInit(void *vrf, const CmsvKeyPart *e, const CmsvKeyPart *n, uint32_t hashId) {
    if (vrf == nullptr || e == nullptr || n == nullptr || n->len > CMSV_KEY_PART_MAX ||
        e->len > CMSV_KEY_PART_MAX) {
        return kFailure;
    }
    auto *v = static_cast<Verifier *>(vrf);
    if (MdInit(&v->digest, hashId) != 0) {
        return kFailure;
    }
    // The key's length is that of the modulus as a number, as an RSA library sees it.
    uint32_t skip = 0;
    while (skip < n->len && n->data[skip] == 0) {
        ++skip;
    }
    v->modulus.len = n->len - skip;
    std::memcpy(v->modulus.data, n->data + skip, v->modulus.len);
    v->keyed = true;
    return 0;
}

uint32_t VerifyUpdate(void *vrf, const uint8_t *data, uint32_t len) {
    if (vrf == nullptr) {
        return kFailure;
    }
    return MdUpdate(&static_cast<Verifier *>(vrf)->digest, data, len);
}

uint32_t VerifyFinal(void *vrf, const uint8_t *sig, uint32_t sigLen, uint32_t *result) {
    if (result != nullptr) {
        *result = 0;
    }
    auto *v = static_cast<Verifier *>(vrf);
    if (v == nullptr || sig == nullptr || result == nullptr || !v->keyed || v->modulus.len == 0 ||
        sigLen != v->modulus.len) {
        return kFailure;
    }
    uint8_t digest[CMSV_DIGEST_MAX];
    uint32_t digestLen = 0;
    if (MdFinal(&v->digest, digest, &digestLen) != 0) {
        return kFailure;
    }
    if (std::memcmp(sig, v->modulus.data, sigLen) >= 0) {
        return kFailure;
    }
    *result = 1;
    return 0;
}

void VerifyCtxDestroy(void *vrf) {
    delete static_cast<Verifier *>(vrf);
}

}  // namespace

uint32_t StandInDigestLength(uint32_t hashId) {
    switch (hashId) {
        case AOID_SHA256:
            return 32;
        case AOID_SHA384:
            return 48;
        case AOID_SHA512:
            return 64;
        default:
            return 0;
    }
}

void StandInDigest(uint32_t hashId, const uint8_t *data, size_t len, uint8_t *out) {
    Digest d{};
    MdInit(&d, hashId);
    uint64_t state = d.state;
    for (size_t i = 0; i < len; ++i) {
        state = (state ^ data[i]) * kFnvPrime;
    }
    Stretch(state, StandInDigestLength(hashId), out);
}

void FillCreateParams(CmsvCreateParams *params) {
    std::memset(params, 0, sizeof(*params));
    params->size = CMSV_CREATE_PARAMS_SIZE;
    CmsvCallbackFuncs &f = params->funcs;
    f.size = CMSV_CALLBACK_FUNCS_SIZE;
    f.sysSize = CMSV_SYS_FUNCS_SIZE;
    f.sysInnerSize = CMSV_SYS_INNER_FUNCS_SIZE;
    f.mallocFn = Malloc;
    f.memsetS = MemsetS;
    f.memcpyS = MemcpyS;
    f.freeFn = Free;
    f.memcmpFn = Memcmp;
    f.strncmpFn = Strncmp;
    f.strstrFn = Strstr;
    f.strchrFn = Strchr;
    f.strlenFn = Strlen;
    f.strcmpFn = Strcmp;
    f.strcpyS = StrcpyS;
    f.strcatS = StrcatS;
    f.vsnprintfFn = Vsnprintf;
    f.verifySize = CMSV_VERIFY_FUNCS_SIZE;
    f.verifyCtxCreate = VerifyCtxCreate;
    f.verifyInit = VerifyInit;
    f.verifyUpdate = VerifyUpdate;
    f.verifyFinal = VerifyFinal;
    f.verifyCtxDestroy = VerifyCtxDestroy;
    f.mdSize = CMSV_MD_FUNCS_SIZE;
    f.mdCtxCreate = MdCtxCreate;
    f.mdInit = MdInit;
    f.mdUpdate = MdUpdate;
    f.mdFinal = MdFinal;
    f.mdCtxDestroy = MdCtxDestroy;
}

}  // namespace tavo::fuzz
