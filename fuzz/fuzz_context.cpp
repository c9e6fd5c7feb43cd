#include <cstdio>
#include <cstdlib>

#include "fuzz_callbacks.h"

namespace tavo::fuzz {

CmsvVrfCtx *NewContext() {
    CmsvCreateParams params;
    FillCreateParams(&params);
    CmsvVrfCtx *ctx = nullptr;
    uint32_t rc = cmsv_verify_create_ctx(&ctx, &params);
    if (rc != 0 || ctx == nullptr) {
        std::fprintf(stderr, "cmsv_verify_create_ctx failed: 0x%08X\n", rc);
        std::abort();
    }
    return ctx;
}

}  // namespace tavo::fuzz
