// Walk over a concatenation of DER certificates and CRLs.
#pragma once

#include "tavo/cmsv.h"

// Decodes each object at the cursor as a certificate, else as a CRL, appending it to
// `certs` or `crls` (each at most 16). Fewer than 33 undecodable trailing bytes end
// the walk successfully. On failure both lists keep what was decoded so far; the
// caller releases them with cmsv_list_free.
uint32_t cmsv_decode_bundle(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len, CmsvList *certs,
                            CmsvList *crls);
