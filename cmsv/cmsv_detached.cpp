// Detached PKCS#7 signature verification with an RFC 3161 time-stamp.
//
// begin decodes the signature, checks its time-stamp token (which fixes the time at
// which every certificate is judged), checks the signer and leaves one work item per
// pending check over the content: a digest to compare with the signed messageDigest,
// or, without signed attributes, an RSA verification fed by the content itself.
// update streams the content into every item; final settles them.
#include "cmsv/cmsv_owned.h"
#include "cmsv/cmsv_pki.h"
#include "cmsv/cmsv_signer_work.h"
#include "tavo/cmsv.h"

namespace {

constexpr uint32_t kUniversal = 0;
constexpr uint32_t kTagOctetString = 4;

// A decoded SignedData, owned for the length of a scope.
using OwnedSignedData = CmsvOwned<CmsvSignedData, cmsv_pkcs7_free_signed>;
// A record made by cmsv_asn_decode.
using OwnedAsnRecord = CmsvOwned<void, cmsv_asn_free>;
// A work item under construction; freed unless handed to the context's list.
using OwnedWork = CmsvOwned<CmsvSignerWork, cmsv_signer_work_release>;

// Appends the item to the context's list, which then owns it.
uint32_t hand_to_context(CmsvVrfCtx *ctx, OwnedWork &work) {
    const uint32_t rc = cmsv_list_add(&ctx->signerWork, work.get());
    if (rc == CMSV_OK) {
        work.release();
    }
    return rc;
}

bool same_bytes(CmsvVrfCtx *ctx, const uint8_t *a, uint32_t aLen, const uint8_t *b, uint32_t bLen) {
    return aLen == bLen && (aLen == 0 || cmsv_memcmp(ctx, a, b, aLen) == 0);
}

bool has_signed_attrs(const CmsvSignerInfo &signer) {
    return signer.signedAttrsRaw.len != 0 || signer.signedAttrs.messageDigest.len != 0;
}

uint32_t digest_bytes(CmsvVrfCtx *ctx, uint32_t hashId, const uint8_t *data, uint32_t len,
                      uint8_t (&digest)[CMSV_DIGEST_MAX], uint32_t *digestLen) {
    CmsvDigestHandle md(ctx);
    uint32_t rc = cmsv_md_ctx_create(ctx, md.out());
    if (rc == CMSV_OK) {
        rc = cmsv_md_init(ctx, md.get(), hashId);
    }
    if (rc == CMSV_OK && len != 0) {
        rc = cmsv_md_update(ctx, md.get(), data, len);
    }
    if (rc == CMSV_OK) {
        rc = cmsv_md_final(ctx, md.get(), digest, digestLen);
    }
    return rc;
}

// A verify handle initialised with cert's public key.
uint32_t open_verifier(CmsvVrfCtx *ctx, const CmsvCert *cert, uint32_t hashId,
                       CmsvVerifyHandle &vrf) {
    CmsvKeyPart e{};
    CmsvKeyPart n{};
    uint32_t rc = cmsv_x509_extract_public_key(ctx, cert, &e, &n);
    if (rc == CMSV_OK) {
        rc = cmsv_verify_ctx_create(ctx, vrf.out());
    }
    if (rc == CMSV_OK) {
        rc = cmsv_verify_init(ctx, vrf.get(), &e, &n, hashId);
    }
    return rc;
}

// Does signer's signature cover its signed attributes? They are signed as a SET,
// so the first octet is rebuilt from the recorded universal SET tag.
uint32_t verify_signed_attrs(CmsvVrfCtx *ctx, const CmsvCert *cert, const CmsvSignerInfo &signer) {
    const CmsvAsnOcts &raw = signer.signedAttrsRaw;
    if (raw.len < 2 || raw.data == nullptr) {
        return CMSV_ERR_PKCS7_DECODE;
    }
    const uint32_t hashId = cmsv_get_hash_aoid_from_sign(ctx, &signer.digestAlgorithm);
    if (hashId == AOID_UNKNOWN) {
        return CMSV_ERR_SIGNED_ATTRS;
    }
    const auto first = static_cast<uint8_t>(raw.cls * 64 | raw.constructed * 32 | raw.tag);
    CmsvVerifyHandle vrf(ctx);
    uint32_t rc = open_verifier(ctx, cert, hashId, vrf);
    if (rc == CMSV_OK) {
        rc = cmsv_verify_update(ctx, vrf.get(), &first, 1);
    }
    if (rc == CMSV_OK) {
        rc = cmsv_verify_update(ctx, vrf.get(), raw.data + 1, raw.len - 1);
    }
    uint32_t result = 0;
    if (rc == CMSV_OK) {
        rc = cmsv_verify_final(ctx, vrf.get(), signer.encryptedDigest.data,
                               signer.encryptedDigest.len, &result);
    }
    return rc == CMSV_OK && result == 1 ? CMSV_OK : CMSV_ERR_SIGNED_ATTRS;
}

// The token's signature over the TSTInfo bytes, through signed attributes or directly.
uint32_t verify_token_signer(CmsvVrfCtx *ctx, const CmsvCert *tsa, const CmsvSignerInfo &signer,
                             const uint8_t *tst, uint32_t tstLen) {
    const uint32_t hashId = cmsv_get_hash_aoid_from_sign(ctx, &signer.digestAlgorithm);
    if (has_signed_attrs(signer)) {
        uint32_t rc = verify_signed_attrs(ctx, tsa, signer);
        if (rc != CMSV_OK) {
            return rc;
        }
        if (hashId == AOID_UNKNOWN) {
            return CMSV_ERR_DIGEST_UNSUPPORTED;
        }
        uint8_t digest[CMSV_DIGEST_MAX] = {};
        uint32_t digestLen = 0;
        rc = digest_bytes(ctx, hashId, tst, tstLen, digest, &digestLen);
        if (rc != CMSV_OK) {
            return rc;
        }
        const CmsvAsnOcts &expected = signer.signedAttrs.messageDigest;
        return same_bytes(ctx, digest, digestLen, expected.data, expected.len)
                   ? CMSV_OK
                   : CMSV_ERR_TST_SIGNATURE;
    }
    if (hashId == AOID_UNKNOWN) {
        return CMSV_ERR_DIGEST_UNSUPPORTED;
    }
    CmsvVerifyHandle vrf(ctx);
    uint32_t rc = open_verifier(ctx, tsa, hashId, vrf);
    if (rc == CMSV_OK) {
        rc = cmsv_verify_update(ctx, vrf.get(), tst, tstLen);
    }
    uint32_t result = 0;
    if (rc == CMSV_OK) {
        rc = cmsv_verify_final(ctx, vrf.get(), signer.encryptedDigest.data,
                               signer.encryptedDigest.len, &result);
    }
    return rc == CMSV_OK && result == 1 ? CMSV_OK : CMSV_ERR_TST_SIGNATURE;
}

// Keeps the certificates a signature carries, except self-signed ones: trust
// anchors come only from the caller. The signature's own references are dropped.
uint32_t store_embedded_certs(CmsvVrfCtx *ctx, CmsvSignedData *signedData) {
    uint32_t rc = CMSV_OK;
    for (int32_t i = 0; rc == CMSV_OK && i < signedData->certs.count; ++i) {
        auto *cert = static_cast<CmsvCert *>(signedData->certs.items[i]);
        uint32_t selfSigned = 0;
        rc = cmsv_x509_is_self_signed(ctx, cert, &selfSigned);
        if (rc == CMSV_OK && selfSigned == 0) {
            rc = cmsv_pki_store_add_cert(ctx, cert);
            if (rc == CMSV_ERR_CERT_DUPLICATE) {
                rc = CMSV_OK;
            }
        }
    }
    cmsv_list_free(ctx, &signedData->certs, cmsv_release_cert_item);
    return rc;
}

// Checks the time-stamp token of `signer` and sets the context's verifyTime to its genTime.
uint32_t check_timestamp(CmsvVrfCtx *ctx, const CmsvSignerInfo &signer) {
    // The token is a whole ContentInfo, captured with its header.
    const CmsvAsnOcts &token = signer.unsignedAttrs.timeStampToken;
    if (token.len == 0 || token.data == nullptr) {
        return CMSV_ERR_PARAM;
    }
    OwnedSignedData tokenData(ctx);
    uint32_t consumed = 0;
    uint32_t rc = cmsv_pkcs7_decode_signed(ctx, token.data, token.len, tokenData.out(), &consumed);
    if (rc != CMSV_OK) {
        return rc;
    }
    // eContent [0] EXPLICIT OCTET STRING: the captured value is the DER TSTInfo.
    const CmsvAsnOcts &content = tokenData.get()->signedData.encapContentInfo.content;
    if (content.len == 0 || content.cls != kUniversal || content.constructed != 0 ||
        content.tag != kTagOctetString) {
        return CMSV_ERR_PKCS7_DECODE;
    }
    const uint8_t *tst = content.data;
    const uint32_t tstLen = content.len;
    OwnedAsnRecord tstRecord(ctx);
    if (cmsv_asn_decode(ctx, tst, tstLen, &CMSV_TST_INFO_item, 0, tstRecord.out(), &consumed) !=
        CMSV_OK) {
        return CMSV_ERR_PKCS7_DECODE;
    }
    const CmsvTstInfo &tstInfo = *static_cast<const CmsvTstInfo *>(tstRecord.get());

    // The token must stamp this very signature value.
    const CmsvMessageImprint &imprint = tstInfo.messageImprint;
    const uint32_t imprintHash = cmsv_get_hash_aoid_from_sign(ctx, &imprint.hashAlgorithm);
    if (imprintHash == AOID_UNKNOWN) {
        return CMSV_ERR_TST_HASH;
    }
    uint8_t digest[CMSV_DIGEST_MAX] = {};
    uint32_t digestLen = 0;
    rc = digest_bytes(ctx, imprintHash, signer.encryptedDigest.data, signer.encryptedDigest.len,
                      digest, &digestLen);
    if (rc != CMSV_OK) {
        return rc;
    }
    if (!same_bytes(ctx, digest, digestLen, imprint.hashedMessage.data,
                    imprint.hashedMessage.len)) {
        return CMSV_ERR_TST_IMPRINT;
    }
    int64_t genTime = 0;
    rc = cmsv_convert_datetime_to_time(&tstInfo.genTime, &genTime);
    if (rc != CMSV_OK) {
        return rc;
    }
    ctx->verifyTime = genTime;

    rc = store_embedded_certs(ctx, tokenData.get());
    if (rc != CMSV_OK) {
        return rc;
    }
    // An unsigned token would let anyone choose the verification time.
    const CmsvSignerInfoSet &tokenSigners = tokenData.get()->signedData.signerInfos;
    if (tokenSigners.count == 0) {
        return CMSV_ERR_NO_SIGNED_DATA;
    }
    for (uint32_t i = 0; i < tokenSigners.count && i < CMSV_PKCS7_MAX_SIGNERS; ++i) {
        const CmsvSignerInfo &tokenSigner = tokenSigners.items[i];
        CmsvCert *tsa =
            cmsv_pki_find_cert_by_issuer_sn(ctx, &tokenSigner.issuerAndSerialNumber.issuer,
                                            &tokenSigner.issuerAndSerialNumber.serialNumber);
        if (tsa == nullptr) {
            return CMSV_ERR_SIGNER_NOT_FOUND;
        }
        rc = cmsv_pki_check_signer(ctx, tsa, CMSV_EKU_TIME_STAMPING);
        if (rc == CMSV_OK) {
            rc = verify_token_signer(ctx, tsa, tokenSigner, tst, tstLen);
        }
        if (rc != CMSV_OK) {
            return rc;
        }
    }
    return CMSV_OK;
}

CmsvSignerWork *find_digest_work(CmsvVrfCtx *ctx, uint32_t hashId) {
    for (int32_t i = 0; i < ctx->signerWork.count; ++i) {
        auto *work = static_cast<CmsvSignerWork *>(ctx->signerWork.items[i]);
        if (work->md != nullptr && work->hashId == hashId) {
            return work;
        }
    }
    return nullptr;
}

// Signed attributes: the content's digest must equal their messageDigest.
uint32_t add_digest_work(CmsvVrfCtx *ctx, const CmsvSignerInfo &signer) {
    const uint32_t hashId = cmsv_get_hash_aoid_from_sign(ctx, &signer.digestAlgorithm);
    if (hashId == AOID_UNKNOWN) {
        return CMSV_ERR_DIGEST_UNSUPPORTED;
    }
    const CmsvAsnOcts &expected = signer.signedAttrs.messageDigest;
    if (expected.len == 0) {
        return CMSV_ERR_PKCS7_DECODE;
    }
    if (const CmsvSignerWork *existing = find_digest_work(ctx, hashId); existing != nullptr) {
        return same_bytes(ctx, existing->expectedDigest, existing->expectedDigestLen, expected.data,
                          expected.len)
                   ? CMSV_OK
                   : CMSV_ERR_DIGEST_CONFLICT;
    }
    OwnedWork work(ctx);
    uint32_t rc = work.allocate_zeroed();
    if (rc == CMSV_OK) {
        work->hashId = hashId;
        rc = cmsv_memcpy_s(ctx, work->expectedDigest, sizeof(work->expectedDigest), expected.data,
                           expected.len);
        work->expectedDigestLen = expected.len;
    }
    if (rc == CMSV_OK) {
        rc = cmsv_md_ctx_create(ctx, &work->md);
    }
    if (rc == CMSV_OK) {
        rc = cmsv_md_init(ctx, work->md, hashId);
    }
    return rc == CMSV_OK ? hand_to_context(ctx, work) : rc;
}

// No signed attributes: the signature covers the content itself.
uint32_t add_signature_work(CmsvVrfCtx *ctx, const CmsvCert *cert, const CmsvSignerInfo &signer) {
    const uint32_t hashId = cmsv_get_hash_aoid_from_sign(ctx, &signer.digestAlgorithm);
    if (hashId == AOID_UNKNOWN) {
        return CMSV_ERR_SIGNATURE_ALGORITHM;
    }
    if (signer.encryptedDigest.len > CMSV_SIGNATURE_MAX) {
        return CMSV_ERR_SIGNATURE_TOO_LONG;
    }
    OwnedWork work(ctx);
    uint32_t rc = work.allocate_zeroed();
    if (rc != CMSV_OK) {
        return rc;
    }
    work->hashId = hashId;
    CmsvVerifyHandle vrf(ctx);
    rc = open_verifier(ctx, cert, hashId, vrf);
    if (rc != CMSV_OK) {
        return rc;
    }
    work->vrf = vrf.release();
    rc = cmsv_memcpy_s(ctx, work->signature, sizeof(work->signature), signer.encryptedDigest.data,
                       signer.encryptedDigest.len);
    work->signatureLen = signer.encryptedDigest.len;
    return rc == CMSV_OK ? hand_to_context(ctx, work) : rc;
}

uint32_t process_signer(CmsvVrfCtx *ctx, const CmsvSignerInfo &signer) {
    uint32_t rc = check_timestamp(ctx, signer);
    if (rc != CMSV_OK) {
        return rc;
    }
    CmsvCert *cert = cmsv_pki_find_cert_by_issuer_sn(ctx, &signer.issuerAndSerialNumber.issuer,
                                                     &signer.issuerAndSerialNumber.serialNumber);
    if (cert == nullptr) {
        return CMSV_ERR_SIGNER_NOT_FOUND;
    }
    rc = cmsv_pki_check_signer(ctx, cert, CMSV_EKU_CODE_SIGNING);
    if (rc != CMSV_OK) {
        return rc;
    }
    if (!has_signed_attrs(signer)) {
        return add_signature_work(ctx, cert, signer);
    }
    rc = verify_signed_attrs(ctx, cert, signer);
    return rc == CMSV_OK ? add_digest_work(ctx, signer) : rc;
}

}  // namespace

TAVO_API uint32_t cmsv_verify_detach_signature_begin(CmsvVrfCtx *ctx, const uint8_t *sig,
                                                     uint32_t len) {
    if (ctx == nullptr || sig == nullptr || len == 0) {
        return CMSV_ERR_PARAM;
    }
    OwnedSignedData signedData(ctx);
    uint32_t consumed = 0;
    uint32_t rc = cmsv_pkcs7_decode_signed(ctx, sig, len, signedData.out(), &consumed);
    if (rc != CMSV_OK) {
        return rc;
    }
    const CmsvSignerInfoSet &signers = signedData.get()->signedData.signerInfos;
    // Without a SignerInfo nothing would be checked and final would report success.
    if (signers.count == 0) {
        return CMSV_ERR_NO_SIGNED_DATA;
    }
    rc = store_embedded_certs(ctx, signedData.get());
    for (uint32_t i = 0; rc == CMSV_OK && i < signers.count && i < CMSV_PKCS7_MAX_SIGNERS; ++i) {
        rc = process_signer(ctx, signers.items[i]);
    }
    return rc;
}

TAVO_API uint32_t cmsv_verify_detach_signature_update(CmsvVrfCtx *ctx, const uint8_t *data,
                                                      uint32_t len) {
    if (ctx == nullptr || data == nullptr || len == 0) {
        return CMSV_ERR_PARAM;
    }
    if (ctx->signerWork.count == 0) {
        return CMSV_ERR_NO_WORK;
    }
    for (int32_t i = 0; i < ctx->signerWork.count; ++i) {
        const auto *work = static_cast<const CmsvSignerWork *>(ctx->signerWork.items[i]);
        uint32_t rc = CMSV_ERR_NO_WORK;
        if (work->md != nullptr) {
            rc = cmsv_md_update(ctx, work->md, data, len);
        } else if (work->vrf != nullptr) {
            rc = cmsv_verify_update(ctx, work->vrf, data, len);
        }
        if (rc != CMSV_OK) {
            return rc;
        }
    }
    return CMSV_OK;
}

TAVO_API uint32_t cmsv_verify_detach_signature_final(CmsvVrfCtx *ctx, uint32_t *result) {
    if (ctx == nullptr || result == nullptr) {
        return CMSV_ERR_PARAM;
    }
    *result = 1;
    uint32_t rc = CMSV_OK;
    for (int32_t i = 0; i < ctx->signerWork.count; ++i) {
        const auto *work = static_cast<const CmsvSignerWork *>(ctx->signerWork.items[i]);
        if (work->md != nullptr) {
            uint8_t digest[CMSV_DIGEST_MAX] = {};
            uint32_t digestLen = 0;
            rc = cmsv_md_final(ctx, work->md, digest, &digestLen);
            if (rc != CMSV_OK) {
                break;
            }
            if (!same_bytes(ctx, digest, digestLen, work->expectedDigest,
                            work->expectedDigestLen)) {
                *result = 0;
                break;
            }
            continue;
        }
        if (work->vrf == nullptr) {
            rc = CMSV_ERR_SIGNED_ATTRS;
            break;
        }
        uint32_t valid = 0;
        rc = cmsv_verify_final(ctx, work->vrf, work->signature, work->signatureLen, &valid);
        if (rc != CMSV_OK) {
            break;
        }
        *result = valid == 1 ? 1 : 0;
    }
    cmsv_signer_work_free(ctx);
    if (rc != CMSV_OK) {
        *result = 0;
    }
    return rc;
}
