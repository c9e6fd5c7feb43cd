// Crypto provider of the CMS engine (unit upgrade_cmsv_callback): the engine's
// callback table on top of the bounds-checked operations and mbedtls.
// CmsvSetCallbackFuncs itself is declared in tavo/tavo_upgrade.h.
#pragma once

#include <cstdint>

#include "tavo/cmsv.h"
#include "tavo/tavo_upgrade.h"

namespace tavo::upgrade {

// Statuses of the system slots, in the engine's error scheme.
inline constexpr uint32_t kCvbErrAlloc = 0x88000001u;
inline constexpr uint32_t kCvbErrCopy = 0x88000002u;
inline constexpr uint32_t kCvbErrFill = 0x88000003u;
inline constexpr uint32_t kCvbErrString = CMSV_ERR_STR_RANGE;
inline constexpr uint32_t kCvbErrNullOperand = CMSV_ERR_PARAM;

// The crypto slots answer 0 or this.
inline constexpr uint32_t kCvbFailure = 0xFFFFFFFFu;

// Largest digest md_final writes (SHA-512).
inline constexpr uint32_t kCvbDigestMax = 64;

}  // namespace tavo::upgrade
