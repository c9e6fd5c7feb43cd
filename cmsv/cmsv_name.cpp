// Distinguished names: comparison and the readable "CN=...,O=..." form.
//
//   Name ::= SEQUENCE OF RelativeDistinguishedName
//   RelativeDistinguishedName ::= SET OF AttributeTypeAndValue
//   AttributeTypeAndValue ::= SEQUENCE { type OBJECT IDENTIFIER, value ANY }
#include "cmsv/cmsv_owned.h"
#include "tavo/cmsv.h"

namespace {

// One component ("CN=value") is built in a buffer of this size, terminator included.
constexpr uint32_t kComponentMax = 128;
// The readable name holds at most this many characters plus its terminator.
constexpr uint32_t kNameMax = CMSV_CRL_ISSUER_MAX - 1;

struct Prefix {
    uint32_t id;
    const char *text;
};
constexpr Prefix kPrefixes[] = {
    {AOID_AT_COMMONNAME, "CN="},
    {AOID_AT_LOCALITYNAME, "L="},
    {AOID_AT_STATEORPROVINCENAME, "S="},
    {AOID_AT_ORGANIZATIONNAME, "O="},
    {AOID_AT_ORGANIZATIONALUNITNAME, "OU="},
    {AOID_AT_COUNTRYNAME, "C="},
    {AOID_PKCS9_AT_EMAILADDRESS, "E="},
};
// Attribute types the table knows but that have no short name of their own.
constexpr const char *kOtherPrefix = "xx=";

const char *PrefixFor(uint32_t id) {
    for (const Prefix &prefix : kPrefixes) {
        if (prefix.id == id) {
            return prefix.text;
        }
    }
    return kOtherPrefix;
}

// Writes "prefix" + value into `component` (kComponentMax bytes, zero-filled). A value
// that does not fit beside the prefix is dropped; a full buffer loses its last
// character to the terminator.
[[nodiscard]] uint32_t BuildComponent(CmsvVrfCtx *ctx, const CmsvAttributeTypeValue &attribute,
                                      char *component) {
    const uint32_t id = cmsv_find_aoid(ctx, &attribute.type);
    if (id == AOID_UNKNOWN) {
        return CMSV_ERR_NAME_ATTRIBUTE;
    }
    uint32_t status = cmsv_strcpy_s(ctx, component, kComponentMax, PrefixFor(id));
    if (status != CMSV_OK) {
        return status;
    }
    const uint32_t prefixLen = static_cast<uint32_t>(cmsv_strlen(ctx, component));
    const CmsvAsnOcts &value = attribute.value;
    if (value.len == 0 || value.len > kComponentMax - prefixLen) {
        return CMSV_OK;
    }
    status =
        cmsv_memcpy_s(ctx, component + prefixLen, kComponentMax - prefixLen, value.data, value.len);
    if (status != CMSV_OK) {
        return status;
    }
    component[kComponentMax - 1] = '\0';
    return CMSV_OK;
}

}  // namespace

extern "C" {

TAVO_API uint32_t cmsv_compare_x509_name(CmsvVrfCtx *ctx, const CmsvX509Name *a,
                                         const CmsvX509Name *b) {
    if (ctx == nullptr || a == nullptr || b == nullptr) {
        return CMSV_ERR_PARAM;
    }
    if (a->count != b->count || a->count > CMSV_NAME_MAX_RDNS) {
        return CMSV_ERR_GENERIC;
    }
    // Only the first attribute of each RDN takes part, byte for byte, string type
    // ignored: names are matched as the issuing software wrote them.
    for (uint32_t i = 0; i < a->count; i++) {
        const CmsvAttributeTypeValue &x = a->rdns[i].attributes[0];
        const CmsvAttributeTypeValue &y = b->rdns[i].attributes[0];
        if (cmsv_compare_asn_octs(ctx, &x.type, &y.type) != 0 ||
            cmsv_compare_asn_octs(ctx, &x.value, &y.value) != 0) {
            return CMSV_ERR_GENERIC;
        }
    }
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_convert_from_x509_name(CmsvVrfCtx *ctx, const CmsvX509Name *name, char **out,
                                              uint32_t *len) {
    if (ctx == nullptr || name == nullptr || out == nullptr || len == nullptr) {
        return CMSV_ERR_PARAM;
    }
    // Freed unless it is handed to the caller.
    CmsvOwned<char, cmsv_free> text(ctx);
    uint32_t status = text.allocate_zeroed(CMSV_CRL_ISSUER_MAX);
    if (status != CMSV_OK) {
        return status;
    }
    uint32_t used = 0;
    const uint32_t rdnCount = name->count < CMSV_NAME_MAX_RDNS ? name->count : CMSV_NAME_MAX_RDNS;
    for (uint32_t i = 0; i < rdnCount; i++) {
        const CmsvRdn &rdn = name->rdns[i];
        const uint32_t attributeCount =
            rdn.count < CMSV_RDN_MAX_ATTRIBUTES ? rdn.count : CMSV_RDN_MAX_ATTRIBUTES;
        for (uint32_t j = 0; j < attributeCount; j++) {
            char component[kComponentMax] = {};
            status = BuildComponent(ctx, rdn.attributes[j], component);
            if (status != CMSV_OK) {
                return status;
            }
            const uint32_t componentLen = static_cast<uint32_t>(cmsv_strlen(ctx, component));
            // The rest of an RDN that no longer fits is left out; a later, shorter
            // RDN may still fit.
            if (used + componentLen + 1 > kNameMax) {
                break;
            }
            // Appended by length: the buffer was zero-filled, so it stays terminated.
            char *at = text.get();
            if (used != 0) {
                at[used++] = ',';
            }
            status =
                cmsv_memcpy_s(ctx, at + used, CMSV_CRL_ISSUER_MAX - used, component, componentLen);
            if (status != CMSV_OK) {
                return status;
            }
            used += componentLen;
        }
    }
    *len = used;
    *out = text.release();
    return CMSV_OK;
}

}  // extern "C"
