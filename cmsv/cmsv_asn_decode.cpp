// The template walk. A decoder gets the cursor, its item, the field through which
// it is reached (tagging and flags; null at the top) and a destination inside the
// record (null when the value is only checked and stepped over). Each decoder
// either succeeds with the cursor past its element or fails with the cursor where
// it was, so an optional field can fall back exactly.
#include "cmsv/cmsv_asn_decode.h"

#include <cstdint>

#include "cmsv/cmsv_asn_reader.h"
#include "tavo/cmsv.h"

namespace {

constexpr uint32_t kSetOfElementsOffset = 8;

struct ExpectedTag {
    uint32_t cls;
    uint32_t constructed;
    uint32_t tag;
};

bool has_flag(const CmsvAsnField *field, uint32_t flag) {
    return field != nullptr && (field->flags & flag) != 0;
}

bool is_implicit(const CmsvAsnField *field) {
    return field != nullptr && field->mode == CMSV_ASN_TAG_IMPLICIT;
}

// Implicit tagging replaces class and number by context-specific [n]; the form
// (primitive/constructed) stays the item's.
ExpectedTag expected_tag(const CmsvAsnItem *item, const CmsvAsnField *field) {
    if (is_implicit(field)) {
        return {kAsnClassContext, item->constructed, field->tag};
    }
    return {item->cls, item->constructed, item->tag};
}

bool part_matches(uint32_t expected, uint32_t actual) {
    return expected == CMSV_ASN_ANY || expected == actual;
}

bool tag_matches(const ExpectedTag &want, const CmsvAsnHeader &hdr, bool checkForm = true) {
    return part_matches(want.cls, hdr.cls) && part_matches(want.tag, hdr.tag) &&
           (!checkForm || part_matches(want.constructed, hdr.constructed));
}

uint8_t *at(void *record, uint64_t offset) {
    return record == nullptr ? nullptr : static_cast<uint8_t *>(record) + offset;
}

uint32_t run(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item, const CmsvAsnField *field,
             void *dest) {
    if (item == nullptr || item->funcs == nullptr || item->funcs->decode == nullptr) {
        return CMSV_ERR_PARAM;
    }
    return item->funcs->decode(ctx, buf, item, field, dest);
}

// Reads a header and checks it against the item; the cursor is left at the content.
uint32_t open_element(CmsvBuf *buf, const CmsvAsnItem *item, const CmsvAsnField *field,
                      CmsvAsnHeader *hdr, uint32_t mismatch) {
    uint32_t status = cmsv_asn_read_header(buf, hdr);
    if (status != CMSV_OK) {
        return status;
    }
    if (!tag_matches(expected_tag(item, field), *hdr)) {
        buf->pos = hdr->start;
        return mismatch;
    }
    return CMSV_OK;
}

// One field of a SEQUENCE:
//   explicit: [n] { value }  -- the wrapper must hold exactly the value
//   otherwise: value (implicit tagging is the item decoder's business)
// An absent or undecodable optional/defaulted field leaves zeros and no trace.
uint32_t decode_field(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnField *field, void *record) {
    const uint32_t saved = buf->pos;
    CmsvAsnField f = *field;
    if (record == nullptr) {
        f.flags = static_cast<uint16_t>(f.flags | CMSV_ASN_FLAG_SKIP);
    }
    void *dest = has_flag(&f, CMSV_ASN_FLAG_SKIP) ? nullptr : at(record, f.offset);
    const bool optional = has_flag(&f, CMSV_ASN_FLAG_OPTIONAL | CMSV_ASN_FLAG_DEFAULT);

    uint32_t status = CMSV_OK;
    if (f.mode == CMSV_ASN_TAG_EXPLICIT) {
        CmsvAsnHeader wrap{};
        if (cmsv_asn_read_header(buf, &wrap) != CMSV_OK || wrap.cls != kAsnClassContext ||
            wrap.constructed != 1 || wrap.tag != f.tag) {
            buf->pos = saved;
            return optional ? CMSV_OK : CMSV_ERR_GENERIC;
        }
        CmsvBuf inner = cmsv_asn_view(buf, wrap.contentPos + wrap.len);
        CmsvAsnField innerField = f;
        innerField.mode = CMSV_ASN_TAG_NONE;
        status = run(ctx, &inner, f.item, &innerField, dest);
        if (status == CMSV_OK && inner.pos != inner.size) {
            status = CMSV_ERR_ASN_SEQUENCE;
        }
        if (status == CMSV_OK) {
            buf->pos = inner.size;
        }
    } else {
        status = run(ctx, buf, f.item, &f, dest);
    }
    if (status == CMSV_OK) {
        return CMSV_OK;
    }
    buf->pos = saved;
    if (!optional) {
        return status;
    }
    if (dest != nullptr && f.item->size != 0) {
        (void)cmsv_memset_s(ctx, dest, f.item->size, 0, f.item->size);
    }
    return CMSV_OK;
}

uint32_t decode_seq(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                    const CmsvAsnField *field, void *dest) {
    const uint32_t saved = buf->pos;
    CmsvAsnHeader hdr{};
    uint32_t status = open_element(buf, item, field, &hdr, CMSV_ERR_ASN_TAG);
    if (status != CMSV_OK) {
        return status;
    }
    CmsvBuf content = cmsv_asn_view(buf, hdr.contentPos + hdr.len);
    // BIT STRING { unused-bits octet, DER of the structure } (an RSA public key).
    if (item->cls == kAsnClassUniversal && item->tag == kAsnTagBitString) {
        uint8_t unused = 0;
        if (cmsv_buf_get(&content, &unused) != CMSV_OK) {
            buf->pos = saved;
            return CMSV_ERR_ASN_BITS;
        }
    }
    if (has_flag(field, CMSV_ASN_FLAG_SKIP)) {
        dest = nullptr;
    }
    for (uint32_t i = 0; i < item->fieldCount; ++i) {
        const CmsvAsnField &child = item->fields[i];
        if (content.pos == content.size) {
            if (!has_flag(&child, CMSV_ASN_FLAG_OPTIONAL | CMSV_ASN_FLAG_DEFAULT)) {
                buf->pos = saved;
                return CMSV_ERR_ASN_SEQUENCE;
            }
            continue;
        }
        status = decode_field(ctx, &content, &child, dest);
        if (status != CMSV_OK) {
            buf->pos = saved;
            return status;
        }
    }
    if (content.pos != content.size) {
        buf->pos = saved;
        return CMSV_ERR_ASN_SEQUENCE;
    }
    buf->pos = content.size;
    return CMSV_OK;
}

uint32_t decode_set_of(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                       const CmsvAsnField *field, void *dest) {
    if (item->fieldCount != 1 || item->fields == nullptr || item->fields[0].item == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const uint32_t saved = buf->pos;
    CmsvAsnHeader hdr{};
    uint32_t status = open_element(buf, item, field, &hdr, CMSV_ERR_ASN_TAG);
    if (status != CMSV_OK) {
        return status;
    }
    const CmsvAsnField &element = item->fields[0];
    uint8_t *base = has_flag(field, CMSV_ASN_FLAG_SKIP) ? nullptr : at(dest, element.offset);
    CmsvAsnField elementField = element;
    elementField.mode = CMSV_ASN_TAG_NONE;
    if (base == nullptr) {
        elementField.flags = static_cast<uint16_t>(elementField.flags | CMSV_ASN_FLAG_SKIP);
    }
    CmsvBuf content = cmsv_asn_view(buf, hdr.contentPos + hdr.len);
    uint32_t count = 0;
    while (content.pos < content.size) {
        if (count >= element.maxCount) {
            buf->pos = saved;
            return CMSV_ERR_ASN_SET;
        }
        uint8_t *slot =
            at(base, kSetOfElementsOffset + static_cast<uint64_t>(count) * element.item->size);
        if (run(ctx, &content, element.item, &elementField, slot) != CMSV_OK) {
            buf->pos = saved;
            return CMSV_ERR_ASN_SET;
        }
        ++count;
    }
    if (base != nullptr) {
        *reinterpret_cast<uint32_t *>(base) = count;
    }
    buf->pos = content.size;
    return CMSV_OK;
}

// Extensions:  SEQUENCE OF SEQUENCE { extnID OID, critical BOOLEAN DEFAULT FALSE,
//                                     extnValue OCTET STRING }
// Attributes:  SET OF SEQUENCE { attrType OID, attrValues SET OF ANY }
// Both read as entries of CMSV_X509_EXTENSION_ENTRY_item; the value's content (the
// OCTET STRING's, or the attribute SET's) is decoded by the field whose tag is the
// entry's OID identifier. Criticality is not acted on: an unknown critical
// extension is stepped over like any other.
uint32_t decode_map(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                    const CmsvAsnField *field, void *dest) {
    const uint32_t saved = buf->pos;
    CmsvAsnHeader hdr{};
    uint32_t status = open_element(buf, item, field, &hdr, CMSV_ERR_ASN_TAG);
    if (status != CMSV_OK) {
        return status;
    }
    if (has_flag(field, CMSV_ASN_FLAG_SKIP)) {
        dest = nullptr;
    }
    CmsvBuf content = cmsv_asn_view(buf, hdr.contentPos + hdr.len);
    while (content.pos < content.size) {
        CmsvExtension entry{};
        if (run(ctx, &content, &CMSV_X509_EXTENSION_ENTRY_item, nullptr, &entry) != CMSV_OK) {
            buf->pos = saved;
            return CMSV_ERR_ASN_SET;
        }
        const uint32_t id = cmsv_find_aoid(ctx, &entry.extnId);
        for (uint32_t i = 0; id != AOID_UNKNOWN && i < item->fieldCount; ++i) {
            const CmsvAsnField &target = item->fields[i];
            if (target.tag != id) {
                continue;
            }
            CmsvBuf value{};
            if (cmsv_buf_init(&value, entry.extnValue.data, entry.extnValue.len) != CMSV_OK) {
                buf->pos = saved;
                return CMSV_ERR_ASN_SET;
            }
            CmsvAsnField valueField = target;
            valueField.mode = CMSV_ASN_TAG_NONE;
            void *slot = at(dest, target.offset);
            if (slot == nullptr) {
                valueField.flags = static_cast<uint16_t>(valueField.flags | CMSV_ASN_FLAG_SKIP);
            }
            status = run(ctx, &value, target.item, &valueField, slot);
            if (status == CMSV_OK && value.pos != value.size) {
                status = CMSV_ERR_ASN_SET;
            }
            if (status != CMSV_OK) {
                buf->pos = saved;
                return status;
            }
        }
    }
    buf->pos = content.size;
    return CMSV_OK;
}

uint32_t decode_oct(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                    const CmsvAsnField *field, void *dest) {
    (void)ctx;
    const bool skip = has_flag(field, CMSV_ASN_FLAG_SKIP);
    const bool peek = has_flag(field, CMSV_ASN_FLAG_PEEK);
    if (dest == nullptr && peek) {
        return CMSV_ERR_ASN_CAPTURE;
    }
    if (dest == nullptr && !skip) {
        return CMSV_ERR_PARAM;
    }
    const uint32_t saved = buf->pos;
    CmsvAsnHeader hdr{};
    const uint32_t status = open_element(buf, item, field, &hdr, CMSV_ERR_ASN_TAG_MISMATCH);
    if (status != CMSV_OK) {
        return status;
    }
    CmsvAsnOcts value{hdr.len, hdr.cls, hdr.constructed, hdr.tag, buf->data + hdr.contentPos};
    if (has_flag(field, CMSV_ASN_FLAG_RAW)) {
        value.data = buf->data + hdr.start;
        value.len = hdr.headerLen + hdr.len;
    } else if (hdr.cls == kAsnClassUniversal && hdr.tag == kAsnTagInteger && value.len > 0 &&
               value.data[0] == 0x00) {
        ++value.data;
        --value.len;
    }
    if (peek) {
        buf->pos = saved;
        if (is_implicit(field)) {
            value.cls = item->cls;
            value.constructed = item->constructed;
            value.tag = item->tag;
        }
    } else {
        buf->pos = hdr.contentPos + hdr.len;
    }
    if (!skip && dest != nullptr) {
        *static_cast<CmsvAsnOcts *>(dest) = value;
    }
    return CMSV_OK;
}

uint32_t decode_int(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                    const CmsvAsnField *field, void *dest) {
    (void)ctx;
    const uint32_t saved = buf->pos;
    CmsvAsnHeader hdr{};
    uint32_t status = open_element(buf, item, field, &hdr, CMSV_ERR_ASN_TAG);
    if (status != CMSV_OK) {
        return status;
    }
    const uint32_t end = hdr.contentPos + hdr.len;
    if (has_flag(field, CMSV_ASN_FLAG_SKIP)) {
        buf->pos = end;
        return CMSV_OK;
    }
    const bool boolean = item->cls == kAsnClassUniversal && item->tag == kAsnTagBoolean;
    if (dest == nullptr) {
        status = CMSV_ERR_ASN_INTEGER;
    } else if (boolean && hdr.len != 1) {
        status = CMSV_ERR_ASN_BOOLEAN;
    } else if (hdr.len == 0 || hdr.len > 4) {
        status = CMSV_ERR_ASN_INTEGER;
    }
    if (status != CMSV_OK) {
        buf->pos = saved;
        return status;
    }
    uint8_t b = 0;
    (void)cmsv_buf_get(buf, &b);
    // BOOLEAN: only 0xFF is TRUE; any other octet, even non-zero, reads as FALSE.
    uint32_t value =
        boolean ? (b == 0xFF ? 1u : 0u) : static_cast<uint32_t>(static_cast<int8_t>(b));
    while (buf->pos < end) {
        (void)cmsv_buf_get(buf, &b);
        value = (value << 8) | b;
    }
    *static_cast<int32_t *>(dest) = static_cast<int32_t>(value);
    return CMSV_OK;
}

// BIT STRING: primitive, at least the unused-bits octet (its value is not checked).
uint32_t read_bits(CmsvBuf *buf, const CmsvAsnItem *item, const CmsvAsnField *field,
                   CmsvAsnOcts *out) {
    const uint32_t saved = buf->pos;
    CmsvAsnHeader hdr{};
    const uint32_t status = cmsv_asn_read_header(buf, &hdr);
    if (status != CMSV_OK) {
        return status;
    }
    if (!tag_matches(expected_tag(item, field), hdr, false)) {
        buf->pos = saved;
        return CMSV_ERR_ASN_TAG_MISMATCH;
    }
    if (hdr.constructed != 0 || hdr.len == 0) {
        buf->pos = saved;
        return CMSV_ERR_ASN_BITS;
    }
    *out =
        CmsvAsnOcts{hdr.len - 1, hdr.cls, hdr.constructed, hdr.tag, buf->data + hdr.contentPos + 1};
    buf->pos = hdr.contentPos + hdr.len;
    return CMSV_OK;
}

uint32_t decode_bits(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                     const CmsvAsnField *field, void *dest) {
    (void)ctx;
    const bool skip = has_flag(field, CMSV_ASN_FLAG_SKIP);
    if (dest == nullptr && !skip) {
        return CMSV_ERR_PARAM;
    }
    CmsvAsnOcts value{};
    const uint32_t status = read_bits(buf, item, field, &value);
    if (status == CMSV_OK && !skip) {
        *static_cast<CmsvAsnOcts *>(dest) = value;
    }
    return status;
}

// keyUsage: one value octet is the usual encoding (digitalSignature 0x80,
// keyCertSign 0x04, cRLSign 0x02); two octets give first*256+second, which moves
// those bits out of where the engine tests them.
uint32_t decode_bits_to_int(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                            const CmsvAsnField *field, void *dest) {
    (void)ctx;
    const bool skip = has_flag(field, CMSV_ASN_FLAG_SKIP);
    if (dest == nullptr && !skip) {
        return CMSV_ERR_PARAM;
    }
    const uint32_t saved = buf->pos;
    CmsvAsnOcts value{};
    const uint32_t status = read_bits(buf, item, field, &value);
    if (status != CMSV_OK) {
        return status;
    }
    if (value.len >= 3) {
        buf->pos = saved;
        return CMSV_ERR_ASN_BITS;
    }
    uint32_t bits = 0;
    if (value.len >= 1) {
        bits = value.data[0];
    }
    if (value.len == 2) {
        bits = bits * 256u + value.data[1];
    }
    if (!skip) {
        *static_cast<uint32_t *>(dest) = bits;
    }
    return CMSV_OK;
}

// extKeyUsage: SEQUENCE SIZE (1..10) OF KeyPurposeId; only the first counts.
uint32_t decode_exku(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                     const CmsvAsnField *field, void *dest) {
    const bool skip = has_flag(field, CMSV_ASN_FLAG_SKIP);
    if (dest == nullptr && !skip) {
        return CMSV_ERR_PARAM;
    }
    CmsvOidBundle bundle{};
    CmsvAsnField bundleField{item, 0, CMSV_ASN_TAG_NONE, 0, 0, 0};
    if (field != nullptr) {
        bundleField.tag = field->tag;
        bundleField.mode = field->mode;
    }
    const uint32_t status = run(ctx, buf, &CMSV_ASN_OID_BUNDLE_item,
                                is_implicit(field) ? &bundleField : nullptr, &bundle);
    if (status != CMSV_OK || skip || bundle.count == 0) {
        return status;
    }
    uint32_t flags = 0;
    switch (cmsv_find_aoid(ctx, &bundle.oids[0])) {
        case AOID_KP_CODESIGNING:
            flags = CMSV_EKU_CODE_SIGNING;
            break;
        case AOID_KP_TIMESTAMPING:
            flags = CMSV_EKU_TIME_STAMPING;
            break;
        default:
            break;
    }
    *static_cast<uint32_t *>(dest) |= flags;
    return CMSV_OK;
}

}  // namespace

const CmsvAsnFuncs g_cvbAsnFuncOct = {decode_oct};
const CmsvAsnFuncs g_cvbAsnFuncSeq = {decode_seq};
const CmsvAsnFuncs g_cvbAsnFuncSetOf = {decode_set_of};
const CmsvAsnFuncs g_cvbAsnFuncMap = {decode_map};
const CmsvAsnFuncs g_cvbAsnFuncInt = {decode_int};
const CmsvAsnFuncs g_cvbAsnFuncBits = {decode_bits};
const CmsvAsnFuncs g_cvbAsnFuncBitsToInt = {decode_bits_to_int};
const CmsvAsnFuncs g_cvbAsnFuncExku = {decode_exku};

extern "C" {

TAVO_API uint32_t cmsv_asn_decode(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                  const CmsvAsnItem *item, uint8_t flags, void **out,
                                  uint32_t *consumed) {
    if (ctx == nullptr || data == nullptr || len == 0 || item == nullptr || out == nullptr ||
        consumed == nullptr || item->size == 0) {
        return CMSV_ERR_PARAM;
    }
    CmsvBuf buf{};
    uint32_t status = cmsv_buf_init(&buf, data, len);
    if (status != CMSV_OK) {
        return status;
    }
    void *record = nullptr;
    status = cmsv_malloc_with0(ctx, &record, item->size);
    if (status != CMSV_OK) {
        return status;
    }
    // The caller's flags apply to the top element as a field's would (raw, peek).
    const CmsvAsnField top{item, 0, CMSV_ASN_TAG_NONE, flags, 0, 0};
    status = run(ctx, &buf, item, &top, record);
    if (status != CMSV_OK) {
        cmsv_free(ctx, record);
        return status;
    }
    *out = record;
    *consumed = buf.pos;
    return CMSV_OK;
}

TAVO_API void cmsv_asn_free(CmsvVrfCtx *ctx, void *record) {
    cmsv_free(ctx, record);
}

}  // extern "C"
