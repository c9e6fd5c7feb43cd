// CRL summaries: what an application needs to decide whether one CRL file is newer
// than another, and that decision.
#include "cmsv/cmsv_bundle.h"
#include "cmsv/cmsv_owned.h"

namespace {

void FreeInfo(CmsvVrfCtx *ctx, CmsvCrlInfo *info) {
    if (info != nullptr) {
        cmsv_free(ctx, info->revokedSerials);
        cmsv_free(ctx, info);
    }
}

// A summary under construction, and the list of summaries until it is returned.
using OwnedInfo = CmsvOwned<CmsvCrlInfo, FreeInfo>;
using OwnedInfoList = CmsvOwned<CmsvCrlInfoList, cmsv_crl_free>;

// Adds the bundle's CRLs, then its certificates that are not self-signed, to the
// store. Objects the store already holds are not an error.
[[nodiscard]] uint32_t AddToStore(CmsvVrfCtx *ctx, const CmsvBundleLists &lists) {
    for (int32_t i = 0; i < lists.crls.count; i++) {
        const uint32_t status =
            cmsv_pki_store_add_crl(ctx, static_cast<CmsvCrl *>(lists.crls.items[i]));
        if (status != CMSV_OK && status != CMSV_ERR_CRL_DUPLICATE) {
            return status;
        }
    }
    for (int32_t i = 0; i < lists.certs.count; i++) {
        CmsvCert *cert = static_cast<CmsvCert *>(lists.certs.items[i]);
        uint32_t selfSigned = 0;
        uint32_t status = cmsv_x509_is_self_signed(ctx, cert, &selfSigned);
        if (status != CMSV_OK) {
            return status;
        }
        if (selfSigned == 1) {
            continue;
        }
        status = cmsv_pki_store_add_cert(ctx, cert);
        if (status != CMSV_OK && status != CMSV_ERR_CERT_DUPLICATE) {
            return status;
        }
    }
    return CMSV_OK;
}

bool FitsSerial(const CmsvAsnOcts &serial) {
    return serial.len > 0 && serial.len <= CMSV_SERIAL_MAX && serial.data != nullptr;
}

// Copies the serials a root's CRL revokes; empty and over-long ones are left out.
[[nodiscard]] uint32_t CopyRevokedSerials(CmsvVrfCtx *ctx, const CmsvCrl &crl, CmsvCrlInfo *info) {
    const CmsvRevokedList &revoked = crl.tbsCertList.revokedCertificates;
    const uint32_t count =
        revoked.count < CMSV_CRL_MAX_REVOKED ? revoked.count : CMSV_CRL_MAX_REVOKED;
    uint32_t kept = 0;
    for (uint32_t i = 0; i < count; i++) {
        kept += FitsSerial(revoked.entries[i].userCertificate) ? 1 : 0;
    }
    if (kept == 0) {
        return CMSV_OK;
    }
    void *block = nullptr;
    uint32_t status = cmsv_malloc_with0(ctx, &block, sizeof(CmsvSerial) * kept);
    if (status != CMSV_OK) {
        return status;
    }
    info->revokedSerials = static_cast<CmsvSerial *>(block);
    for (uint32_t i = 0; i < count; i++) {
        const CmsvAsnOcts &serial = revoked.entries[i].userCertificate;
        if (!FitsSerial(serial)) {
            continue;
        }
        CmsvSerial &to = info->revokedSerials[info->revokedCount];
        status = cmsv_memcpy_s(ctx, to.data, sizeof(to.data), serial.data, serial.len);
        if (status != CMSV_OK) {
            return status;
        }
        to.len = serial.len;
        info->revokedCount++;
    }
    return CMSV_OK;
}

// Fills a summary for one CRL: readable issuer, dates, and whether the certificate
// that signed it verifies at the CRL's own thisUpdate.
[[nodiscard]] uint32_t FillInfo(CmsvVrfCtx *ctx, const CmsvCrl &crl, CmsvCrlInfo *info) {
    char *issuer = nullptr;
    uint32_t issuerLen = 0;
    uint32_t status =
        cmsv_convert_from_x509_name(ctx, &crl.tbsCertList.issuer, &issuer, &issuerLen);
    if (status != CMSV_OK) {
        return status;
    }
    status = cmsv_strcpy_s(ctx, info->issuer, sizeof(info->issuer), issuer);
    cmsv_free(ctx, issuer);
    if (status != CMSV_OK) {
        return status;
    }
    status = cmsv_convert_datetime_to_time(&crl.tbsCertList.thisUpdate, &info->thisUpdate);
    if (status == CMSV_OK) {
        status = cmsv_convert_datetime_to_time(&crl.tbsCertList.nextUpdate, &info->nextUpdate);
    }
    if (status != CMSV_OK) {
        return status;
    }

    CmsvCert *signer = cmsv_pki_find_crl_issuer(ctx, &crl);
    if (signer == nullptr) {
        return CMSV_OK;
    }
    // The signer must have been trustworthy when the CRL was issued, not now.
    ctx->verifyTime = info->thisUpdate;
    uint32_t ok = 0;
    if (cmsv_pki_verify_cert(ctx, signer, 1, 1, &ok) == CMSV_OK && ok == 1) {
        info->valid = 1;
    }
    uint32_t selfSigned = 0;
    if (cmsv_x509_is_self_signed(ctx, signer, &selfSigned) == CMSV_OK && selfSigned == 1) {
        status = CopyRevokedSerials(ctx, crl, info);
        if (status != CMSV_OK) {
            return status;
        }
    }
    const CmsvAsnOcts &serial = signer->tbs.serialNumber;
    if (FitsSerial(serial)) {
        status = cmsv_memcpy_s(ctx, info->issuerSerial, sizeof(info->issuerSerial), serial.data,
                               serial.len);
        if (status != CMSV_OK) {
            return status;
        }
        info->issuerSerialLen = serial.len;
    }
    return CMSV_OK;
}

bool HasIssuer(CmsvVrfCtx *ctx, const CmsvCrlInfoList &list, const char *issuer) {
    for (uint32_t i = 0; i < list.count; i++) {
        if (cmsv_strcmp(ctx, list.items[i]->issuer, issuer) == 0) {
            return true;
        }
    }
    return false;
}

bool HasDuplicateIssuer(CmsvVrfCtx *ctx, const CmsvCrlInfoList &list) {
    for (uint32_t i = 0; i < list.count; i++) {
        for (uint32_t j = i + 1; j < list.count; j++) {
            if (cmsv_strcmp(ctx, list.items[i]->issuer, list.items[j]->issuer) == 0) {
                return true;
            }
        }
    }
    return false;
}

bool AllValid(const CmsvCrlInfoList &list) {
    for (uint32_t i = 0; i < list.count; i++) {
        if (list.items[i] == nullptr || list.items[i]->valid != 1) {
            return false;
        }
    }
    return true;
}

// 0 no vote, 1 a newer, 2 b newer, 3 votes disagree.
uint32_t Vote(CmsvVrfCtx *ctx, const CmsvCrlInfoList &a, const CmsvCrlInfoList &b) {
    uint32_t result = 0;
    for (uint32_t i = 0; i < a.count; i++) {
        for (uint32_t j = 0; j < b.count; j++) {
            const CmsvCrlInfo &x = *a.items[i];
            const CmsvCrlInfo &y = *b.items[j];
            if (cmsv_strcmp(ctx, x.issuer, y.issuer) != 0 || x.thisUpdate == y.thisUpdate) {
                continue;
            }
            const uint32_t vote = x.thisUpdate > y.thisUpdate ? 1 : 2;
            if (result == 0) {
                result = vote;
            } else if (result != vote) {
                return 3;
            }
        }
    }
    return result;
}

// Whether `serial` is among the serials revoked by the first summary of `list` that
// revokes anything (the root's CRL).
bool RevokedByRoot(CmsvVrfCtx *ctx, const CmsvCrlInfoList &list, const CmsvCrlInfo &dropped) {
    for (uint32_t i = 0; i < list.count; i++) {
        const CmsvCrlInfo &root = *list.items[i];
        if (root.revokedCount == 0 || root.revokedSerials == nullptr) {
            continue;
        }
        for (uint32_t k = 0; k < root.revokedCount; k++) {
            const CmsvSerial &serial = root.revokedSerials[k];
            if (serial.len == dropped.issuerSerialLen && serial.len > 0 &&
                cmsv_memcmp(ctx, serial.data, dropped.issuerSerial, serial.len) == 0) {
                return true;
            }
        }
        return false;
    }
    return false;
}

// Every issuer of the older set must still be in the newer one, unless the newer
// root CRL revokes the CA that dropped out.
bool Covers(CmsvVrfCtx *ctx, const CmsvCrlInfoList &newer, const CmsvCrlInfoList &older) {
    for (uint32_t i = 0; i < older.count; i++) {
        const CmsvCrlInfo &info = *older.items[i];
        if (!HasIssuer(ctx, newer, info.issuer) && !RevokedByRoot(ctx, newer, info)) {
            return false;
        }
    }
    return true;
}

}  // namespace

extern "C" {

TAVO_API uint32_t cmsv_decode_crl(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                  CmsvCrlInfoList **out) {
    if (ctx == nullptr || data == nullptr || len == 0 || out == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *out = nullptr;
    CmsvBundleLists lists(ctx);
    uint32_t status = cmsv_decode_bundle(ctx, data, len, &lists.certs, &lists.crls);
    if (status == CMSV_ERR_LIST_FULL && lists.crls.count == CMSV_LIST_CAPACITY) {
        return CMSV_ERR_CRL_TOO_MANY;
    }
    if (status != CMSV_OK || lists.crls.count == 0) {
        return CMSV_ERR_CRL_BUNDLE;
    }
    if (AddToStore(ctx, lists) != CMSV_OK) {
        return CMSV_ERR_CRL_BUNDLE;
    }

    OwnedInfoList list(ctx);
    if (list.allocate_zeroed() != CMSV_OK) {
        return CMSV_ERR_CRL_BUNDLE;
    }
    list->size = CMSV_CRL_INFO_LIST_SIZE;
    for (int32_t i = 0; i < lists.crls.count; i++) {
        OwnedInfo info(ctx);
        if (info.allocate_zeroed() != CMSV_OK) {
            continue;
        }
        const CmsvCrl &crl = *static_cast<const CmsvCrl *>(lists.crls.items[i]);
        status = FillInfo(ctx, crl, info.get());
        if (status != CMSV_OK) {
            continue;
        }
        list->items[list->count++] = info.release();
    }
    *out = list.release();
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_crl_free(CmsvVrfCtx *ctx, CmsvCrlInfoList *list) {
    if (ctx == nullptr || list == nullptr) {
        return CMSV_ERR_PARAM;
    }
    const uint32_t count = list->count < CMSV_LIST_CAPACITY ? list->count : CMSV_LIST_CAPACITY;
    for (uint32_t i = 0; i < count; i++) {
        FreeInfo(ctx, list->items[i]);
    }
    cmsv_free(ctx, list);
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_crl_compare(CmsvVrfCtx *ctx, const CmsvCrlInfoList *a,
                                   const CmsvCrlInfoList *b, uint32_t *result) {
    if (ctx == nullptr || a == nullptr || b == nullptr || result == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *result = 3;
    if (a->count == 0 || b->count == 0) {
        return CMSV_ERR_CRL_LIST_EMPTY;
    }
    if (a->count > CMSV_LIST_CAPACITY || b->count > CMSV_LIST_CAPACITY || !AllValid(*a) ||
        !AllValid(*b)) {
        return CMSV_ERR_CRL_UNVERIFIED;
    }
    uint32_t order = Vote(ctx, *a, *b);
    if (HasDuplicateIssuer(ctx, *a) || HasDuplicateIssuer(ctx, *b)) {
        return CMSV_ERR_CRL_SAME_ISSUER;
    }
    if (order == 0 && a->count != b->count) {
        order = a->count > b->count ? 1 : 2;
    }
    const bool aNewer = order == 1;
    if (!Covers(ctx, aNewer ? *a : *b, aNewer ? *b : *a)) {
        return CMSV_ERR_CRL_COVERAGE;
    }
    *result = order;
    return CMSV_OK;
}

}  // extern "C"
