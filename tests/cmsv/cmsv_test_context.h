// A verify context bound to the library's own crypto provider, freed on scope exit.
#pragma once

#include <cstdint>
#include <cstring>

#include "tavo/cmsv.h"
#include "tavo/tavo_upgrade.h"

class CmsvTestContext {
  public:
    CmsvTestContext() : CmsvTestContext(DefaultParams()) {}
    // Creates from a caller-prepared record (e.g. one with a slot cleared).
    explicit CmsvTestContext(const CmsvCreateParams &params)
        : status_(cmsv_verify_create_ctx(&ctx_, &params)) {}
    ~CmsvTestContext() {
        if (ctx_ != nullptr) {
            cmsv_vrf_ctx_free(ctx_);
        }
    }
    CmsvTestContext(const CmsvTestContext &) = delete;
    CmsvTestContext &operator=(const CmsvTestContext &) = delete;

    // The provider's table in a correctly sized creation record.
    static CmsvCreateParams DefaultParams() {
        CmsvCreateParams params;
        std::memset(&params, 0, sizeof(params));
        params.size = CMSV_CREATE_PARAMS_SIZE;
        CmsvSetCallbackFuncs(&params.funcs);
        return params;
    }

    CmsvVrfCtx *get() const { return ctx_; }
    operator CmsvVrfCtx *() const { return ctx_; }
    bool ok() const { return status_ == CMSV_OK && ctx_ != nullptr; }
    uint32_t status() const { return status_; }

  private:
    CmsvVrfCtx *ctx_ = nullptr;
    uint32_t status_;
};
