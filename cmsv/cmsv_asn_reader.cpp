#include "cmsv/cmsv_asn_reader.h"

#include <cstdint>

#include "tavo/cmsv.h"

namespace {

constexpr uint8_t kHighTagNumber = 0x1F;
constexpr uint8_t kLongForm = 0x80;
constexpr uint32_t kMaxLengthOctets = 4;

// Length octets: 0xxxxxxx, or 1nnnnnnn followed by n (1..4) big-endian octets.
uint32_t read_length(CmsvBuf *buf, uint32_t *len) {
    uint8_t first = 0;
    if (cmsv_buf_get(buf, &first) != CMSV_OK) {
        return CMSV_ERR_ASN_LENGTH;
    }
    if ((first & kLongForm) == 0) {
        *len = first;
        return CMSV_OK;
    }
    const uint32_t count = first & 0x7Fu;
    if (count == 0 || count > kMaxLengthOctets) {
        return CMSV_ERR_ASN_LENGTH;
    }
    uint32_t value = 0;
    for (uint32_t i = 0; i < count; ++i) {
        uint8_t b = 0;
        if (cmsv_buf_get(buf, &b) != CMSV_OK) {
            return CMSV_ERR_ASN_LENGTH;
        }
        value = (value << 8) | b;
    }
    *len = value;
    return CMSV_OK;
}

}  // namespace

uint32_t cmsv_asn_read_header(CmsvBuf *buf, CmsvAsnHeader *hdr) {
    if (buf == nullptr || hdr == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const uint32_t start = buf->pos;
    uint8_t id = 0;
    uint32_t status = cmsv_buf_get(buf, &id);
    if (status != CMSV_OK) {
        return status;
    }
    if ((id & kHighTagNumber) == kHighTagNumber) {
        buf->pos = start;
        return CMSV_ERR_ASN_TAG;
    }
    uint32_t len = 0;
    status = read_length(buf, &len);
    if (status == CMSV_OK && len > buf->size - buf->pos) {
        status = CMSV_ERR_ASN_LENGTH;
    }
    if (status != CMSV_OK) {
        buf->pos = start;
        return status;
    }
    hdr->cls = static_cast<uint32_t>(id >> 6);
    hdr->constructed = static_cast<uint32_t>((id >> 5) & 1u);
    hdr->tag = static_cast<uint32_t>(id & 0x1Fu);
    hdr->len = len;
    hdr->start = start;
    hdr->headerLen = buf->pos - start;
    hdr->contentPos = buf->pos;
    return CMSV_OK;
}
