// The engine's table of known object identifiers.
#pragma once

#include <cstdint>

#include "tavo/cmsv.h"

// One known OID: the engine's identifier (AOID_*), the DER content octets of the
// OID (class 0, primitive, tag 6) and the identifier's name.
struct CmsvOidEntry {
    uint32_t id;
    CmsvAsnOcts oid;
    const char *name;
};

extern const CmsvOidEntry g_cvbOIDTable[];
extern const uint32_t g_cvbOidCount;
