// Scope ownership of one object made through a context's callback table.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tavo/cmsv.h"

// Owns one object of type T (void for an untyped record or provider handle) and frees
// it with Free(ctx, pointer) when the scope ends, unless it was released first. A null
// pointer is never passed to Free.
template <typename T, auto Free>
class CmsvOwned {
  public:
    explicit CmsvOwned(CmsvVrfCtx *ctx) : ctx_(ctx) {}
    ~CmsvOwned() { reset(); }
    CmsvOwned(const CmsvOwned &) = delete;
    CmsvOwned &operator=(const CmsvOwned &) = delete;

    // Where a create or decode call stores the object it makes.
    T **out() { return &object_; }
    T *get() const { return object_; }
    T *operator->() const { return object_; }

    // Hands the object over; whoever takes it frees it.
    T *release() {
        T *object = object_;
        object_ = nullptr;
        return object;
    }

    // Frees the object held, if any, and owns `object` instead.
    void reset(T *object = nullptr) {
        T *previous = object_;
        object_ = object;
        if (previous != nullptr) {
            (void)Free(ctx_, previous);
        }
    }

    // Owns a new zero-filled block of `bytes` bytes.
    [[nodiscard]] uint32_t allocate_zeroed(size_t bytes) {
        void *block = nullptr;
        const uint32_t status = cmsv_malloc_with0(ctx_, &block, bytes);
        reset(static_cast<T *>(block));
        return status;
    }
    // Owns a new zero-filled T.
    [[nodiscard]] uint32_t allocate_zeroed() { return allocate_zeroed(sizeof(T)); }

  private:
    CmsvVrfCtx *ctx_;
    T *object_ = nullptr;
};

// Digest and verify handles of the crypto provider.
using CmsvDigestHandle = CmsvOwned<void, cmsv_md_ctx_destory>;
using CmsvVerifyHandle = CmsvOwned<void, cmsv_verify_ctx_destory>;

// Item frees for cmsv_list_free over lists that hold one reference per certificate
// or CRL.
inline void cmsv_release_cert_item(CmsvVrfCtx *ctx, void *item) {
    cmsv_x509_free_cert(ctx, static_cast<CmsvCert *>(item));
}
inline void cmsv_release_crl_item(CmsvVrfCtx *ctx, void *item) {
    cmsv_x509_free_crl(ctx, static_cast<CmsvCrl *>(item));
}

// The certificates and CRLs of one bundle, each list holding one reference per item,
// freed (certificates first) when the scope ends.
class CmsvBundleLists {
  public:
    explicit CmsvBundleLists(CmsvVrfCtx *ctx) : ctx_(ctx) {}
    ~CmsvBundleLists() {
        cmsv_list_free(ctx_, &certs, cmsv_release_cert_item);
        cmsv_list_free(ctx_, &crls, cmsv_release_crl_item);
    }
    CmsvBundleLists(const CmsvBundleLists &) = delete;
    CmsvBundleLists &operator=(const CmsvBundleLists &) = delete;

    CmsvList certs = {};
    CmsvList crls = {};

  private:
    CmsvVrfCtx *ctx_;
};
