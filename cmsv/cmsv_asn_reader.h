// The one reader of DER tag and length octets. Every decoder reads headers here
// and works on bounded views of the content, so no decoder can see a byte past
// the element that holds it.
#pragma once

#include <cstdint>

#include "tavo/cmsv.h"

constexpr uint32_t kAsnClassUniversal = 0;
constexpr uint32_t kAsnClassContext = 2;
constexpr uint32_t kAsnTagBoolean = 1;
constexpr uint32_t kAsnTagInteger = 2;
constexpr uint32_t kAsnTagBitString = 3;

// Tag and length octets of one element; positions are cursor positions.
struct CmsvAsnHeader {
    uint32_t cls;
    uint32_t constructed;
    uint32_t tag;
    uint32_t len;         // content octets
    uint32_t start;       // the tag octet
    uint32_t headerLen;   // tag and length octets
    uint32_t contentPos;  // first content octet
};

// Reads one header and leaves the cursor at the content. The tag is one octet
// (number 31, the high-tag-number form, is refused with CMSV_ERR_ASN_TAG). The
// length is short form or 1..4 big-endian octets; indefinite, longer, truncated
// or running past the cursor's end is CMSV_ERR_ASN_LENGTH. Non-minimal lengths
// are accepted. On failure the cursor is unchanged.
uint32_t cmsv_asn_read_header(CmsvBuf *buf, CmsvAsnHeader *hdr);

// A cursor over [buf->pos, end) of the same bytes; positions stay comparable.
inline CmsvBuf cmsv_asn_view(const CmsvBuf *buf, uint32_t end) {
    return CmsvBuf{buf->data, end, buf->pos};
}
