// Templates of every structure the engine decodes, each beside its grammar.
// Records are the structs of tavo/cmsv.h; field offsets come from offsetof.
#include <cstddef>
#include <cstdint>

#include "cmsv/cmsv_asn_decode.h"
#include "tavo/cmsv.h"

namespace {

constexpr uint32_t kUniversal = 0;
constexpr uint32_t kPrimitive = 0;
constexpr uint32_t kConstructed = 1;
constexpr uint32_t kAny = CMSV_ASN_ANY;

constexpr uint32_t kBoolean = 1;
constexpr uint32_t kInteger = 2;
constexpr uint32_t kBitString = 3;
constexpr uint32_t kOctetString = 4;
constexpr uint32_t kOid = 6;
constexpr uint32_t kEnumerated = 10;
constexpr uint32_t kSequence = 16;
constexpr uint32_t kSet = 17;

constexpr uint16_t kOptional = CMSV_ASN_FLAG_OPTIONAL;
constexpr uint16_t kDefault = CMSV_ASN_FLAG_DEFAULT;
constexpr uint16_t kPeek = CMSV_ASN_FLAG_PEEK;
constexpr uint16_t kRaw = CMSV_ASN_FLAG_RAW;
constexpr uint16_t kSkip = CMSV_ASN_FLAG_SKIP;

// A field decoded into the parent record at `offset`.
constexpr CmsvAsnField at(const CmsvAsnItem &item, uint64_t offset, uint16_t flags = 0) {
    return {&item, 0, CMSV_ASN_TAG_NONE, flags, offset, 0};
}
// A field that is checked and stepped over.
constexpr CmsvAsnField skip(const CmsvAsnItem &item, uint16_t flags = 0) {
    return {&item, 0, CMSV_ASN_TAG_NONE, static_cast<uint16_t>(flags | kSkip), 0, 0};
}
// [n] EXPLICIT value.
constexpr CmsvAsnField explicit_tag(uint32_t n, const CmsvAsnItem &item, uint64_t offset,
                                    uint16_t flags = 0) {
    return {&item, n, CMSV_ASN_TAG_EXPLICIT, flags, offset, 0};
}
// [n] IMPLICIT value.
constexpr CmsvAsnField implicit_tag(uint32_t n, const CmsvAsnItem &item, uint64_t offset,
                                    uint16_t flags = 0) {
    return {&item, n, CMSV_ASN_TAG_IMPLICIT, flags, offset, 0};
}
// The element of a SET OF / SEQUENCE OF, at most `max` of them.
constexpr CmsvAsnField elements(const CmsvAsnItem &item, uint64_t max, uint16_t flags = 0) {
    return {&item, 0, CMSV_ASN_TAG_NONE, flags, 0, max};
}
// An extension or attribute picked out of a map by its OID identifier.
constexpr CmsvAsnField entry(uint32_t aoid, const CmsvAsnItem &item, uint64_t offset,
                             uint16_t flags = kOptional) {
    return {&item, aoid, CMSV_ASN_TAG_NONE, flags, offset, 0};
}

constexpr CmsvAsnItem primitive(const CmsvAsnFuncs &funcs, uint32_t cls, uint32_t constructed,
                                uint32_t tag, uint64_t size) {
    return {nullptr, &funcs, cls, constructed, tag, 0, size};
}
template <uint32_t N>
constexpr CmsvAsnItem structured(const CmsvAsnFuncs &funcs, const CmsvAsnField (&fields)[N],
                                 uint32_t tag, uint64_t size) {
    return {fields, &funcs, kUniversal, tag == kBitString ? kPrimitive : kConstructed,
            tag,    N,      size};
}

constexpr uint64_t kOctsSize = sizeof(CmsvAsnOcts);
constexpr uint64_t kWordSize = sizeof(int32_t);

// Unnamed building blocks.
const CmsvAsnItem kOidItem = primitive(g_cvbAsnFuncOct, kUniversal, kPrimitive, kOid, kOctsSize);
const CmsvAsnItem kOctetStringItem =
    primitive(g_cvbAsnFuncOct, kUniversal, kPrimitive, kOctetString, kOctsSize);
// UTCTime or GeneralizedTime; the time conversion checks which.
const CmsvAsnItem kTimeItem = primitive(g_cvbAsnFuncOct, kUniversal, kPrimitive, kAny, kOctsSize);
const CmsvAsnItem kKeyUsageItem =
    primitive(g_cvbAsnFuncBitsToInt, kUniversal, kPrimitive, kBitString, kWordSize);
const CmsvAsnItem kExtKeyUsageItem =
    primitive(g_cvbAsnFuncExku, kUniversal, kConstructed, kSequence, kWordSize);

// AttributeTypeAndValue ::= SEQUENCE { type OID, value ANY }
const CmsvAsnField kAttributeFields[] = {
    at(kOidItem, offsetof(CmsvAttributeTypeValue, type)),
    at(CMSV_ASN_OCTS_item, offsetof(CmsvAttributeTypeValue, value)),
};
const CmsvAsnItem kAttributeItem =
    structured(g_cvbAsnFuncSeq, kAttributeFields, kSequence, sizeof(CmsvAttributeTypeValue));

// RelativeDistinguishedName ::= SET SIZE (1..10) OF AttributeTypeAndValue
const CmsvAsnField kRdnFields[] = {elements(kAttributeItem, CMSV_RDN_MAX_ATTRIBUTES)};
const CmsvAsnItem kRdnItem = structured(g_cvbAsnFuncSetOf, kRdnFields, kSet, sizeof(CmsvRdn));

// Validity ::= SEQUENCE { notBefore Time, notAfter Time }
const CmsvAsnField kValidityFields[] = {
    at(kTimeItem, offsetof(CmsvValidity, notBefore)),
    at(kTimeItem, offsetof(CmsvValidity, notAfter)),
};
const CmsvAsnItem kValidityItem =
    structured(g_cvbAsnFuncSeq, kValidityFields, kSequence, sizeof(CmsvValidity));

// subjectPublicKey BIT STRING holding
//   RSAPublicKey ::= SEQUENCE { modulus INTEGER, publicExponent INTEGER }
const CmsvAsnField kRsaKeyFields[] = {
    at(CMSV_ASN_BIGINT_item, offsetof(CmsvRsaPublicKey, modulus)),
    at(CMSV_ASN_BIGINT_item, offsetof(CmsvRsaPublicKey, publicExponent)),
};
const CmsvAsnItem kRsaKeySeqItem =
    structured(g_cvbAsnFuncSeq, kRsaKeyFields, kSequence, sizeof(CmsvRsaPublicKey));
const CmsvAsnField kRsaKeyInBitsFields[] = {at(kRsaKeySeqItem, 0)};
// BIT STRING { 00, RSAPublicKey }
const CmsvAsnItem kRsaKeyItem =
    structured(g_cvbAsnFuncSeq, kRsaKeyInBitsFields, kBitString, sizeof(CmsvRsaPublicKey));

// SubjectPublicKeyInfo ::= SEQUENCE { algorithm AlgorithmIdentifier,
//                                     subjectPublicKey BIT STRING }
const CmsvAsnField kSpkiFields[] = {
    at(CMSV_X509_ALGO_IDENTIFIER_item, offsetof(CmsvSubjectPublicKeyInfo, algorithm)),
    at(kRsaKeyItem, offsetof(CmsvSubjectPublicKeyInfo, rsaKey)),
};
const CmsvAsnItem kSpkiItem =
    structured(g_cvbAsnFuncSeq, kSpkiFields, kSequence, sizeof(CmsvSubjectPublicKeyInfo));

// Extensions ::= SEQUENCE OF Extension; the three the engine reads.
const CmsvAsnField kCertExtensionFields[] = {
    entry(AOID_CE_BASICCONSTRAINTS, CMSV_X509_BASIC_CONSTRAINTS_item,
          offsetof(CmsvCertExtensions, basicConstraintsCa)),
    entry(AOID_CE_KEYUSAGE, kKeyUsageItem, offsetof(CmsvCertExtensions, keyUsage)),
    entry(AOID_CE_EXTKEYUSAGE, kExtKeyUsageItem, offsetof(CmsvCertExtensions, extKeyUsage)),
};
const CmsvAsnItem kCertExtensionsItem =
    structured(g_cvbAsnFuncMap, kCertExtensionFields, kSequence, sizeof(CmsvCertExtensions));

// TBSCertificate ::= SEQUENCE {
//   version [0] EXPLICIT INTEGER DEFAULT v1, serialNumber INTEGER,
//   signature AlgorithmIdentifier, issuer Name, validity Validity, subject Name,
//   subjectPublicKeyInfo SubjectPublicKeyInfo,
//   issuerUniqueID [1] IMPLICIT BIT STRING OPTIONAL,
//   subjectUniqueID [2] IMPLICIT BIT STRING OPTIONAL,
//   extensions [3] EXPLICIT Extensions OPTIONAL }
const CmsvAsnField kTbsCertFields[] = {
    {&CMSV_ASN_INT_item, 0, CMSV_ASN_TAG_EXPLICIT, kOptional | kSkip, 0, 0},
    at(CMSV_ASN_BIGINT_item, offsetof(CmsvTbsCertificate, serialNumber)),
    skip(CMSV_X509_ALGO_IDENTIFIER_item),
    at(CMSV_X509_NAME_item, offsetof(CmsvTbsCertificate, issuer)),
    at(kValidityItem, offsetof(CmsvTbsCertificate, validity)),
    at(CMSV_X509_NAME_item, offsetof(CmsvTbsCertificate, subject)),
    at(kSpkiItem, offsetof(CmsvTbsCertificate, subjectPublicKeyInfo)),
    {&CMSV_ASN_OCTS_item, 1, CMSV_ASN_TAG_IMPLICIT, kOptional | kSkip, 0, 0},
    {&CMSV_ASN_OCTS_item, 2, CMSV_ASN_TAG_IMPLICIT, kOptional | kSkip, 0, 0},
    explicit_tag(3, kCertExtensionsItem, offsetof(CmsvTbsCertificate, extensions), kOptional),
};
const CmsvAsnItem kTbsCertItem =
    structured(g_cvbAsnFuncSeq, kTbsCertFields, kSequence, sizeof(CmsvTbsCertificate));

// crlEntryExtensions: only reasonCode (CRLReason ::= ENUMERATED).
const CmsvAsnField kCrlEntryExtensionFields[] = {
    entry(AOID_CE_CRLREASONS, CMSV_ASN_ENUM_item, 0),
};
const CmsvAsnItem kCrlEntryExtensionsItem =
    structured(g_cvbAsnFuncMap, kCrlEntryExtensionFields, kSequence, kWordSize);

// SEQUENCE { userCertificate INTEGER, revocationDate Time,
//            crlEntryExtensions Extensions OPTIONAL }
const CmsvAsnField kRevokedEntryFields[] = {
    at(CMSV_ASN_BIGINT_item, offsetof(CmsvRevokedEntry, userCertificate)),
    at(kTimeItem, offsetof(CmsvRevokedEntry, revocationDate)),
    at(kCrlEntryExtensionsItem, offsetof(CmsvRevokedEntry, reasonCode), kOptional),
};
const CmsvAsnItem kRevokedEntryItem =
    structured(g_cvbAsnFuncSeq, kRevokedEntryFields, kSequence, sizeof(CmsvRevokedEntry));

// revokedCertificates SEQUENCE SIZE (1..20) OF entry
const CmsvAsnField kRevokedListFields[] = {elements(kRevokedEntryItem, CMSV_CRL_MAX_REVOKED)};
const CmsvAsnItem kRevokedListItem =
    structured(g_cvbAsnFuncSetOf, kRevokedListFields, kSequence, sizeof(CmsvRevokedList));

// crlExtensions: only issuingDistributionPoint.
const CmsvAsnField kCrlExtensionFields[] = {
    entry(AOID_CE_ISSUINGDISTRIBUTIONPOINT, CMSV_X509_ISSUING_DIST_POINT_item,
          offsetof(CmsvCrlExtensions, issuingDistributionPoint)),
};
const CmsvAsnItem kCrlExtensionsItem =
    structured(g_cvbAsnFuncMap, kCrlExtensionFields, kSequence, sizeof(CmsvCrlExtensions));

// TBSCertList ::= SEQUENCE {
//   version INTEGER (v2; required here), signature AlgorithmIdentifier,
//   issuer Name, thisUpdate Time, nextUpdate Time (required here),
//   revokedCertificates SEQUENCE OF ... OPTIONAL,
//   crlExtensions [0] EXPLICIT Extensions OPTIONAL }
const CmsvAsnField kTbsCrlFields[] = {
    at(CMSV_ASN_INT_item, offsetof(CmsvTbsCertList, version)),
    at(CMSV_X509_ALGO_IDENTIFIER_item, offsetof(CmsvTbsCertList, signature)),
    at(CMSV_X509_NAME_item, offsetof(CmsvTbsCertList, issuer)),
    at(kTimeItem, offsetof(CmsvTbsCertList, thisUpdate)),
    at(kTimeItem, offsetof(CmsvTbsCertList, nextUpdate)),
    at(kRevokedListItem, offsetof(CmsvTbsCertList, revokedCertificates), kOptional),
    explicit_tag(0, kCrlExtensionsItem, offsetof(CmsvTbsCertList, crlExtensions), kOptional),
};
const CmsvAsnItem kTbsCrlItem =
    structured(g_cvbAsnFuncSeq, kTbsCrlFields, kSequence, sizeof(CmsvTbsCertList));

// BasicConstraints record: cA only.
struct BasicConstraints {
    int32_t cA;
};

// CertificateSet ::= SET SIZE (1..2) OF CertificateChoices, each kept with its
// header so the certificate decoder can take it whole; the choice is checked there.
const CmsvAsnField kCertificateSetFields[] = {
    elements(CMSV_ASN_OCTS_item, CMSV_PKCS7_MAX_CERTS, kRaw),
};
const CmsvAsnItem kCertificateSetItem =
    structured(g_cvbAsnFuncSetOf, kCertificateSetFields, kSet, sizeof(CmsvCertificateSet));

// OidBundle record layout is shared with the extended key usage decoder.
static_assert(offsetof(CmsvOidBundle, oids) == 8);

}  // namespace

// Visibility comes from the declarations in tavo/cmsv.h (GCC ignores it when
// repeated on a variable's definition).
extern "C" {

const CmsvAsnItem CMSV_ASN_OCTS_item = primitive(g_cvbAsnFuncOct, kAny, kAny, kAny, kOctsSize);
// INTEGER captured as octets without a leading zero octet.
const CmsvAsnItem CMSV_ASN_BIGINT_item =
    primitive(g_cvbAsnFuncOct, kUniversal, kPrimitive, kInteger, kOctsSize);
const CmsvAsnItem CMSV_ASN_SEQ_item =
    primitive(g_cvbAsnFuncOct, kUniversal, kConstructed, kSequence, kOctsSize);
const CmsvAsnItem CMSV_ASN_SET_item =
    primitive(g_cvbAsnFuncOct, kUniversal, kConstructed, kSet, kOctsSize);
const CmsvAsnItem CMSV_ASN_BITS_item =
    primitive(g_cvbAsnFuncBits, kUniversal, kPrimitive, kBitString, kOctsSize);
const CmsvAsnItem CMSV_ASN_INT_item =
    primitive(g_cvbAsnFuncInt, kUniversal, kPrimitive, kInteger, kWordSize);
const CmsvAsnItem CMSV_ASN_ENUM_item =
    primitive(g_cvbAsnFuncInt, kUniversal, kPrimitive, kEnumerated, kWordSize);
const CmsvAsnItem CMSV_ASN_BOOL_item =
    primitive(g_cvbAsnFuncInt, kUniversal, kPrimitive, kBoolean, kWordSize);

// AlgorithmIdentifier ::= SEQUENCE { algorithm OID, parameters ANY OPTIONAL }
static const CmsvAsnField kAlgorithmFields[] = {
    at(kOidItem, offsetof(CmsvAlgorithmIdentifier, algorithm)),
    at(CMSV_ASN_OCTS_item, offsetof(CmsvAlgorithmIdentifier, parameters), kOptional),
};
const CmsvAsnItem CMSV_X509_ALGO_IDENTIFIER_item =
    structured(g_cvbAsnFuncSeq, kAlgorithmFields, kSequence, sizeof(CmsvAlgorithmIdentifier));

// Name ::= SEQUENCE SIZE (0..10) OF RelativeDistinguishedName
static const CmsvAsnField kNameFields[] = {elements(kRdnItem, CMSV_NAME_MAX_RDNS)};
const CmsvAsnItem CMSV_X509_NAME_item =
    structured(g_cvbAsnFuncSetOf, kNameFields, kSequence, sizeof(CmsvX509Name));

// Extension ::= SEQUENCE { extnID OID, critical BOOLEAN DEFAULT FALSE,
//                          extnValue OCTET STRING }
// Also reads an Attribute { type OID, values SET }: the BOOLEAN is then absent.
static const CmsvAsnField kExtensionFields[] = {
    at(kOidItem, offsetof(CmsvExtension, extnId)),
    at(CMSV_ASN_BOOL_item, offsetof(CmsvExtension, critical), kDefault),
    at(CMSV_ASN_OCTS_item, offsetof(CmsvExtension, extnValue)),
};
const CmsvAsnItem CMSV_X509_EXTENSION_ENTRY_item =
    structured(g_cvbAsnFuncSeq, kExtensionFields, kSequence, sizeof(CmsvExtension));

// BasicConstraints ::= SEQUENCE { cA BOOLEAN DEFAULT FALSE,
//                                 pathLenConstraint INTEGER OPTIONAL }
static const CmsvAsnField kBasicConstraintsFields[] = {
    at(CMSV_ASN_BOOL_item, offsetof(BasicConstraints, cA), kDefault),
    skip(CMSV_ASN_BIGINT_item, kOptional),
};
const CmsvAsnItem CMSV_X509_BASIC_CONSTRAINTS_item =
    structured(g_cvbAsnFuncSeq, kBasicConstraintsFields, kSequence, sizeof(BasicConstraints));

// Certificate ::= SEQUENCE { tbsCertificate TBSCertificate,
//                            signatureAlgorithm AlgorithmIdentifier,
//                            signatureValue BIT STRING }
// The TBSCertificate is first captured whole (what the signature covers).
static const CmsvAsnField kCertFields[] = {
    at(CMSV_ASN_SEQ_item, offsetof(CmsvCert, tbsRaw), kPeek | kRaw),
    at(kTbsCertItem, offsetof(CmsvCert, tbs)),
    at(CMSV_X509_ALGO_IDENTIFIER_item, offsetof(CmsvCert, signatureAlgorithm)),
    at(CMSV_ASN_BITS_item, offsetof(CmsvCert, signatureValue)),
};
const CmsvAsnItem CMSV_X509_CERT_item =
    structured(g_cvbAsnFuncSeq, kCertFields, kSequence, sizeof(CmsvCert));

// CertificateList ::= SEQUENCE { tbsCertList TBSCertList,
//                                signatureAlgorithm AlgorithmIdentifier,
//                                signatureValue BIT STRING }
static const CmsvAsnField kCrlFields[] = {
    at(CMSV_ASN_SEQ_item, offsetof(CmsvCrl, tbsRaw), kPeek | kRaw),
    at(kTbsCrlItem, offsetof(CmsvCrl, tbsCertList)),
    at(CMSV_X509_ALGO_IDENTIFIER_item, offsetof(CmsvCrl, signatureAlgorithm)),
    at(CMSV_ASN_BITS_item, offsetof(CmsvCrl, signatureValue)),
};
const CmsvAsnItem CMSV_X509_CRL_item =
    structured(g_cvbAsnFuncSeq, kCrlFields, kSequence, sizeof(CmsvCrl));

// IssuingDistributionPoint ::= SEQUENCE {
//   distributionPoint [0] DistributionPointName OPTIONAL,
//   onlyContainsUserCerts [1] BOOLEAN DEFAULT FALSE,
//   onlyContainsCACerts [2] BOOLEAN DEFAULT FALSE,
//   onlySomeReasons [3] ReasonFlags OPTIONAL,
//   indirectCRL [4] BOOLEAN DEFAULT FALSE,
//   onlyContainsAttributeCerts [5] BOOLEAN DEFAULT FALSE }   (IMPLICIT tags)
static const CmsvAsnField kIdpFields[] = {
    implicit_tag(0, CMSV_ASN_OCTS_item, offsetof(CmsvIssuingDistPoint, distributionPoint),
                 kOptional),
    implicit_tag(1, CMSV_ASN_BOOL_item, offsetof(CmsvIssuingDistPoint, onlyContainsUserCerts),
                 kOptional),
    implicit_tag(2, CMSV_ASN_BOOL_item, offsetof(CmsvIssuingDistPoint, onlyContainsCACerts),
                 kOptional),
    implicit_tag(3, CMSV_ASN_BITS_item, offsetof(CmsvIssuingDistPoint, onlySomeReasons), kOptional),
    implicit_tag(4, CMSV_ASN_BOOL_item, offsetof(CmsvIssuingDistPoint, indirectCRL), kOptional),
    implicit_tag(5, CMSV_ASN_BOOL_item, offsetof(CmsvIssuingDistPoint, onlyContainsAttributeCerts),
                 kOptional),
};
const CmsvAsnItem CMSV_X509_ISSUING_DIST_POINT_item =
    structured(g_cvbAsnFuncSeq, kIdpFields, kSequence, sizeof(CmsvIssuingDistPoint));

// SEQUENCE SIZE (1..10) OF OBJECT IDENTIFIER
static const CmsvAsnField kOidBundleFields[] = {elements(kOidItem, CMSV_EKU_MAX_OIDS)};
const CmsvAsnItem CMSV_ASN_OID_BUNDLE_item =
    structured(g_cvbAsnFuncSetOf, kOidBundleFields, kSequence, sizeof(CmsvOidBundle));

// IssuerAndSerialNumber ::= SEQUENCE { issuer Name, serialNumber INTEGER }
static const CmsvAsnField kIssuerAndSerialFields[] = {
    at(CMSV_X509_NAME_item, offsetof(CmsvIssuerAndSerial, issuer)),
    at(CMSV_ASN_BIGINT_item, offsetof(CmsvIssuerAndSerial, serialNumber)),
};
const CmsvAsnItem CMSV_PKCS7_ISSUER_AND_SERIAL_item =
    structured(g_cvbAsnFuncSeq, kIssuerAndSerialFields, kSequence, sizeof(CmsvIssuerAndSerial));

// SignedAttributes ::= SET OF Attribute; messageDigest ::= OCTET STRING
static const CmsvAsnField kSignedAttrsFields[] = {
    entry(AOID_PKCS9_AT_MESSAGEDIGEST, kOctetStringItem, offsetof(CmsvSignedAttrs, messageDigest)),
};
const CmsvAsnItem CMSV_X509_SIGNED_ATTRS_item =
    structured(g_cvbAsnFuncMap, kSignedAttrsFields, kSet, sizeof(CmsvSignedAttrs));

// UnsignedAttributes ::= SET OF Attribute; the time-stamp token (a ContentInfo)
// is kept with its header.
static const CmsvAsnField kUnsignedAttrsFields[] = {
    entry(AOID_PKCS9_AT_TIMESTAMP_TOKEN, CMSV_ASN_SEQ_item,
          offsetof(CmsvUnsignedAttrs, timeStampToken), kOptional | kRaw),
};
const CmsvAsnItem CMSV_X509_UNSIGNED_ATTRS_item =
    structured(g_cvbAsnFuncMap, kUnsignedAttrsFields, kSet, sizeof(CmsvUnsignedAttrs));

// SignerInfo ::= SEQUENCE {
//   version INTEGER, sid IssuerAndSerialNumber,
//   digestAlgorithm AlgorithmIdentifier,
//   signedAttrs [0] IMPLICIT SET OF Attribute OPTIONAL,
//   signatureAlgorithm AlgorithmIdentifier, signature OCTET STRING,
//   unsignedAttrs [1] IMPLICIT SET OF Attribute OPTIONAL }
// signedAttrs is captured whole first (peek) and recorded as a universal SET: the
// signature covers it with that tag.
static const CmsvAsnField kSignerInfoFields[] = {
    at(CMSV_ASN_INT_item, offsetof(CmsvSignerInfo, version)),
    at(CMSV_PKCS7_ISSUER_AND_SERIAL_item, offsetof(CmsvSignerInfo, issuerAndSerialNumber)),
    at(CMSV_X509_ALGO_IDENTIFIER_item, offsetof(CmsvSignerInfo, digestAlgorithm)),
    implicit_tag(0, CMSV_ASN_SET_item, offsetof(CmsvSignerInfo, signedAttrsRaw),
                 kOptional | kPeek | kRaw),
    implicit_tag(0, CMSV_X509_SIGNED_ATTRS_item, offsetof(CmsvSignerInfo, signedAttrs), kOptional),
    skip(CMSV_X509_ALGO_IDENTIFIER_item),
    at(kOctetStringItem, offsetof(CmsvSignerInfo, encryptedDigest)),
    implicit_tag(1, CMSV_X509_UNSIGNED_ATTRS_item, offsetof(CmsvSignerInfo, unsignedAttrs),
                 kOptional),
};
const CmsvAsnItem CMSV_PKCS7_SIGNER_INFO_item =
    structured(g_cvbAsnFuncSeq, kSignerInfoFields, kSequence, sizeof(CmsvSignerInfo));

// SignerInfos ::= SET SIZE (1) OF SignerInfo
static const CmsvAsnField kSignerInfoBundleFields[] = {
    elements(CMSV_PKCS7_SIGNER_INFO_item, CMSV_PKCS7_MAX_SIGNERS),
};
const CmsvAsnItem CMSV_PKCS7_SIGNER_INFO_BUNDLE_item =
    structured(g_cvbAsnFuncSetOf, kSignerInfoBundleFields, kSet, sizeof(CmsvSignerInfoSet));

// EncapsulatedContentInfo ::= SEQUENCE { eContentType OID,
//                                        eContent [0] EXPLICIT ANY OPTIONAL }
static const CmsvAsnField kContentInfoFields[] = {
    at(kOidItem, offsetof(CmsvEncapContentInfo, contentType)),
    explicit_tag(0, CMSV_ASN_OCTS_item, offsetof(CmsvEncapContentInfo, content), kOptional),
};
const CmsvAsnItem CMSV_PKCS7_CONTENT_INFO_item =
    structured(g_cvbAsnFuncSeq, kContentInfoFields, kSequence, sizeof(CmsvEncapContentInfo));

// SignedData ::= SEQUENCE {
//   version INTEGER, digestAlgorithms SET OF AlgorithmIdentifier,
//   encapContentInfo EncapsulatedContentInfo,
//   certificates [0] IMPLICIT CertificateSet OPTIONAL,
//   crls [1] IMPLICIT RevocationInfoChoices OPTIONAL,
//   signerInfos SignerInfos }
static const CmsvAsnField kSignedDataFields[] = {
    at(CMSV_ASN_INT_item, offsetof(CmsvSignedDataBody, version), kOptional),
    skip(CMSV_ASN_SET_item),
    at(CMSV_PKCS7_CONTENT_INFO_item, offsetof(CmsvSignedDataBody, encapContentInfo)),
    implicit_tag(0, kCertificateSetItem, offsetof(CmsvSignedDataBody, certificates), kOptional),
    {&CMSV_ASN_OCTS_item, 1, CMSV_ASN_TAG_IMPLICIT, kOptional | kSkip, 0, 0},
    at(CMSV_PKCS7_SIGNER_INFO_BUNDLE_item, offsetof(CmsvSignedDataBody, signerInfos)),
};
const CmsvAsnItem CMSV_PKCS7_SIGNED_DATA_item =
    structured(g_cvbAsnFuncSeq, kSignedDataFields, kSequence, sizeof(CmsvSignedDataBody));

// ContentInfo ::= SEQUENCE { contentType OID, content [0] EXPLICIT SignedData }
static const CmsvAsnField kContentFields[] = {
    at(kOidItem, offsetof(CmsvSignedData, contentType)),
    explicit_tag(0, CMSV_PKCS7_SIGNED_DATA_item, offsetof(CmsvSignedData, signedData)),
};
const CmsvAsnItem CMSV_PKCS7_CONTENT_item =
    structured(g_cvbAsnFuncSeq, kContentFields, kSequence, sizeof(CmsvSignedData));

// MessageImprint ::= SEQUENCE { hashAlgorithm AlgorithmIdentifier,
//                               hashedMessage OCTET STRING }
static const CmsvAsnField kMessageImprintFields[] = {
    at(CMSV_X509_ALGO_IDENTIFIER_item, offsetof(CmsvMessageImprint, hashAlgorithm)),
    at(kOctetStringItem, offsetof(CmsvMessageImprint, hashedMessage)),
};
const CmsvAsnItem CMSV_TS_MSG_IMPRINT_item =
    structured(g_cvbAsnFuncSeq, kMessageImprintFields, kSequence, sizeof(CmsvMessageImprint));

// TSTInfo ::= SEQUENCE {
//   version INTEGER, policy OID, messageImprint MessageImprint,
//   serialNumber INTEGER, genTime GeneralizedTime,
//   accuracy Accuracy OPTIONAL, ordering BOOLEAN DEFAULT FALSE,
//   nonce INTEGER OPTIONAL, tsa [0] GeneralName OPTIONAL,
//   extensions [1] IMPLICIT Extensions OPTIONAL }
static const CmsvAsnField kTstInfoFields[] = {
    skip(CMSV_ASN_INT_item),
    skip(kOidItem),
    at(CMSV_TS_MSG_IMPRINT_item, offsetof(CmsvTstInfo, messageImprint)),
    skip(CMSV_ASN_BIGINT_item),
    at(kTimeItem, offsetof(CmsvTstInfo, genTime)),
    skip(CMSV_ASN_SEQ_item, kOptional),
    skip(CMSV_ASN_BOOL_item, kDefault),
    skip(CMSV_ASN_BIGINT_item, kOptional),
    {&CMSV_ASN_OCTS_item, 0, CMSV_ASN_TAG_EXPLICIT, kOptional | kSkip, 0, 0},
    {&CMSV_ASN_OCTS_item, 1, CMSV_ASN_TAG_IMPLICIT, kOptional | kSkip, 0, 0},
};
const CmsvAsnItem CMSV_TST_INFO_item =
    structured(g_cvbAsnFuncSeq, kTstInfoFields, kSequence, sizeof(CmsvTstInfo));

}  // extern "C"
