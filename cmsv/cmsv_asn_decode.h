// Decoders of the template engine, one per kind of item.
#pragma once

#include <cstdint>

#include "tavo/cmsv.h"

// Capture of one value as a CmsvAsnOcts (raw, peek, implicit tagging; an INTEGER
// loses a leading zero octet unless raw).
extern const CmsvAsnFuncs g_cvbAsnFuncOct;
// SEQUENCE of fields in template order (or a structure wrapped in a BIT STRING).
extern const CmsvAsnFuncs g_cvbAsnFuncSeq;
// SET OF / SEQUENCE OF: u32 count at the field offset, elements 8 octets further.
extern const CmsvAsnFuncs g_cvbAsnFuncSetOf;
// Extensions or attributes, picked out by OID into the fields whose tag is the id.
extern const CmsvAsnFuncs g_cvbAsnFuncMap;
// INTEGER, ENUMERATED or BOOLEAN into an int32_t.
extern const CmsvAsnFuncs g_cvbAsnFuncInt;
// BIT STRING capture without the unused-bits octet.
extern const CmsvAsnFuncs g_cvbAsnFuncBits;
// keyUsage: a BIT STRING of one or two value octets into a uint32_t.
extern const CmsvAsnFuncs g_cvbAsnFuncBitsToInt;
// extKeyUsage: flags for the first OID of a SEQUENCE OF at most ten.
extern const CmsvAsnFuncs g_cvbAsnFuncExku;

// Record of CMSV_ASN_OID_BUNDLE_item.
struct CmsvOidBundle {
    uint32_t count;
    uint32_t reserved;
    CmsvAsnOcts oids[CMSV_EKU_MAX_OIDS];
};
