// The engine's callback table for the fuzz targets.
//
// Memory and string slots use the C library with the same bounds and null checks
// as the shipped provider. The digest and RSA slots are stand-ins: fuzzing explores
// the decoders and the verification logic, not the hash or the RSA arithmetic, and
// the engine's sources may depend on nothing but this table (only the provider links
// a crypto library). The stand-ins are deterministic, so every finding replays:
//   - digest: a 64-bit FNV-1a over the data, seeded with the hash id and stretched
//     to the algorithm's length (32, 48 or 64 bytes) with splitmix64;
//   - RSA verify: a signature is valid when it has the modulus's length and is
//     numerically below the modulus, which every real signature is and a mutated
//     leading byte easily is not. Like the provider, an invalid signature gives
//     result 0 and status 0xFFFFFFFF.
#pragma once

#include <cstddef>
#include <cstdint>

#include "tavo/cmsv.h"

namespace tavo::fuzz {

// Fills a creation record with the fuzz table.
void FillCreateParams(CmsvCreateParams *params);

// Creates a context with the fuzz table; aborts when that fails.
CmsvVrfCtx *NewContext();

// Length of the stand-in digest for a hash id (43, 44, 45), 0 for any other id.
uint32_t StandInDigestLength(uint32_t hashId);

// The stand-in digest of data under a hash id; writes StandInDigestLength bytes.
void StandInDigest(uint32_t hashId, const uint8_t *data, size_t len, uint8_t *out);

}  // namespace tavo::fuzz
