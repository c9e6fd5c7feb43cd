/* The CMS verification engine: a strict DER decoder, X.509 certificates and CRLs,
 * a trust store with CRL-based path verification, and detached PKCS#7 SignedData
 * verification with an RFC 3161 time-stamp.
 *
 * The engine calls no runtime or crypto library itself: every allocation, memory
 * and string operation, digest and RSA verification goes through the callback
 * table handed to cmsv_verify_create_ctx. It never logs; callers log its codes.
 *
 * Statuses are 0 for success or a code 0x88ssnnnn (CMSV_ERR_*); 0xFFFFFFFF is a
 * generic failure of a wrapper. Decoded records point into the caller's input,
 * which must outlive them. */
#ifndef TAVO_CMSV_H
#define TAVO_CMSV_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#include "tavo/tavo_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Error codes ------------------------------------------------------------ */

#define CMSV_OK 0x00000000u
#define CMSV_ERR_GENERIC 0xFFFFFFFFu
#define CMSV_ERR_CTX_CLEAR 0x88000003u
#define CMSV_ERR_MEM_RANGE 0x880000FFu
#define CMSV_ERR_STR_RANGE 0x880004FFu
#define CMSV_ERR_BUF_END 0x88000201u
#define CMSV_ERR_TIME_FORMAT 0x88000301u
#define CMSV_ERR_LIST_FULL 0x88000501u
#define CMSV_ERR_PARAM 0x88100001u
#define CMSV_ERR_TABLE_SIZE 0x88100002u
#define CMSV_ERR_CALLBACK_MISSING 0x88100003u
#define CMSV_ERR_CERT_DUPLICATE 0x88200001u
#define CMSV_ERR_CERT_REVOKED 0x88200002u
#define CMSV_ERR_NO_ISSUER 0x88200004u
#define CMSV_ERR_CERT_SIGNATURE 0x88200005u
#define CMSV_ERR_KEY_USAGE 0x88200007u
#define CMSV_ERR_NAME_ATTRIBUTE 0x88200008u
#define CMSV_ERR_SIGNER_CHAIN 0x88200009u
#define CMSV_ERR_NO_CRL 0x88200012u
#define CMSV_ERR_NOT_YET_VALID 0x88200013u
#define CMSV_ERR_EXPIRED 0x88200014u
#define CMSV_ERR_TST_HASH 0x88200016u
#define CMSV_ERR_CHAIN_DEPTH 0x88200018u
#define CMSV_ERR_CRL_LOCKED 0x88200101u
#define CMSV_ERR_CRL_BUNDLE 0x88200102u
#define CMSV_ERR_CRL_SIGNER 0x88200104u
#define CMSV_ERR_CRL_LIST_EMPTY 0x88200105u
#define CMSV_ERR_CRL_UNVERIFIED 0x88200106u
#define CMSV_ERR_CRL_DUPLICATE 0x88200107u
#define CMSV_ERR_CRL_TOO_MANY 0x88200108u
#define CMSV_ERR_CRL_SAME_ISSUER 0x88200109u
#define CMSV_ERR_CRL_COVERAGE 0x88200110u
#define CMSV_ERR_SIGNATURE_TOO_LONG 0x88200201u
#define CMSV_ERR_DIGEST_CONFLICT 0x88200303u
#define CMSV_ERR_DIGEST_UNSUPPORTED 0x88200306u
#define CMSV_ERR_NO_WORK 0x88200307u
#define CMSV_ERR_NO_SIGNED_DATA 0x88200308u
#define CMSV_ERR_SIGNED_ATTRS 0x88200309u
#define CMSV_ERR_SIGNATURE_ALGORITHM 0x88200310u
#define CMSV_ERR_PKCS7_DECODE 0x88200312u
#define CMSV_ERR_SIGNER_NOT_FOUND 0x88200401u
#define CMSV_ERR_TST_IMPRINT 0x88200402u
#define CMSV_ERR_TST_SIGNATURE 0x88200403u
#define CMSV_ERR_ASN_TAG 0x88300001u
#define CMSV_ERR_ASN_TAG_MISMATCH 0x88300003u
#define CMSV_ERR_ASN_LENGTH 0x88300101u
#define CMSV_ERR_ASN_CAPTURE 0x88300202u
#define CMSV_ERR_ASN_SEQUENCE 0x88300401u
#define CMSV_ERR_ASN_BITS 0x88300501u
#define CMSV_ERR_ASN_INTEGER 0x88300601u
#define CMSV_ERR_ASN_SET 0x88300701u
#define CMSV_ERR_ASN_BOOLEAN 0x88300801u

/* ---- Identifiers, sizes and limits ------------------------------------------ */

/* Engine OID identifiers (cmsv_find_oid, cmsv_find_aoid). */
#define AOID_UNKNOWN 0u
#define AOID_SHA256 43u
#define AOID_SHA384 44u
#define AOID_SHA512 45u
#define AOID_SHA256WITHRSAENCRYPTION 63u
#define AOID_SHA384WITHRSAENCRYPTION 64u
#define AOID_SHA512WITHRSAENCRYPTION 65u
#define AOID_AT_COMMONNAME 161u
#define AOID_AT_LOCALITYNAME 162u
#define AOID_AT_STATEORPROVINCENAME 163u
#define AOID_AT_ORGANIZATIONNAME 164u
#define AOID_AT_ORGANIZATIONALUNITNAME 165u
#define AOID_AT_COUNTRYNAME 168u
#define AOID_PKCS9_AT_EMAILADDRESS 172u
#define AOID_CE_KEYUSAGE 176u
#define AOID_CE_BASICCONSTRAINTS 184u
#define AOID_CE_EXTKEYUSAGE 188u
#define AOID_KP_CODESIGNING 192u
#define AOID_KP_TIMESTAMPING 193u
#define AOID_CE_ISSUINGDISTRIBUTIONPOINT 202u
#define AOID_CE_CRLREASONS 204u
#define AOID_PKCS7_SIGNEDDATA 264u
#define AOID_PKCS9_AT_MESSAGEDIGEST 271u
#define AOID_PKCS9_AT_TIMESTAMP_TOKEN 307u

#define CMSV_CALLBACK_FUNCS_SIZE 248u
#define CMSV_SYS_FUNCS_SIZE 144u
#define CMSV_SYS_INNER_FUNCS_SIZE 136u
#define CMSV_VERIFY_FUNCS_SIZE 48u
#define CMSV_MD_FUNCS_SIZE 48u
#define CMSV_CREATE_PARAMS_SIZE 320u
#define CMSV_VRF_CTX_SIZE 496u
#define CMSV_CRL_INFO_LIST_SIZE 208u

#define CMSV_LIST_CAPACITY 16
#define CMSV_KEY_PART_MAX 512
#define CMSV_NAME_MAX_RDNS 10
#define CMSV_RDN_MAX_ATTRIBUTES 10
#define CMSV_EKU_MAX_OIDS 10
#define CMSV_CRL_MAX_REVOKED 20
#define CMSV_PKCS7_MAX_CERTS 2
#define CMSV_PKCS7_MAX_SIGNERS 1
#define CMSV_SERIAL_MAX 32
#define CMSV_CRL_ISSUER_MAX 256
#define CMSV_SIGNATURE_MAX 516
#define CMSV_DIGEST_MAX 64

/* Key usage bits as the engine reads a one-byte keyUsage BIT STRING. */
#define CMSV_KU_DIGITAL_SIGNATURE 0x80u
#define CMSV_KU_KEY_CERT_SIGN 0x04u
#define CMSV_KU_CRL_SIGN 0x02u
/* Extended key usage flags (first OID of the extension only). */
#define CMSV_EKU_CODE_SIGNING 0x08u
#define CMSV_EKU_TIME_STAMPING 0x40u

/* Field flags and tagging modes of the template decoder. */
#define CMSV_ASN_FLAG_OPTIONAL 0x01u
#define CMSV_ASN_FLAG_PEEK 0x02u
#define CMSV_ASN_FLAG_RAW 0x04u
#define CMSV_ASN_FLAG_DEFAULT 0x10u
#define CMSV_ASN_FLAG_SKIP 0x20u
#define CMSV_ASN_TAG_NONE 0u
#define CMSV_ASN_TAG_EXPLICIT 1u
#define CMSV_ASN_TAG_IMPLICIT 2u
/* In an item's class, constructed flag or tag number: matches anything. */
#define CMSV_ASN_ANY 0xFFFFFFFEu

/* ---- Basic records ---------------------------------------------------------- */

typedef struct CmsvVrfCtx CmsvVrfCtx;

/* An RSA key part: length, then the big-endian bytes. */
typedef struct CmsvKeyPart {
    uint32_t len;
    uint8_t data[CMSV_KEY_PART_MAX];
} CmsvKeyPart;

/* Decode cursor over caller-owned bytes. */
typedef struct CmsvBuf {
    const uint8_t *data;
    uint32_t size;
    uint32_t pos;
} CmsvBuf;

/* A decoded value: its tag and a pointer into the caller's input (not copied). */
typedef struct CmsvAsnOcts {
    uint32_t len;
    uint32_t cls;
    uint32_t constructed;
    uint32_t tag;
    const uint8_t *data;
} CmsvAsnOcts;

typedef struct CmsvDateTime {
    uint16_t year;
    uint8_t month;
    uint8_t day;
    uint8_t hour;
    uint8_t minute;
    uint32_t second;
} CmsvDateTime;

/* Fixed-capacity list of pointers; it never grows. */
typedef struct CmsvList {
    int32_t count;
    void *items[CMSV_LIST_CAPACITY];
} CmsvList;

/* ---- Callback table --------------------------------------------------------- */

/* 31 pointer-sized slots in nested size-prefixed blocks. Status 0 is success for
 * every slot. Slot 15 is the binder's own and never called; 16-18 stay zero. */
typedef struct CmsvCallbackFuncs {
    uint64_t size;         /* 0: 248 */
    uint64_t sysSize;      /* 1: 144, slots 1..18 */
    uint64_t sysInnerSize; /* 2: 136, slots 2..18 */
    uint32_t (*mallocFn)(void **out, size_t size);
    uint32_t (*memsetS)(void *dest, size_t destMax, int c, size_t count);
    uint32_t (*memcpyS)(void *dest, size_t destMax, const void *src, size_t count);
    void (*freeFn)(void *p);
    int32_t (*memcmpFn)(const void *a, const void *b, size_t count);
    int32_t (*strncmpFn)(const char *a, const char *b, size_t count);
    char *(*strstrFn)(const char *haystack, const char *needle);
    char *(*strchrFn)(const char *s, int c);
    size_t (*strlenFn)(const char *s);
    int32_t (*strcmpFn)(const char *a, const char *b);
    uint32_t (*strcpyS)(char *dest, size_t destMax, const char *src);
    uint32_t (*strcatS)(char *dest, size_t destMax, const char *src);
    int32_t (*vsnprintfFn)(char *dest, size_t ignored, size_t limit, const char *format,
                           va_list args);
    void *reserved[3];   /* 16-18 */
    uint64_t verifySize; /* 19: 48, slots 19..24 */
    uint32_t (*verifyCtxCreate)(void **out);
    uint32_t (*verifyInit)(void *vrf, const CmsvKeyPart *e, const CmsvKeyPart *n, uint32_t hashId);
    uint32_t (*verifyUpdate)(void *vrf, const uint8_t *data, uint32_t len);
    /* *result is 1 for a valid signature. The library's provider also answers a
     * signature that does not verify with a non-zero status and result 0. */
    uint32_t (*verifyFinal)(void *vrf, const uint8_t *sig, uint32_t sigLen, uint32_t *result);
    void (*verifyCtxDestroy)(void *vrf);
    uint64_t mdSize; /* 25: 48, slots 25..30 */
    uint32_t (*mdCtxCreate)(void **out);
    uint32_t (*mdInit)(void *md, uint32_t hashId);
    uint32_t (*mdUpdate)(void *md, const uint8_t *data, uint32_t len);
    /* Writes at most 64 bytes. */
    uint32_t (*mdFinal)(void *md, uint8_t *digest, uint32_t *len);
    void (*mdCtxDestroy)(void *md);
} CmsvCallbackFuncs;

/* What a caller hands to cmsv_verify_create_ctx: size word 320, the table, and 64
 * bytes the engine neither reads nor copies. */
typedef struct CmsvCreateParams {
    uint64_t size;
    CmsvCallbackFuncs funcs;
    uint8_t reserved[64];
} CmsvCreateParams;

/* ---- Template decoder ------------------------------------------------------- */

typedef struct CmsvAsnItem CmsvAsnItem;
typedef struct CmsvAsnField CmsvAsnField;

/* Decodes one element at the cursor into dest (null for a skipped field). */
typedef uint32_t (*CmsvAsnDecodeFunc)(CmsvVrfCtx *ctx, CmsvBuf *buf, const CmsvAsnItem *item,
                                      const CmsvAsnField *field, void *dest);
typedef struct CmsvAsnFuncs {
    CmsvAsnDecodeFunc decode;
} CmsvAsnFuncs;

struct CmsvAsnField {
    const CmsvAsnItem *item;
    uint32_t tag;   /* context tag number, or in a map the OID identifier */
    uint16_t mode;  /* CMSV_ASN_TAG_* */
    uint16_t flags; /* CMSV_ASN_FLAG_* */
    uint64_t offset;
    uint64_t maxCount;
};

struct CmsvAsnItem {
    const CmsvAsnField *fields;
    const CmsvAsnFuncs *funcs;
    uint32_t cls;
    uint32_t constructed;
    uint32_t tag;
    uint32_t fieldCount;
    uint64_t size;
};

/* ---- Decoded records -------------------------------------------------------- */

typedef struct CmsvAlgorithmIdentifier {
    CmsvAsnOcts algorithm;
    CmsvAsnOcts parameters;
} CmsvAlgorithmIdentifier;

typedef struct CmsvAttributeTypeValue {
    CmsvAsnOcts type;
    CmsvAsnOcts value; /* keeps its string tag */
} CmsvAttributeTypeValue;

typedef struct CmsvRdn {
    uint32_t count;
    uint32_t reserved;
    CmsvAttributeTypeValue attributes[CMSV_RDN_MAX_ATTRIBUTES];
} CmsvRdn;

typedef struct CmsvX509Name {
    uint32_t count;
    uint32_t reserved;
    CmsvRdn rdns[CMSV_NAME_MAX_RDNS];
} CmsvX509Name;

/* A decoded extension entry (56 bytes). */
typedef struct CmsvExtension {
    CmsvAsnOcts extnId;
    int32_t critical;
    uint32_t reserved;
    CmsvAsnOcts extnValue;
} CmsvExtension;

/* A counted list of extension entries, as cmsv_x509_find_extn_by_aoid reads it. */
typedef struct CmsvExtensionList {
    uint32_t count;
    uint32_t reserved;
    CmsvExtension entries[CMSV_LIST_CAPACITY];
} CmsvExtensionList;

typedef struct CmsvValidity {
    CmsvAsnOcts notBefore;
    CmsvAsnOcts notAfter;
} CmsvValidity;

/* Modulus and public exponent, leading zero octet dropped. */
typedef struct CmsvRsaPublicKey {
    CmsvAsnOcts modulus;
    CmsvAsnOcts publicExponent;
} CmsvRsaPublicKey;

typedef struct CmsvSubjectPublicKeyInfo {
    CmsvAlgorithmIdentifier algorithm;
    CmsvRsaPublicKey rsaKey;
} CmsvSubjectPublicKeyInfo;

/* The three extensions the engine reads; every other one is stepped over. */
typedef struct CmsvCertExtensions {
    int32_t basicConstraintsCa; /* 1 = CA */
    uint32_t keyUsage;          /* CMSV_KU_* */
    uint32_t extKeyUsage;       /* CMSV_EKU_* */
} CmsvCertExtensions;

typedef struct CmsvTbsCertificate {
    CmsvAsnOcts serialNumber;
    CmsvX509Name issuer;
    CmsvValidity validity;
    CmsvX509Name subject;
    CmsvSubjectPublicKeyInfo subjectPublicKeyInfo;
    CmsvCertExtensions extensions;
} CmsvTbsCertificate;

typedef struct CmsvCert {
    CmsvAsnOcts tbsRaw; /* the whole TBSCertificate with its header: what is signed */
    CmsvTbsCertificate tbs;
    CmsvAlgorithmIdentifier signatureAlgorithm;
    CmsvAsnOcts signatureValue; /* unused-bits octet removed */
    struct CmsvCert *issuerCache;
    int32_t refCount;
} CmsvCert;

typedef struct CmsvRevokedEntry {
    CmsvAsnOcts userCertificate;
    CmsvAsnOcts revocationDate;
    int32_t reasonCode; /* 0 when the entry has none */
    uint32_t reserved;
} CmsvRevokedEntry;

typedef struct CmsvRevokedList {
    uint32_t count;
    uint32_t reserved;
    CmsvRevokedEntry entries[CMSV_CRL_MAX_REVOKED];
} CmsvRevokedList;

typedef struct CmsvIssuingDistPoint {
    CmsvAsnOcts distributionPoint;
    int32_t onlyContainsUserCerts;
    int32_t onlyContainsCACerts;
    CmsvAsnOcts onlySomeReasons;
    int32_t indirectCRL;
    int32_t onlyContainsAttributeCerts;
} CmsvIssuingDistPoint;

typedef struct CmsvCrlExtensions {
    CmsvIssuingDistPoint issuingDistributionPoint;
} CmsvCrlExtensions;

typedef struct CmsvTbsCertList {
    int32_t version;
    uint32_t reserved;
    CmsvAlgorithmIdentifier signature;
    CmsvX509Name issuer;
    CmsvAsnOcts thisUpdate;
    CmsvAsnOcts nextUpdate;
    CmsvRevokedList revokedCertificates;
    CmsvCrlExtensions crlExtensions;
} CmsvTbsCertList;

typedef struct CmsvCrl {
    CmsvAsnOcts tbsRaw;
    CmsvTbsCertList tbsCertList;
    CmsvAlgorithmIdentifier signatureAlgorithm;
    CmsvAsnOcts signatureValue;
    int32_t refCount;
} CmsvCrl;

typedef struct CmsvIssuerAndSerial {
    CmsvX509Name issuer;
    CmsvAsnOcts serialNumber;
} CmsvIssuerAndSerial;

typedef struct CmsvSignedAttrs {
    CmsvAsnOcts messageDigest;
} CmsvSignedAttrs;

typedef struct CmsvUnsignedAttrs {
    CmsvAsnOcts timeStampToken; /* raw, with its header */
} CmsvUnsignedAttrs;

typedef struct CmsvSignerInfo {
    int32_t version;
    uint32_t reserved;
    CmsvIssuerAndSerial issuerAndSerialNumber;
    CmsvAlgorithmIdentifier digestAlgorithm;
    CmsvAsnOcts signedAttrsRaw; /* recorded with the universal SET tag */
    CmsvSignedAttrs signedAttrs;
    CmsvAsnOcts encryptedDigest;
    CmsvUnsignedAttrs unsignedAttrs;
} CmsvSignerInfo;

typedef struct CmsvSignerInfoSet {
    uint32_t count;
    uint32_t reserved;
    CmsvSignerInfo items[CMSV_PKCS7_MAX_SIGNERS];
} CmsvSignerInfoSet;

/* Embedded certificates, each captured raw. */
typedef struct CmsvCertificateSet {
    uint32_t count;
    uint32_t reserved;
    CmsvAsnOcts items[CMSV_PKCS7_MAX_CERTS];
} CmsvCertificateSet;

typedef struct CmsvEncapContentInfo {
    CmsvAsnOcts contentType;
    CmsvAsnOcts content;
} CmsvEncapContentInfo;

typedef struct CmsvSignedDataBody {
    int32_t version;
    uint32_t reserved;
    CmsvEncapContentInfo encapContentInfo;
    CmsvCertificateSet certificates;
    CmsvSignerInfoSet signerInfos;
} CmsvSignedDataBody;

typedef struct CmsvSignedData {
    CmsvAsnOcts contentType;
    CmsvSignedDataBody signedData;
    CmsvList certs; /* decoded embedded certificates (CmsvCert *) */
} CmsvSignedData;

typedef struct CmsvMessageImprint {
    CmsvAlgorithmIdentifier hashAlgorithm;
    CmsvAsnOcts hashedMessage;
} CmsvMessageImprint;

typedef struct CmsvTstInfo {
    CmsvMessageImprint messageImprint;
    CmsvAsnOcts genTime;
} CmsvTstInfo;

/* ---- Store, context and CRL summaries ------------------------------------------ */

typedef struct CmsvPkiStore {
    CmsvList certs; /* CmsvCert *, one reference each */
    CmsvList crls;  /* CmsvCrl * */
} CmsvPkiStore;

/* One verification run. Allocated through the caller's malloc slot. */
struct CmsvVrfCtx {
    uint64_t size; /* 496, written last at creation */
    uint32_t crlLock;
    uint32_t reserved0;
    CmsvCallbackFuncs funcs;
    CmsvPkiStore *pkiStore;
    CmsvList signerWork;
    int64_t verifyTime;
    uint32_t lastCrlError;
    int32_t depth;
    uint32_t decodeFlags;
    uint8_t reserved1[68];
};

typedef struct CmsvSerial {
    uint8_t data[CMSV_SERIAL_MAX];
    uint32_t len;
} CmsvSerial;

typedef struct CmsvCrlInfo {
    uint32_t valid; /* 1 when the issuer's chain verified at thisUpdate */
    int64_t thisUpdate;
    int64_t nextUpdate;
    char issuer[CMSV_CRL_ISSUER_MAX];
    uint8_t issuerSerial[CMSV_SERIAL_MAX];
    uint32_t issuerSerialLen;
    CmsvSerial *revokedSerials; /* only for a CRL signed by a root */
    uint32_t revokedCount;
} CmsvCrlInfo;

typedef struct CmsvCrlInfoList {
    uint64_t size; /* 208 */
    CmsvCrlInfo *items[CMSV_LIST_CAPACITY];
    uint32_t count;
    uint32_t reserved0;
    uint8_t reserved1[64];
} CmsvCrlInfoList;

/* ---- Support ------------------------------------------------------------------ */

TAVO_API uint32_t cmsv_verify_create_ctx(CmsvVrfCtx **out, const CmsvCreateParams *params);
TAVO_API uint32_t cmsv_vrf_ctx_free(CmsvVrfCtx *ctx);
/* A 17-character constant text; never freed. */
TAVO_API const char *cmsv_get_version(void);

TAVO_API uint32_t cmsv_malloc(CmsvVrfCtx *ctx, void **out, size_t size);
TAVO_API uint32_t cmsv_malloc_with0(CmsvVrfCtx *ctx, void **out, size_t size);
TAVO_API void cmsv_free(CmsvVrfCtx *ctx, void *p);
TAVO_API uint32_t cmsv_memset_s(CmsvVrfCtx *ctx, void *dest, size_t destMax, int c, size_t count);
TAVO_API uint32_t cmsv_memcpy_s(CmsvVrfCtx *ctx, void *dest, size_t destMax, const void *src,
                                size_t count);
TAVO_API int32_t cmsv_memcmp(CmsvVrfCtx *ctx, const void *a, const void *b, size_t count);
TAVO_API int32_t cmsv_strncmp(CmsvVrfCtx *ctx, const char *a, const char *b, size_t count);
TAVO_API int32_t cmsv_strcmp(CmsvVrfCtx *ctx, const char *a, const char *b);
TAVO_API char *cmsv_strstr(CmsvVrfCtx *ctx, const char *a, const char *b);
TAVO_API char *cmsv_strchr(CmsvVrfCtx *ctx, const char *s, int c);
TAVO_API size_t cmsv_strlen(CmsvVrfCtx *ctx, const char *s);
TAVO_API uint32_t cmsv_strcpy_s(CmsvVrfCtx *ctx, char *dest, size_t destMax, const char *src);
TAVO_API uint32_t cmsv_strcat_s(CmsvVrfCtx *ctx, char *dest, size_t destMax, const char *src);

TAVO_API uint32_t cmsv_md_ctx_create(CmsvVrfCtx *ctx, void **md);
TAVO_API uint32_t cmsv_md_init(CmsvVrfCtx *ctx, void *md, uint32_t hashId);
TAVO_API uint32_t cmsv_md_update(CmsvVrfCtx *ctx, void *md, const uint8_t *data, uint32_t len);
TAVO_API uint32_t cmsv_md_final(CmsvVrfCtx *ctx, void *md, uint8_t *digest, uint32_t *len);
TAVO_API void cmsv_md_ctx_destory(CmsvVrfCtx *ctx, void *md);
TAVO_API uint32_t cmsv_verify_ctx_create(CmsvVrfCtx *ctx, void **vrf);
TAVO_API uint32_t cmsv_verify_init(CmsvVrfCtx *ctx, void *vrf, const CmsvKeyPart *e,
                                   const CmsvKeyPart *n, uint32_t hashId);
TAVO_API uint32_t cmsv_verify_update(CmsvVrfCtx *ctx, void *vrf, const uint8_t *data, uint32_t len);
TAVO_API uint32_t cmsv_verify_final(CmsvVrfCtx *ctx, void *vrf, const uint8_t *sig, uint32_t sigLen,
                                    uint32_t *result);
TAVO_API void cmsv_verify_ctx_destory(CmsvVrfCtx *ctx, void *vrf);

TAVO_API uint32_t cmsv_buf_init(CmsvBuf *buf, const uint8_t *data, uint32_t size);
TAVO_API uint32_t cmsv_buf_get(CmsvBuf *buf, uint8_t *out);
/* Only whence 1 (relative to the current position) is supported. */
TAVO_API uint32_t cmsv_buf_seek(CmsvBuf *buf, int32_t offset, int32_t whence);

typedef void (*CmsvListFreeFunc)(CmsvVrfCtx *ctx, void *item);
/* A positive result means a goes after b. */
typedef int32_t (*CmsvListCompareFunc)(const void *a, const void *b);
TAVO_API uint32_t cmsv_list_add(CmsvList *list, void *item);
TAVO_API void cmsv_list_free(CmsvVrfCtx *ctx, CmsvList *list, CmsvListFreeFunc freeItem);
TAVO_API uint32_t cmsv_list_sort(CmsvList *list, CmsvListCompareFunc compare);

TAVO_API uint32_t cmsv_convert_from_time(const CmsvAsnOcts *time, CmsvDateTime *out);
TAVO_API uint64_t cmsv_mktime(const CmsvDateTime *time);
TAVO_API uint32_t cmsv_convert_datetime_to_time(const CmsvAsnOcts *time, int64_t *seconds);

/* ---- Template decoder and OIDs ------------------------------------------------ */

/* Decodes one element of `item` into a new zero-filled record; trailing bytes are
 * reported through *consumed. Free the record with cmsv_asn_free. */
TAVO_API uint32_t cmsv_asn_decode(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                  const CmsvAsnItem *item, uint8_t flags, void **out,
                                  uint32_t *consumed);
TAVO_API void cmsv_asn_free(CmsvVrfCtx *ctx, void *record);
TAVO_API const CmsvAsnOcts *cmsv_find_oid(uint32_t id);
TAVO_API uint32_t cmsv_find_aoid(CmsvVrfCtx *ctx, const CmsvAsnOcts *oid);
TAVO_API uint32_t cmsv_compare_asn_octs(CmsvVrfCtx *ctx, const CmsvAsnOcts *a,
                                        const CmsvAsnOcts *b);
TAVO_API uint32_t cmsv_get_hash_aoid_from_sign(CmsvVrfCtx *ctx,
                                               const CmsvAlgorithmIdentifier *algorithm);

extern TAVO_API const CmsvAsnItem CMSV_ASN_OCTS_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_BIGINT_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_SEQ_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_SET_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_BITS_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_INT_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_ENUM_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_BOOL_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_ALGO_IDENTIFIER_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_NAME_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_EXTENSION_ENTRY_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_BASIC_CONSTRAINTS_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_CERT_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_CRL_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_ISSUING_DIST_POINT_item;
extern TAVO_API const CmsvAsnItem CMSV_ASN_OID_BUNDLE_item;
extern TAVO_API const CmsvAsnItem CMSV_PKCS7_ISSUER_AND_SERIAL_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_SIGNED_ATTRS_item;
extern TAVO_API const CmsvAsnItem CMSV_X509_UNSIGNED_ATTRS_item;
extern TAVO_API const CmsvAsnItem CMSV_PKCS7_SIGNER_INFO_item;
extern TAVO_API const CmsvAsnItem CMSV_PKCS7_SIGNER_INFO_BUNDLE_item;
extern TAVO_API const CmsvAsnItem CMSV_PKCS7_CONTENT_INFO_item;
extern TAVO_API const CmsvAsnItem CMSV_PKCS7_SIGNED_DATA_item;
extern TAVO_API const CmsvAsnItem CMSV_PKCS7_CONTENT_item;
extern TAVO_API const CmsvAsnItem CMSV_TS_MSG_IMPRINT_item;
extern TAVO_API const CmsvAsnItem CMSV_TST_INFO_item;

/* ---- Certificates and CRLs ---------------------------------------------------- */

TAVO_API uint32_t cmsv_x509_decode_cert(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                        CmsvCert **out, uint32_t *consumed);
TAVO_API uint32_t cmsv_x509_decode_crl(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                       CmsvCrl **out, uint32_t *consumed);
/* Drop one reference; the record is freed when none is left. Null is ignored. */
TAVO_API void cmsv_x509_free_cert(CmsvVrfCtx *ctx, CmsvCert *cert);
TAVO_API void cmsv_x509_free_crl(CmsvVrfCtx *ctx, CmsvCrl *crl);
/* 0 equal, 0xFFFFFFFF different (first attribute of each RDN, byte-exact). */
TAVO_API uint32_t cmsv_compare_x509_name(CmsvVrfCtx *ctx, const CmsvX509Name *a,
                                         const CmsvX509Name *b);
TAVO_API uint32_t cmsv_x509_is_self_signed(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t *flag);
TAVO_API uint32_t cmsv_x509_extract_public_key(CmsvVrfCtx *ctx, const CmsvCert *cert,
                                               CmsvKeyPart *e, CmsvKeyPart *n);
/* *result is 1 when the signature over data verifies with the key. */
TAVO_API uint32_t cmsv_x509_pkey_verify(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t dataLen,
                                        const uint8_t *sig, uint32_t sigLen,
                                        const CmsvRsaPublicKey *key,
                                        const CmsvAlgorithmIdentifier *sigAlgorithm,
                                        uint32_t *result);
TAVO_API const CmsvExtension *cmsv_x509_find_extn_by_aoid(CmsvVrfCtx *ctx,
                                                          const CmsvExtensionList *list,
                                                          uint32_t id);
/* Readable name ("CN=...,O=..."), at most 255 characters; free with cmsv_free. */
TAVO_API uint32_t cmsv_convert_from_x509_name(CmsvVrfCtx *ctx, const CmsvX509Name *name, char **out,
                                              uint32_t *len);
TAVO_API uint32_t cmsv_decode_crl(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                  CmsvCrlInfoList **out);
TAVO_API uint32_t cmsv_crl_free(CmsvVrfCtx *ctx, CmsvCrlInfoList *list);
/* *result: 0 same, 1 a is newer, 2 b is newer, 3 cannot be ordered. */
TAVO_API uint32_t cmsv_crl_compare(CmsvVrfCtx *ctx, const CmsvCrlInfoList *a,
                                   const CmsvCrlInfoList *b, uint32_t *result);

/* ---- Trust store and paths ----------------------------------------------------- */

TAVO_API uint32_t cmsv_pki_init(CmsvVrfCtx *ctx);
TAVO_API void cmsv_pki_uninit(CmsvVrfCtx *ctx);
TAVO_API uint32_t cmsv_pki_store_add_cert(CmsvVrfCtx *ctx, CmsvCert *cert);
TAVO_API uint32_t cmsv_pki_store_add_crl(CmsvVrfCtx *ctx, CmsvCrl *crl);
TAVO_API CmsvCert *cmsv_pki_find_cert_by_issuer_sn(CmsvVrfCtx *ctx, const CmsvX509Name *issuer,
                                                   const CmsvAsnOcts *serial);
TAVO_API CmsvCert *cmsv_pki_find_crl_issuer(CmsvVrfCtx *ctx, const CmsvCrl *crl);
/* mode 1 for time-stamping chains and CRL signers, 0 for code signing. */
TAVO_API uint32_t cmsv_pki_verify_cert(CmsvVrfCtx *ctx, CmsvCert *cert, uint32_t resetDepth,
                                       uint32_t mode, uint32_t *ok);
TAVO_API uint32_t cmsv_verify_add_cert(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len);
TAVO_API uint32_t cmsv_verify_add_crl(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len);

/* ---- Detached PKCS#7 signatures -------------------------------------------------- */

TAVO_API uint32_t cmsv_pkcs7_decode_signed(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t len,
                                           CmsvSignedData **out, uint32_t *consumed);
TAVO_API void cmsv_pkcs7_free_signed(CmsvVrfCtx *ctx, CmsvSignedData *signedData);
TAVO_API uint32_t cmsv_verify_detach_signature_begin(CmsvVrfCtx *ctx, const uint8_t *sig,
                                                     uint32_t len);
TAVO_API uint32_t cmsv_verify_detach_signature_update(CmsvVrfCtx *ctx, const uint8_t *data,
                                                      uint32_t len);
/* *result is 1 when every digest and signature matched. A context without work
 * items reports 1: treat a failed begin or update as failure yourself. */
TAVO_API uint32_t cmsv_verify_detach_signature_final(CmsvVrfCtx *ctx, uint32_t *result);

#ifdef __cplusplus
}
#endif

#endif
