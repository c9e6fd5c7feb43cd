// tavo::pki: test and release PKI material on OpenSSL 3's libcrypto.
//
// Keys, X.509 certificates, CRLs, detached CMS signatures, RFC 3161
// time-stamp tokens and upgrade packages. Everything is value-typed: Key and
// Cert share the underlying OpenSSL object and are cheap to copy. Every
// function throws tavo::pki::Error on failure (with OpenSSL's reason
// appended); nothing returns a half-built object.
#pragma once

#include <openssl/types.h>

#include <array>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tavo::pki {

using Bytes = std::vector<uint8_t>;

struct Error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// ---------------------------------------------------------------- files, time

Bytes read_file(const std::filesystem::path &path);
void write_file(const std::filesystem::path &path, const Bytes &data);

// Seconds since 1970 UTC for a calendar date (no time zone involved).
std::time_t utc(int year, int month, int day, int hour = 0, int minute = 0, int second = 0);

// Parses "YYYY-MM-DDTHH:MM:SSZ", "YYYYMMDDHHMMSSZ" or a plain number of
// seconds since 1970. Throws Error on anything else.
std::time_t parse_time(const std::string &text);
// "YYYY-MM-DDTHH:MM:SSZ".
std::string format_time(std::time_t t);

// Lowercase hexadecimal, and back (the reverse accepts either case, throws on
// odd length or non-hex characters).
std::string hex(const Bytes &data);
Bytes from_hex(const std::string &text);

// Digest of data with "sha1", "sha256", "sha384" or "sha512".
Bytes digest(const std::string &name, const Bytes &data);

// ---------------------------------------------------------------------- keys

class Key {
  public:
    Key() = default;
    explicit Key(EVP_PKEY *owned);  // takes ownership
    EVP_PKEY *get() const { return k_.get(); }
    explicit operator bool() const { return k_ != nullptr; }

  private:
    std::shared_ptr<EVP_PKEY> k_;
};

// A fresh RSA key (e = 65537).
Key make_rsa_key(int bits);
// Unencrypted PEM (PKCS#8 "PRIVATE KEY" or traditional "RSA PRIVATE KEY").
Key load_key(const std::filesystem::path &path);
Key parse_key_pem(const std::string &pem);
// Unencrypted PKCS#8 PEM.
void save_key(const Key &key, const std::filesystem::path &path);
std::string key_pem(const Key &key);
// DER SubjectPublicKeyInfo.
Bytes public_der(const Key &key);

// ------------------------------------------------------------- certificates

// A distinguished name, RDN by RDN in encoding order; an RDN with several
// attributes is multi-valued. Attribute types are short names ("CN", "O",
// "OU", "C", "L", "ST", "emailAddress", ...) or dotted OIDs; values are UTF-8.
struct Name {
    std::vector<std::vector<std::pair<std::string, std::string>>> rdns;
};
// One RDN per pair, in order: name({{"O","tavo"},{"CN","root"}}).
Name name(std::initializer_list<std::pair<std::string, std::string>> attributes);

// KeyUsage bits in X.509 order: bit n of the mask is named bit n.
inline constexpr unsigned kDigitalSignature = 1u << 0;
inline constexpr unsigned kNonRepudiation = 1u << 1;
inline constexpr unsigned kKeyEncipherment = 1u << 2;
inline constexpr unsigned kDataEncipherment = 1u << 3;
inline constexpr unsigned kKeyAgreement = 1u << 4;
inline constexpr unsigned kKeyCertSign = 1u << 5;
inline constexpr unsigned kCrlSign = 1u << 6;
inline constexpr unsigned kEncipherOnly = 1u << 7;
inline constexpr unsigned kDecipherOnly = 1u << 8;

// An extension taken as is. value is the DER that goes inside extnValue.
struct Extension {
    std::string oid;  // dotted
    bool critical = false;
    Bytes value;
};

struct CertProfile {
    Name subject;
    Bytes serial{0x01};  // big-endian magnitude; a leading 0x00 is added when needed
    std::time_t not_before = 0;
    std::time_t not_after = 0;
    bool ca = false;  // basicConstraints cA TRUE (critical); false: no basicConstraints
    std::optional<int> path_len;
    // KeyUsage (critical). Encoded in one byte when every bit is below 8, in
    // two bytes otherwise or when key_usage_two_bytes is set. DER trailing-bit
    // minimisation is not applied to the forced form.
    std::optional<unsigned> key_usage;
    bool key_usage_two_bytes = false;
    // ExtKeyUsage OIDs or names ("codeSigning", "timeStamping", "serverAuth",
    // ...), encoded in this order. Empty: no extension.
    std::vector<std::string> eku;
    bool eku_critical = false;
    bool subject_key_id = true;    // SKI from the SHA-1 of the public key
    bool authority_key_id = true;  // AKI keyIdentifier of the issuer (not on self-signed)
    std::string digest = "sha256";
    bool generalized_time = false;  // GeneralizedTime for both dates even before 2050
    std::vector<Extension> extra;   // appended after the standard ones
};

class Cert {
  public:
    Cert() = default;
    explicit Cert(X509 *owned);  // takes ownership
    X509 *get() const { return c_.get(); }
    explicit operator bool() const { return c_ != nullptr; }

  private:
    std::shared_ptr<X509> c_;
};

// Issues a v3 certificate for subject_key. issuer null: self-signed (issuer
// name = subject, signed by issuer_key, which should be subject_key).
Cert issue(const CertProfile &profile, const Key &subject_key, const Cert *issuer,
           const Key &issuer_key);

Bytes der(const Cert &cert);
std::string cert_pem(const Cert &cert);
Cert parse_cert(const Bytes &der_or_pem);
Cert load_cert(const std::filesystem::path &path);  // DER or PEM
void save_cert_der(const Cert &cert, const std::filesystem::path &path);
void save_cert_pem(const Cert &cert, const std::filesystem::path &path);

// One-line RFC 2253 forms, and the serial as big-endian bytes.
std::string subject_text(const Cert &cert);
std::string issuer_text(const Cert &cert);
Bytes serial(const Cert &cert);
std::time_t not_before(const Cert &cert);
std::time_t not_after(const Cert &cert);

// --------------------------------------------------------------------- CRLs

struct Revoked {
    Bytes serial;
    std::time_t when = 0;
    std::optional<int> reason;  // CRLReason code; none: no reason extension
};

struct CrlProfile {
    std::time_t this_update = 0;
    std::time_t next_update = 0;
    std::vector<Revoked> revoked;
    bool with_idp = false;  // issuingDistributionPoint (critical)
    bool indirect = false;  // ... with indirectCRL TRUE (implies with_idp)
    std::optional<long> crl_number = 1;
    std::string digest = "sha256";
    std::optional<long> version_override;  // raw version INTEGER (default 1 = v2)
};

// DER CertificateList signed by issuer_key, issuer name from issuer.
Bytes make_crl(const CrlProfile &profile, const Cert &issuer, const Key &issuer_key);

struct CrlInfo {
    std::string issuer;
    std::time_t this_update = 0;
    std::optional<std::time_t> next_update;
    std::vector<Revoked> revoked;
};
// Reads one DER CRL.
CrlInfo describe_crl(const Bytes &der);
// Splits concatenated DER objects (a CRL or certificate bundle) at their
// outer TLV boundaries. Throws on a malformed length.
std::vector<Bytes> split_der(const Bytes &bundle);

// ---------------------------------------------------------------------- CMS

struct SignProfile {
    std::string digest = "sha256";
    bool signed_attrs = true;    // contentType, messageDigest, signingTime
    bool signer_by_ski = false;  // SignerIdentifier: subjectKeyIdentifier, not issuerAndSerial
    bool detached = true;        // false: content carried as eContent
    // Certificates to embed (a DER SET: the encoding sorts them). nullopt:
    // the signer only.
    std::optional<std::vector<const Cert *>> embed;
    // Further SignerInfos, with the same options.
    std::vector<std::pair<const Cert *, const Key *>> extra_signers;
};

// DER ContentInfo / SignedData over content, id-data, PKCS#1 v1.5.
Bytes sign_detached(const Bytes &content, const Cert &signer, const Key &key,
                    const SignProfile &profile = {});

// encryptedDigest (signature value) of the first SignerInfo.
Bytes signature_value(const Bytes &cms_der);
// Adds token as the unsigned attribute id-aa-timeStampToken
// (1.2.840.113549.1.9.16.2.14) to the first SignerInfo and re-encodes.
Bytes attach_timestamp(const Bytes &cms_der, const Bytes &token);
// The token attached to the first SignerInfo; nullopt when there is none.
std::optional<Bytes> timestamp_of(const Bytes &cms_der);
// Embedded certificates, in encoding order.
std::vector<Cert> embedded_certs(const Bytes &cms_der);

struct SignerSummary {
    std::string issuer;  // issuer and serial of the SignerIdentifier, or
    Bytes serial;        // empty with key_id set
    Bytes key_id;
    std::string digest;  // short name of digestAlgorithm
    bool signed_attrs = false;
};
std::vector<SignerSummary> signers(const Bytes &cms_der);

// --------------------------------------------------------------- time-stamps

struct TsProfile {
    std::time_t gen_time = 0;
    std::string digest = "sha256";         // messageImprint hash
    std::string signer_digest = "sha256";  // token SignerInfo digest
    bool signed_attrs = true;              // contentType, messageDigest, signingCertificateV2
    std::optional<Bytes> nonce;
    Bytes serial{0x01};
    bool fractional_seconds = false;  // genTime with ".5" milliseconds
    bool wrong_imprint = false;       // flips the last imprint byte
    std::string policy = "1.3.6.1.4.1.54392.5.1";
    // Certificates to embed in the token. nullopt: the TSA certificate only.
    std::optional<std::vector<const Cert *>> embed;
};

// TimeStampToken whose messageImprint is profile.digest over signature_value.
Bytes make_timestamp_token(const Bytes &signature_value, const Cert &tsa, const Key &tsa_key,
                           const TsProfile &profile);
// Same with the imprint given (hash algorithm profile.digest, hashed_message).
Bytes make_timestamp_token_for_imprint(const Bytes &hashed_message, const Cert &tsa,
                                       const Key &tsa_key, const TsProfile &profile);

struct TokenInfo {
    std::time_t gen_time = 0;
    std::string gen_time_text;  // as encoded
    std::string imprint_digest;
    Bytes imprint;
    Bytes serial;
    std::optional<Bytes> nonce;
    std::string policy;
    std::vector<SignerSummary> signers;
    std::vector<Cert> certs;
};
TokenInfo describe_token(const Bytes &token);

// RFC 3161 TimeStampReq (certReq TRUE) and TimeStampResp handling.
Bytes make_ts_request(const std::string &digest, const Bytes &hashed_message,
                      const std::optional<Bytes> &nonce);
// Answers a DER TimeStampReq with a granted TimeStampResp (or a rejection
// with status 2 for a request that cannot be parsed or an unknown hash).
Bytes answer_ts_request(const Bytes &request, const Cert &tsa, const Key &tsa_key, std::time_t now,
                        const Bytes &serial);
// The token of a granted TimeStampResp; throws with the status otherwise.
Bytes token_from_ts_response(const Bytes &response);

// ------------------------------------------------------------------ packages

// "Name: <name>\n<digest_word>: <lowercase hex of digest>\n"; the hash follows
// the word ("SHA256-Digest", "SHA384-Digest", "SHA512-Digest").
Bytes make_file_list(const Bytes &payload, const std::string &name = "payload.bin",
                     const std::string &digest_word = "SHA256-Digest");

// The seven header fields, in file order.
struct PackageHeader {
    uint32_t file_num = 3;
    uint32_t file1_id = 1;
    uint32_t file_list_len = 0;
    uint32_t file2_id = 2;
    uint32_t cms_sign_len = 0;
    uint32_t file3_id = 3;
    uint32_t crl_file_len = 0;
};
inline constexpr std::size_t kPackageHeaderSize = 56;

// 56 bytes: each field as 8 lowercase hex digits.
Bytes encode_header(const PackageHeader &header);
// 56 bytes from seven raw 8-character fields (shorter ones are padded on the
// right with spaces; longer ones throw), for malformed headers.
Bytes encode_header_text(const std::array<std::string, 7> &fields);
// Header with lengths from the sections, then the sections, payload last.
Bytes make_package(const Bytes &file_list, const Bytes &cms, const Bytes &crls,
                   const Bytes &payload);

struct Package {
    PackageHeader header;
    Bytes file_list, cms, crls, payload;
};
// Reads a package written with the canonical header (fields parsed as hex
// up to the first non-hex character); throws when sections overrun the file.
Package parse_package(const Bytes &data);

// ------------------------------------------------------- development PKI

// root (self-signed, RSA 3072) -> ca -> signer (codeSigning); root -> tsa
// (timeStamping, critical EKU); empty CRLs from root and from ca. Valid for
// 30 years from `now` minus one day.
struct DevPki {
    Key root_key, ca_key, signer_key, tsa_key;
    Cert root, ca, signer, tsa;
    Bytes root_crl, ca_crl;
};
DevPki make_dev_pki(std::time_t now, int root_bits = 3072, int leaf_bits = 2048);
// Files: root.der root.key ca.der ca.key signer.der signer.key tsa.der
// tsa.key root-crl.der ca-crl.der.
void save_dev_pki(const DevPki &pki, const std::filesystem::path &dir);
DevPki load_dev_pki(const std::filesystem::path &dir);

}  // namespace tavo::pki
