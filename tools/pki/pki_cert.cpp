// Keys and X.509 certificates.
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <cstring>

#include "pki_internal.h"

namespace tavo::pki {

using namespace detail;

Key::Key(EVP_PKEY *owned) : k_(owned, EVP_PKEY_free) {}
Cert::Cert(X509 *owned) : c_(owned, X509_free) {}

namespace {

std::string bio_text(BIO *bio) {
    char *data = nullptr;
    long len = BIO_get_mem_data(bio, &data);
    return std::string(data, static_cast<std::size_t>(len));
}

BioPtr mem_bio(const void *data, std::size_t size) {
    return BioPtr(check_ptr(BIO_new_mem_buf(data, static_cast<int>(size)), "BIO_new_mem_buf"));
}

void require_key(const Key &key) {
    if (!key) {
        throw Error("no key");
    }
}

NamePtr build_name(const Name &n) {
    NamePtr out(check_ptr(X509_NAME_new(), "X509_NAME_new"));
    for (const auto &rdn : n.rdns) {
        if (rdn.empty()) {
            throw Error("empty RDN in name");
        }
        int set = 0;  // first attribute opens a new RDN, the others join it
        for (const auto &[type, value] : rdn) {
            if (X509_NAME_add_entry_by_txt(out.get(), type.c_str(), MBSTRING_UTF8,
                                           reinterpret_cast<const unsigned char *>(value.c_str()),
                                           -1, -1, set) != 1) {
                fail("bad name attribute " + type + "=" + value);
            }
            set = -1;
        }
    }
    return out;
}

void add_ext(X509 *x, int nid, bool critical, void *value) {
    ExtPtr ext(check_ptr(X509V3_EXT_i2d(nid, critical ? 1 : 0, value), "X509V3_EXT_i2d"));
    check(X509_add_ext(x, ext.get(), -1) == 1, "X509_add_ext");
}

void add_raw_ext(X509 *x, const std::string &oid, bool critical, const Bytes &value) {
    ObjPtr obj(OBJ_txt2obj(oid.c_str(), 1));
    if (!obj) {
        fail("bad extension OID " + oid);
    }
    OctetPtr oct(check_ptr(ASN1_OCTET_STRING_new(), "ASN1_OCTET_STRING_new"));
    check(ASN1_OCTET_STRING_set(oct.get(), value.data(), static_cast<int>(value.size())) == 1,
          "ASN1_OCTET_STRING_set");
    ExtPtr ext(
        check_ptr(X509_EXTENSION_create_by_OBJ(nullptr, obj.get(), critical ? 1 : 0, oct.get()),
                  "X509_EXTENSION_create_by_OBJ"));
    check(X509_add_ext(x, ext.get(), -1) == 1, "X509_add_ext");
}

// KeyUsage ::= BIT STRING, named bit n at byte n/8, mask 0x80 >> n%8.
Bytes key_usage_der(unsigned mask, bool two_bytes) {
    if (mask >> 9 != 0) {
        throw Error("key usage mask has bits beyond decipherOnly");
    }
    uint8_t b0 = 0, b1 = 0;
    for (unsigned bit = 0; bit < 9; ++bit) {
        if ((mask & (1u << bit)) != 0) {
            (bit < 8 ? b0 : b1) |= static_cast<uint8_t>(0x80u >> (bit % 8));
        }
    }
    auto trailing = [](uint8_t b) -> uint8_t {
        uint8_t n = 0;
        while (n < 7 && (b & (1u << n)) == 0) {
            ++n;
        }
        return b == 0 ? 0 : n;
    };
    if (!two_bytes && b1 == 0) {
        if (b0 == 0) {
            return {0x03, 0x01, 0x00};
        }
        return {0x03, 0x02, trailing(b0), b0};
    }
    uint8_t unused = b1 == 0 ? 7 : trailing(b1);
    return {0x03, 0x03, unused, b0, b1};
}

void set_time(X509 *x, std::time_t t, bool generalized, bool before) {
    TimePtr tm(generalized ? ASN1_GENERALIZEDTIME_set(nullptr, t) : ASN1_TIME_set(nullptr, t));
    check(tm != nullptr, "ASN1_TIME_set");
    check((before ? X509_set1_notBefore(x, tm.get()) : X509_set1_notAfter(x, tm.get())) == 1,
          "X509_set1_notBefore/After");
}

}  // namespace

Name name(std::initializer_list<std::pair<std::string, std::string>> attributes) {
    Name n;
    for (const auto &a : attributes) {
        n.rdns.push_back({a});
    }
    return n;
}

// ---------------------------------------------------------------------- keys

Key make_rsa_key(int bits) {
    PkeyCtxPtr ctx(check_ptr(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr), "RSA context"));
    check(EVP_PKEY_keygen_init(ctx.get()) == 1, "EVP_PKEY_keygen_init");
    check(EVP_PKEY_CTX_set_rsa_keygen_bits(ctx.get(), bits) == 1, "RSA key size");
    EVP_PKEY *k = nullptr;
    check(EVP_PKEY_generate(ctx.get(), &k) == 1, "RSA key generation");
    return Key(k);
}

Key parse_key_pem(const std::string &pem) {
    BioPtr bio = mem_bio(pem.data(), pem.size());
    EVP_PKEY *k = PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr);
    if (k == nullptr) {
        fail("not an unencrypted PEM private key");
    }
    return Key(k);
}

Key load_key(const std::filesystem::path &path) {
    Bytes data = read_file(path);
    try {
        return parse_key_pem(std::string(data.begin(), data.end()));
    } catch (const Error &e) {
        throw Error(path.string() + ": " + e.what());
    }
}

std::string key_pem(const Key &key) {
    require_key(key);
    BioPtr bio(check_ptr(BIO_new(BIO_s_mem()), "BIO_new"));
    check(
        PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1,
        "PEM_write_bio_PrivateKey");
    return bio_text(bio.get());
}

void save_key(const Key &key, const std::filesystem::path &path) {
    std::string pem = key_pem(key);
    write_file(path, Bytes(pem.begin(), pem.end()));
}

Bytes public_der(const Key &key) {
    require_key(key);
    return encode(key.get(), i2d_PUBKEY, "i2d_PUBKEY");
}

// ------------------------------------------------------------- certificates

Cert issue(const CertProfile &profile, const Key &subject_key, const Cert *issuer,
           const Key &issuer_key) {
    require_key(subject_key);
    require_key(issuer_key);
    X509Ptr x(check_ptr(X509_new(), "X509_new"));
    check(X509_set_version(x.get(), X509_VERSION_3) == 1, "X509_set_version");
    IntPtr sn = make_integer(profile.serial);
    check(X509_set_serialNumber(x.get(), sn.get()) == 1, "X509_set_serialNumber");
    NamePtr subject = build_name(profile.subject);
    check(X509_set_subject_name(x.get(), subject.get()) == 1, "X509_set_subject_name");
    check(X509_set_issuer_name(x.get(), issuer != nullptr ? X509_get_subject_name(issuer->get())
                                                          : subject.get()) == 1,
          "X509_set_issuer_name");
    set_time(x.get(), profile.not_before, profile.generalized_time, true);
    set_time(x.get(), profile.not_after, profile.generalized_time, false);
    check(X509_set_pubkey(x.get(), subject_key.get()) == 1, "X509_set_pubkey");

    if (profile.ca) {
        Ptr<BASIC_CONSTRAINTS, BASIC_CONSTRAINTS_free> bc(BASIC_CONSTRAINTS_new());
        check(bc != nullptr, "BASIC_CONSTRAINTS_new");
        bc->ca = 0xFF;
        if (profile.path_len) {
            bc->pathlen = check_ptr(ASN1_INTEGER_new(), "ASN1_INTEGER_new");
            ASN1_INTEGER_set(bc->pathlen, *profile.path_len);
        }
        add_ext(x.get(), NID_basic_constraints, true, bc.get());
    }
    if (profile.key_usage) {
        add_raw_ext(x.get(), "2.5.29.15", true,
                    key_usage_der(*profile.key_usage, profile.key_usage_two_bytes));
    }
    if (!profile.eku.empty()) {
        Ptr<EXTENDED_KEY_USAGE, EXTENDED_KEY_USAGE_free> eku(sk_ASN1_OBJECT_new_null());
        check(eku != nullptr, "sk_ASN1_OBJECT_new_null");
        for (const auto &e : profile.eku) {
            ObjPtr obj(OBJ_txt2obj(e.c_str(), 0));
            if (!obj) {
                fail("unknown extended key usage " + e);
            }
            check(sk_ASN1_OBJECT_push(eku.get(), obj.get()) > 0, "sk_ASN1_OBJECT_push");
            obj.release();
        }
        add_ext(x.get(), NID_ext_key_usage, profile.eku_critical, eku.get());
    }
    if (profile.subject_key_id) {
        unsigned char md[EVP_MAX_MD_SIZE];
        unsigned len = 0;
        check(X509_pubkey_digest(x.get(), EVP_sha1(), md, &len) == 1, "X509_pubkey_digest");
        OctetPtr oct(check_ptr(ASN1_OCTET_STRING_new(), "ASN1_OCTET_STRING_new"));
        check(ASN1_OCTET_STRING_set(oct.get(), md, static_cast<int>(len)) == 1, "SKI");
        add_ext(x.get(), NID_subject_key_identifier, false, oct.get());
    }
    if (profile.authority_key_id && issuer != nullptr) {
        const ASN1_OCTET_STRING *ski = X509_get0_subject_key_id(issuer->get());
        if (ski != nullptr) {
            Ptr<AUTHORITY_KEYID, AUTHORITY_KEYID_free> aki(AUTHORITY_KEYID_new());
            check(aki != nullptr, "AUTHORITY_KEYID_new");
            aki->keyid = check_ptr(ASN1_OCTET_STRING_dup(ski), "ASN1_OCTET_STRING_dup");
            add_ext(x.get(), NID_authority_key_identifier, false, aki.get());
        }
    }
    for (const auto &e : profile.extra) {
        add_raw_ext(x.get(), e.oid, e.critical, e.value);
    }
    if (X509_sign(x.get(), issuer_key.get(), md_by_name(profile.digest)) <= 0) {
        fail("signing the certificate");
    }
    return Cert(x.release());
}

Bytes der(const Cert &cert) {
    if (!cert) {
        throw Error("no certificate");
    }
    return encode(cert.get(), i2d_X509, "i2d_X509");
}

std::string cert_pem(const Cert &cert) {
    if (!cert) {
        throw Error("no certificate");
    }
    BioPtr bio(check_ptr(BIO_new(BIO_s_mem()), "BIO_new"));
    check(PEM_write_bio_X509(bio.get(), cert.get()) == 1, "PEM_write_bio_X509");
    return bio_text(bio.get());
}

Cert parse_cert(const Bytes &data) {
    static const char kPem[] = "-----BEGIN";
    if (data.size() >= sizeof kPem - 1 && std::memcmp(data.data(), kPem, sizeof kPem - 1) == 0) {
        BioPtr bio = mem_bio(data.data(), data.size());
        X509 *x = PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr);
        if (x == nullptr) {
            fail("bad PEM certificate");
        }
        return Cert(x);
    }
    const unsigned char *p = data.data();
    X509Ptr x(d2i_X509(nullptr, &p, static_cast<long>(data.size())));
    if (!x) {
        fail("bad DER certificate");
    }
    if (p != data.data() + data.size()) {
        throw Error("trailing bytes after the DER certificate");
    }
    return Cert(x.release());
}

Cert load_cert(const std::filesystem::path &path) {
    try {
        return parse_cert(read_file(path));
    } catch (const Error &e) {
        throw Error(path.string() + ": " + e.what());
    }
}

void save_cert_der(const Cert &cert, const std::filesystem::path &path) {
    write_file(path, der(cert));
}

void save_cert_pem(const Cert &cert, const std::filesystem::path &path) {
    std::string pem = cert_pem(cert);
    write_file(path, Bytes(pem.begin(), pem.end()));
}

std::string subject_text(const Cert &cert) {
    return name_text(X509_get_subject_name(cert.get()));
}
std::string issuer_text(const Cert &cert) {
    return name_text(X509_get_issuer_name(cert.get()));
}
Bytes serial(const Cert &cert) {
    return integer_bytes(X509_get0_serialNumber(cert.get()));
}
std::time_t not_before(const Cert &cert) {
    return asn1_time_to_time_t(X509_get0_notBefore(cert.get()));
}
std::time_t not_after(const Cert &cert) {
    return asn1_time_to_time_t(X509_get0_notAfter(cert.get()));
}

}  // namespace tavo::pki
