// The trust store of a verify context: certificates and CRLs, one reference each.
#include "cmsv/cmsv_bundle.h"
#include "cmsv/cmsv_owned.h"
#include "cmsv/cmsv_pki.h"
#include "tavo/cmsv.h"

namespace {

// Two objects are the same when their signature values are byte-identical.
bool same_signature(CmsvVrfCtx *ctx, const CmsvAsnOcts &a, const CmsvAsnOcts &b) {
    return cmsv_compare_asn_octs(ctx, &a, &b) == 0;
}

CmsvPkiStore *store_of(CmsvVrfCtx *ctx) {
    return ctx == nullptr ? nullptr : ctx->pkiStore;
}

// Adds `object` (a certificate or CRL) to `list` with a reference of its own, unless
// the list already holds one with the same signature.
template <typename T>
uint32_t add_once(CmsvVrfCtx *ctx, CmsvList *list, T *object, uint32_t duplicate) {
    for (int32_t i = 0; i < list->count; ++i) {
        const auto *kept = static_cast<const T *>(list->items[i]);
        if (same_signature(ctx, kept->signatureValue, object->signatureValue)) {
            return duplicate;
        }
    }
    const uint32_t rc = cmsv_list_add(list, object);
    if (rc != CMSV_OK) {
        return rc;
    }
    ++object->refCount;
    return CMSV_OK;
}

}  // namespace

TAVO_API uint32_t cmsv_pki_init(CmsvVrfCtx *ctx) {
    if (ctx == nullptr) {
        return CMSV_ERR_PARAM;
    }
    void *store = nullptr;
    const uint32_t rc = cmsv_malloc_with0(ctx, &store, sizeof(CmsvPkiStore));
    if (rc != CMSV_OK) {
        return rc;
    }
    ctx->pkiStore = static_cast<CmsvPkiStore *>(store);
    return CMSV_OK;
}

TAVO_API void cmsv_pki_uninit(CmsvVrfCtx *ctx) {
    CmsvPkiStore *store = store_of(ctx);
    if (store == nullptr) {
        return;
    }
    cmsv_list_free(ctx, &store->certs, cmsv_release_cert_item);
    cmsv_list_free(ctx, &store->crls, cmsv_release_crl_item);
    cmsv_free(ctx, store);
    ctx->pkiStore = nullptr;
}

TAVO_API uint32_t cmsv_pki_store_add_cert(CmsvVrfCtx *ctx, CmsvCert *cert) {
    CmsvPkiStore *store = store_of(ctx);
    if (store == nullptr || cert == nullptr) {
        return CMSV_ERR_PARAM;
    }
    return add_once(ctx, &store->certs, cert, CMSV_ERR_CERT_DUPLICATE);
}

TAVO_API uint32_t cmsv_pki_store_add_crl(CmsvVrfCtx *ctx, CmsvCrl *crl) {
    CmsvPkiStore *store = store_of(ctx);
    if (store == nullptr || crl == nullptr) {
        return CMSV_ERR_PARAM;
    }
    return add_once(ctx, &store->crls, crl, CMSV_ERR_CRL_DUPLICATE);
}

TAVO_API CmsvCert *cmsv_pki_find_cert_by_issuer_sn(CmsvVrfCtx *ctx, const CmsvX509Name *issuer,
                                                   const CmsvAsnOcts *serial) {
    CmsvPkiStore *store = store_of(ctx);
    if (store == nullptr || issuer == nullptr || serial == nullptr || issuer->count == 0 ||
        serial->len == 0) {
        return nullptr;
    }
    for (int32_t i = 0; i < store->certs.count; ++i) {
        auto *cert = static_cast<CmsvCert *>(store->certs.items[i]);
        if (cmsv_compare_x509_name(ctx, &cert->tbs.issuer, issuer) == 0 &&
            cmsv_compare_asn_octs(ctx, &cert->tbs.serialNumber, serial) == 0) {
            return cert;
        }
    }
    return nullptr;
}

TAVO_API CmsvCert *cmsv_pki_find_crl_issuer(CmsvVrfCtx *ctx, const CmsvCrl *crl) {
    CmsvPkiStore *store = store_of(ctx);
    if (store == nullptr || crl == nullptr) {
        return nullptr;
    }
    for (int32_t i = 0; i < store->certs.count; ++i) {
        auto *cert = static_cast<CmsvCert *>(store->certs.items[i]);
        if (cmsv_compare_x509_name(ctx, &cert->tbs.subject, &crl->tbsCertList.issuer) != 0) {
            continue;
        }
        // A candidate without cRLSign, or whose key does not verify the CRL, is passed over.
        if ((cert->tbs.extensions.keyUsage & CMSV_KU_CRL_SIGN) == 0) {
            continue;
        }
        uint32_t valid = 0;
        const uint32_t rc =
            cmsv_x509_pkey_verify(ctx, crl->tbsRaw.data, crl->tbsRaw.len, crl->signatureValue.data,
                                  crl->signatureValue.len, &cert->tbs.subjectPublicKeyInfo.rsaKey,
                                  &crl->signatureAlgorithm, &valid);
        if (rc == CMSV_OK && valid == 1) {
            return cert;
        }
    }
    return nullptr;
}

TAVO_API uint32_t cmsv_verify_add_cert(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len) {
    if (ctx == nullptr || data == nullptr || len == 0) {
        return CMSV_ERR_PARAM;
    }
    CmsvBundleLists lists(ctx);
    uint32_t rc = cmsv_decode_bundle(ctx, data, len, &lists.certs, &lists.crls);
    if (rc == CMSV_OK && lists.certs.count == 0) {
        rc = CMSV_ERR_GENERIC;
    }
    for (int32_t i = 0; rc == CMSV_OK && i < lists.certs.count; ++i) {
        const uint32_t added =
            cmsv_pki_store_add_cert(ctx, static_cast<CmsvCert *>(lists.certs.items[i]));
        if (added != CMSV_OK && added != CMSV_ERR_CERT_DUPLICATE) {
            rc = added;
        }
    }
    return rc;
}

TAVO_API uint32_t cmsv_verify_add_crl(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len) {
    if (ctx == nullptr || data == nullptr || len == 0) {
        return CMSV_ERR_PARAM;
    }
    if (ctx->crlLock != 0) {
        return CMSV_ERR_CRL_LOCKED;
    }
    CmsvBundleLists lists(ctx);
    uint32_t rc = cmsv_decode_bundle(ctx, data, len, &lists.certs, &lists.crls);
    if (rc != CMSV_OK || lists.crls.count == 0) {
        rc = CMSV_ERR_CRL_BUNDLE;
    }
    for (int32_t i = 0; rc == CMSV_OK && i < lists.crls.count; ++i) {
        const uint32_t added =
            cmsv_pki_store_add_crl(ctx, static_cast<CmsvCrl *>(lists.crls.items[i]));
        if (added != CMSV_OK && added != CMSV_ERR_CRL_DUPLICATE) {
            rc = added;
        }
    }
    // Intermediate certificates shipped with the CRLs; a failure to keep one is not fatal.
    for (int32_t i = 0; rc == CMSV_OK && i < lists.certs.count; ++i) {
        auto *cert = static_cast<CmsvCert *>(lists.certs.items[i]);
        uint32_t selfSigned = 0;
        if (cmsv_x509_is_self_signed(ctx, cert, &selfSigned) == CMSV_OK && selfSigned == 0) {
            (void)cmsv_pki_store_add_cert(ctx, cert);
        }
    }
    return rc;
}
