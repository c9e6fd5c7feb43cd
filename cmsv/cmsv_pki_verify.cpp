// Certificate path verification against the trust store, with CRL revocation.
//
// Trust is anchored in the self-signed certificates of the store. Every other
// certificate on a path needs a current CRL whose signer verifies in turn; that
// signer is checked through cmsv_pki_verify_cert itself, so the context's depth
// counter bounds the nesting certificate -> CRL signer -> its CRL signer -> ...
#include "cmsv/cmsv_pki.h"
#include "cmsv/cmsv_x509.h"
#include "tavo/cmsv.h"

namespace {

constexpr int32_t kMaxDepth = 11;
// A path or a root walk longer than the store can hold must revisit a certificate.
constexpr int32_t kMaxChain = CMSV_LIST_CAPACITY + 1;

// CRL candidate flags; a higher value is a better candidate.
constexpr uint32_t kCrlListsCert = 128;
constexpr uint32_t kCrlCurrent = 64;
constexpr uint32_t kCrlNameMatch = 32;
constexpr uint32_t kCrlIndirect = 16;

// CRL reasons under which an end-entity certificate stays valid until the revocation date.
constexpr int32_t kReasonAffiliationChanged = 3;
constexpr int32_t kReasonSuperseded = 4;
constexpr int32_t kReasonCessationOfOperation = 5;

struct CrlCandidate {
    uint32_t flags;
    CmsvCrl *crl;
};

CmsvList &stored_certs(CmsvVrfCtx *ctx) {
    return ctx->pkiStore->certs;
}

// Does `issuer` sign `cert`? The answer is remembered in cert's issuer cache.
uint32_t issuer_test(CmsvVrfCtx *ctx, CmsvCert *cert, CmsvCert *issuer) {
    if (cert->issuerCache != nullptr) {
        return cert->issuerCache == issuer ? CMSV_OK : CMSV_ERR_CERT_SIGNATURE;
    }
    const uint32_t names = cmsv_compare_x509_name(ctx, &cert->tbs.issuer, &issuer->tbs.subject);
    if (names != CMSV_OK) {
        return names;
    }
    // Without a keyUsage extension a CA issues nothing.
    if ((issuer->tbs.extensions.keyUsage & CMSV_KU_KEY_CERT_SIGN) == 0) {
        return CMSV_ERR_KEY_USAGE;
    }
    uint32_t valid = 0;
    const uint32_t rc =
        cmsv_x509_verify_signed_by(ctx, cert, &issuer->tbs.subjectPublicKeyInfo.rsaKey, &valid);
    if (rc != CMSV_OK) {
        return rc;
    }
    if (valid != 1) {
        return CMSV_ERR_CERT_SIGNATURE;
    }
    cert->issuerCache = issuer;
    return CMSV_OK;
}

CmsvCert *find_issuer(CmsvVrfCtx *ctx, CmsvCert *cert) {
    CmsvList &certs = stored_certs(ctx);
    for (int32_t i = 0; i < certs.count; ++i) {
        auto *candidate = static_cast<CmsvCert *>(certs.items[i]);
        if (candidate->tbs.extensions.basicConstraintsCa == 1 &&
            issuer_test(ctx, cert, candidate) == CMSV_OK) {
            return candidate;
        }
    }
    return nullptr;
}

bool is_self_signed(CmsvVrfCtx *ctx, CmsvCert *cert) {
    uint32_t flag = 0;
    return cmsv_x509_is_self_signed(ctx, cert, &flag) == CMSV_OK && flag == 1;
}

CmsvCert *find_root(CmsvVrfCtx *ctx, CmsvCert *cert) {
    for (int32_t step = 0; cert != nullptr && step < kMaxChain; ++step) {
        if (is_self_signed(ctx, cert)) {
            return cert;
        }
        cert = find_issuer(ctx, cert);
    }
    return nullptr;
}

bool same_serial(CmsvVrfCtx *ctx, const CmsvAsnOcts &a, const CmsvAsnOcts &b) {
    return cmsv_compare_asn_octs(ctx, &a, &b) == 0;
}

bool is_indirect(const CmsvCrl *crl) {
    return crl->tbsCertList.crlExtensions.issuingDistributionPoint.indirectCRL != 0;
}

// How well `crl` covers `cert`, whose root is `root`; 0 when it does not apply.
uint32_t crl_applicability(CmsvVrfCtx *ctx, const CmsvCert *cert, const CmsvCert *root,
                           const CmsvCrl *crl) {
    if (cert->tbs.issuer.count == 0) {
        return 0;
    }
    const CmsvTbsCertList &list = crl->tbsCertList;
    const bool nameMatch = cmsv_compare_x509_name(ctx, &list.issuer, &cert->tbs.issuer) == 0;
    const bool indirect = is_indirect(crl);
    if (!nameMatch && !indirect) {
        return 0;
    }
    CmsvCert *signer = cmsv_pki_find_crl_issuer(ctx, crl);
    if (signer == nullptr || find_root(ctx, signer) != root) {
        return 0;
    }
    uint32_t flags = (nameMatch ? kCrlNameMatch : 0) | (indirect ? kCrlIndirect : 0);
    for (uint32_t i = 0; i < list.revokedCertificates.count; ++i) {
        if (same_serial(ctx, list.revokedCertificates.entries[i].userCertificate,
                        cert->tbs.serialNumber)) {
            flags |= kCrlListsCert;
            break;
        }
    }
    int64_t nextUpdate = 0;
    if (cmsv_convert_datetime_to_time(&list.nextUpdate, &nextUpdate) != CMSV_OK) {
        return 0;
    }
    if (ctx->verifyTime <= nextUpdate) {
        flags |= kCrlCurrent;
    } else if ((flags & kCrlListsCert) == 0) {
        // A stale CRL still counts against a certificate it lists.
        return 0;
    }
    return flags;
}

int32_t by_flags_descending(const void *a, const void *b) {
    const auto *left = static_cast<const CrlCandidate *>(a);
    const auto *right = static_cast<const CrlCandidate *>(b);
    return left->flags < right->flags ? 1 : 0;
}

// The best applicable CRL whose signer verifies, or null with ctx->lastCrlError set.
CmsvCrl *select_crl(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t mode) {
    const CmsvCert *root = find_root(ctx, cert);
    if (root == nullptr) {
        ctx->lastCrlError = CMSV_ERR_NO_ISSUER;
        return nullptr;
    }
    CrlCandidate candidates[CMSV_LIST_CAPACITY] = {};
    CmsvList order{};
    const CmsvList &crls = ctx->pkiStore->crls;
    for (int32_t i = 0; i < crls.count; ++i) {
        auto *crl = static_cast<CmsvCrl *>(crls.items[i]);
        const uint32_t flags = crl_applicability(ctx, cert, root, crl);
        if (flags != 0) {
            candidates[order.count] = CrlCandidate{flags, crl};
            (void)cmsv_list_add(&order, &candidates[order.count]);
        }
    }
    if (order.count == 0) {
        ctx->lastCrlError = CMSV_ERR_NO_CRL;
        return nullptr;
    }
    (void)cmsv_list_sort(&order, by_flags_descending);
    uint32_t lastError = CMSV_OK;
    for (int32_t i = 0; i < order.count; ++i) {
        CmsvCrl *crl = static_cast<CrlCandidate *>(order.items[i])->crl;
        CmsvCert *signer = cmsv_pki_find_crl_issuer(ctx, crl);
        if (signer == nullptr) {
            continue;
        }
        uint32_t ok = 0;
        const uint32_t rc = cmsv_pki_verify_cert(ctx, signer, 0, mode, &ok);
        if (ok == 1) {
            return crl;
        }
        if (rc != CMSV_OK) {
            lastError = rc;
        }
    }
    ctx->lastCrlError = lastError != CMSV_OK ? lastError : CMSV_ERR_CRL_SIGNER;
    return nullptr;
}

// Is `cert` revoked by `entry` at the context's verifyTime?
uint32_t test_entry(CmsvVrfCtx *ctx, const CmsvCert *cert, const CmsvRevokedEntry &entry,
                    uint32_t mode) {
    if (!same_serial(ctx, entry.userCertificate, cert->tbs.serialNumber)) {
        return CMSV_OK;
    }
    const bool strict = mode == 1 || cert->tbs.extensions.basicConstraintsCa == 1;
    const bool benign = entry.reasonCode == kReasonAffiliationChanged ||
                        entry.reasonCode == kReasonSuperseded ||
                        entry.reasonCode == kReasonCessationOfOperation;
    if (strict && !benign) {
        return CMSV_ERR_CERT_REVOKED;
    }
    int64_t revokedAt = 0;
    const uint32_t rc = cmsv_convert_datetime_to_time(&entry.revocationDate, &revokedAt);
    if (rc != CMSV_OK) {
        return rc;
    }
    return ctx->verifyTime >= revokedAt ? CMSV_ERR_CERT_REVOKED : CMSV_OK;
}

uint32_t check_revocation(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t mode, CmsvCrl **chosen) {
    CmsvCrl *crl = select_crl(ctx, cert, mode);
    if (crl == nullptr) {
        return ctx->lastCrlError;
    }
    const CmsvRevokedList &revoked = crl->tbsCertList.revokedCertificates;
    for (uint32_t i = 0; i < revoked.count; ++i) {
        const uint32_t rc = test_entry(ctx, cert, revoked.entries[i], mode);
        if (rc != CMSV_OK) {
            return rc;
        }
    }
    *chosen = crl;
    return CMSV_OK;
}

uint32_t check_validity(CmsvVrfCtx *ctx, const CmsvCert *cert) {
    int64_t notBefore = 0;
    int64_t notAfter = 0;
    uint32_t rc = cmsv_convert_datetime_to_time(&cert->tbs.validity.notBefore, &notBefore);
    if (rc == CMSV_OK) {
        rc = cmsv_convert_datetime_to_time(&cert->tbs.validity.notAfter, &notAfter);
    }
    if (rc != CMSV_OK) {
        return rc;
    }
    if (ctx->verifyTime < notBefore) {
        return CMSV_ERR_NOT_YET_VALID;
    }
    if (ctx->verifyTime > notAfter) {
        return CMSV_ERR_EXPIRED;
    }
    return CMSV_OK;
}

// Walks from `cert` towards a trusted root. A direct CRL ends the walk: its signer
// carries cert's issuer name, shares its root and has just been verified itself.
uint32_t verify_path(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t mode) {
    for (int32_t step = 0; step < kMaxChain; ++step) {
        uint32_t rc = check_validity(ctx, cert);
        if (rc != CMSV_OK) {
            return rc;
        }
        uint32_t selfSigned = 0;
        rc = cmsv_x509_is_self_signed(ctx, cert, &selfSigned);
        if (rc != CMSV_OK) {
            return rc;
        }
        if (selfSigned == 1) {
            return CMSV_OK;
        }
        CmsvCrl *crl = nullptr;
        rc = check_revocation(ctx, cert, mode, &crl);
        if (rc != CMSV_OK) {
            return rc;
        }
        if (!is_indirect(crl)) {
            return CMSV_OK;
        }
        cert = find_issuer(ctx, cert);
        if (cert == nullptr) {
            return CMSV_ERR_NO_ISSUER;
        }
    }
    return CMSV_ERR_CHAIN_DEPTH;
}

}  // namespace

TAVO_API uint32_t cmsv_pki_verify_cert(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t resetDepth,
                                       uint32_t mode, uint32_t *ok) {
    if (ctx == nullptr || ctx->pkiStore == nullptr || cert == nullptr || ok == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *ok = 0;
    if (resetDepth != 0) {
        ctx->depth = 0;
    }
    if (ctx->depth >= kMaxDepth) {
        return CMSV_ERR_CHAIN_DEPTH;
    }
    ++ctx->depth;
    const uint32_t rc = verify_path(ctx, cert, mode);
    *ok = rc == CMSV_OK ? 1 : 0;
    --ctx->depth;
    return rc;
}

uint32_t cmsv_pki_check_signer(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t usage) {
    if (ctx == nullptr || cert == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const CmsvCertExtensions &ext = cert->tbs.extensions;
    if ((ext.keyUsage & CMSV_KU_DIGITAL_SIGNATURE) == 0 || (ext.extKeyUsage & usage) == 0) {
        return CMSV_ERR_KEY_USAGE;
    }
    const uint32_t mode = usage == CMSV_EKU_TIME_STAMPING ? 1 : 0;
    uint32_t ok = 0;
    const uint32_t rc = cmsv_pki_verify_cert(ctx, cert, 1, mode, &ok);
    if (rc != CMSV_OK) {
        return rc;
    }
    return ok == 1 ? CMSV_OK : CMSV_ERR_SIGNER_CHAIN;
}
