// The decode cursor: a view over caller-owned bytes with a position in 0..size.
#include <cstdint>

#include "tavo/cmsv.h"

extern "C" {

TAVO_API uint32_t cmsv_buf_init(CmsvBuf *buf, const uint8_t *data, uint32_t size) {
    if (buf == nullptr || data == nullptr || size == 0) {
        return CMSV_ERR_PARAM;
    }
    buf->data = data;
    buf->size = size;
    buf->pos = 0;
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_buf_get(CmsvBuf *buf, uint8_t *out) {
    if (buf == nullptr || out == nullptr || buf->data == nullptr) {
        return CMSV_ERR_PARAM;
    }
    if (buf->pos >= buf->size) {
        return CMSV_ERR_BUF_END;
    }
    *out = buf->data[buf->pos];
    ++buf->pos;
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_buf_seek(CmsvBuf *buf, int32_t offset, int32_t whence) {
    if (buf == nullptr) {
        return CMSV_ERR_PARAM;
    }
    if (whence != 1) {
        return CMSV_ERR_GENERIC;
    }
    const int64_t target = static_cast<int64_t>(buf->pos) + offset;
    if (target < 0 || target > static_cast<int64_t>(buf->size)) {
        return CMSV_ERR_GENERIC;
    }
    buf->pos = static_cast<uint32_t>(target);
    return CMSV_OK;
}

}  // extern "C"
