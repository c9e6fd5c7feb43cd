// Certificates and CRLs: decoding, reference counts, the self-signed test, public
// keys and RSA signature checks through the callback table.
#include "cmsv/cmsv_x509.h"
#include "cmsv/cmsv_owned.h"
#include "tavo/cmsv.h"

namespace {

// Copies one big-endian key part into a fixed record; a part over 512 bytes is
// refused by memcpy_s.
[[nodiscard]] uint32_t CopyKeyPart(CmsvVrfCtx *ctx, const CmsvAsnOcts &from, CmsvKeyPart *to) {
    to->len = 0;
    if (from.len == 0) {
        return CMSV_OK;
    }
    const uint32_t status = cmsv_memcpy_s(ctx, to->data, sizeof(to->data), from.data, from.len);
    if (status != CMSV_OK) {
        return status;
    }
    to->len = from.len;
    return CMSV_OK;
}

}  // namespace

extern "C" {

TAVO_API uint32_t cmsv_x509_decode_cert(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                        CmsvCert **out, uint32_t *consumed) {
    if (ctx == nullptr || data == nullptr || len == 0 || out == nullptr || consumed == nullptr) {
        return CMSV_ERR_PARAM;
    }
    void *record = nullptr;
    const uint32_t status =
        cmsv_asn_decode(ctx, data, len, &CMSV_X509_CERT_item, 0, &record, consumed);
    if (status != CMSV_OK) {
        return status;
    }
    CmsvCert *cert = static_cast<CmsvCert *>(record);
    cert->issuerCache = nullptr;
    cert->refCount = 1;
    *out = cert;
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_x509_decode_crl(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                       CmsvCrl **out, uint32_t *consumed) {
    if (ctx == nullptr || data == nullptr || len == 0 || out == nullptr || consumed == nullptr) {
        return CMSV_ERR_PARAM;
    }
    void *record = nullptr;
    const uint32_t status =
        cmsv_asn_decode(ctx, data, len, &CMSV_X509_CRL_item, 0, &record, consumed);
    if (status != CMSV_OK) {
        return status;
    }
    CmsvCrl *crl = static_cast<CmsvCrl *>(record);
    crl->refCount = 1;
    *out = crl;
    return CMSV_OK;
}

TAVO_API void cmsv_x509_free_cert(CmsvVrfCtx *ctx, CmsvCert *cert) {
    if (cert == nullptr) {
        return;
    }
    cert->refCount--;
    if (cert->refCount < 1) {
        cmsv_asn_free(ctx, cert);
    }
}

TAVO_API void cmsv_x509_free_crl(CmsvVrfCtx *ctx, CmsvCrl *crl) {
    if (crl == nullptr) {
        return;
    }
    crl->refCount--;
    if (crl->refCount < 1) {
        cmsv_asn_free(ctx, crl);
    }
}

TAVO_API uint32_t cmsv_x509_extract_public_key(CmsvVrfCtx *ctx, const CmsvCert *cert,
                                               CmsvKeyPart *e, CmsvKeyPart *n) {
    if (ctx == nullptr || cert == nullptr || e == nullptr || n == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const CmsvRsaPublicKey &key = cert->tbs.subjectPublicKeyInfo.rsaKey;
    const uint32_t status = CopyKeyPart(ctx, key.publicExponent, e);
    if (status != CMSV_OK) {
        return status;
    }
    return CopyKeyPart(ctx, key.modulus, n);
}

TAVO_API uint32_t cmsv_x509_pkey_verify(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t dataLen,
                                        const uint8_t *sig, uint32_t sigLen,
                                        const CmsvRsaPublicKey *key,
                                        const CmsvAlgorithmIdentifier *sigAlgorithm,
                                        uint32_t *result) {
    if (ctx == nullptr || data == nullptr || dataLen == 0 || sig == nullptr || sigLen == 0 ||
        key == nullptr || sigAlgorithm == nullptr || result == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *result = 0;
    const uint32_t hashId = cmsv_get_hash_aoid_from_sign(ctx, sigAlgorithm);
    if (hashId == AOID_UNKNOWN) {
        return CMSV_ERR_SIGNATURE_ALGORITHM;
    }
    if (key->modulus.len > CMSV_KEY_PART_MAX || key->publicExponent.len > CMSV_KEY_PART_MAX) {
        return CMSV_ERR_PARAM;
    }
    CmsvKeyPart e;
    CmsvKeyPart n;
    uint32_t status = CopyKeyPart(ctx, key->publicExponent, &e);
    if (status == CMSV_OK) {
        status = CopyKeyPart(ctx, key->modulus, &n);
    }
    if (status != CMSV_OK) {
        return status;
    }

    CmsvVerifyHandle vrf(ctx);
    status = cmsv_verify_ctx_create(ctx, vrf.out());
    if (status != CMSV_OK) {
        return status;
    }
    status = cmsv_verify_init(ctx, vrf.get(), &e, &n, hashId);
    if (status != CMSV_OK) {
        return status;
    }
    status = cmsv_verify_update(ctx, vrf.get(), data, dataLen);
    if (status != CMSV_OK) {
        return status;
    }
    uint32_t valid = 0;
    status = cmsv_verify_final(ctx, vrf.get(), sig, sigLen, &valid);
    if (status != CMSV_OK) {
        return status;
    }
    *result = valid;
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_x509_is_self_signed(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t *flag) {
    if (ctx == nullptr || cert == nullptr || flag == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *flag = 0;
    if (cert->issuerCache == cert) {
        *flag = 1;
        return CMSV_OK;
    }
    if (cmsv_compare_x509_name(ctx, &cert->tbs.issuer, &cert->tbs.subject) != CMSV_OK) {
        return CMSV_OK;
    }
    uint32_t valid = 0;
    const uint32_t status =
        cmsv_x509_verify_signed_by(ctx, cert, &cert->tbs.subjectPublicKeyInfo.rsaKey, &valid);
    if (status != CMSV_OK) {
        return status;
    }
    if (valid == 1) {
        *flag = 1;
        cert->issuerCache = cert;
    }
    return CMSV_OK;
}

TAVO_API const CmsvExtension *cmsv_x509_find_extn_by_aoid(CmsvVrfCtx *ctx,
                                                          const CmsvExtensionList *list,
                                                          uint32_t id) {
    if (ctx == nullptr || list == nullptr || list->count == 0 || id == AOID_UNKNOWN) {
        return nullptr;
    }
    const CmsvAsnOcts *oid = cmsv_find_oid(id);
    if (oid == nullptr) {
        return nullptr;
    }
    const uint32_t count =
        list->count < CMSV_LIST_CAPACITY ? list->count : static_cast<uint32_t>(CMSV_LIST_CAPACITY);
    for (uint32_t i = 0; i < count; i++) {
        if (cmsv_compare_asn_octs(ctx, &list->entries[i].extnId, oid) == 0) {
            return &list->entries[i];
        }
    }
    return nullptr;
}

}  // extern "C"

uint32_t cmsv_x509_verify_signed_by(CmsvVrfCtx *ctx, const CmsvCert *cert,
                                    const CmsvRsaPublicKey *key, uint32_t *valid) {
    return cmsv_x509_pkey_verify(ctx, cert->tbsRaw.data, cert->tbsRaw.len,
                                 cert->signatureValue.data, cert->signatureValue.len, key,
                                 &cert->signatureAlgorithm, valid);
}
