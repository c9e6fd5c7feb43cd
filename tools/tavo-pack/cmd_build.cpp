// build: file list, detached signature, time-stamp token, CRLs, package.
//
// Before writing anything the command checks the material the way the
// on-device verifier will: at most two embedded certificates, signer and TSA
// certificates with a one-byte KeyUsage holding digitalSignature and the right
// usage as their first extended key usage, valid at genTime, and a current CRL
// from the issuer of every certificate below a root.
#include <openssl/x509v3.h>

#include <iostream>
#include <memory>

#include "commands.h"

namespace tavo_pack {

using namespace tavo::pki;

namespace {

struct Material {
    Cert signer;
    Key key;
    std::vector<Cert> chain;
    Cert tsa;
    Key tsa_key;
    std::vector<Bytes> crls;
};

Material load_material(const BuildOptions &o) {
    Material m;
    if (!o.pki_dir.empty()) {
        std::filesystem::path d = o.pki_dir;
        m.signer = load_cert(d / "signer.der");
        m.key = load_key(d / "signer.key");
        m.chain.push_back(load_cert(d / "ca.der"));
        if (o.tsa_url.empty()) {
            m.tsa = load_cert(d / "tsa.der");
            m.tsa_key = load_key(d / "tsa.key");
        }
        m.crls.push_back(read_file(d / "root-crl.der"));
        m.crls.push_back(read_file(d / "ca-crl.der"));
    }
    if (!o.signer.empty()) {
        m.signer = load_cert(o.signer);
    }
    if (!o.key.empty()) {
        m.key = load_key(o.key);
    }
    if (!o.chain.empty()) {
        m.chain.clear();
        for (const auto &c : o.chain) {
            m.chain.push_back(load_cert(c));
        }
    }
    if (!o.tsa_cert.empty()) {
        m.tsa = load_cert(o.tsa_cert);
    }
    if (!o.tsa_key.empty()) {
        m.tsa_key = load_key(o.tsa_key);
    }
    if (!o.crls.empty()) {
        m.crls.clear();
        for (const auto &c : o.crls) {
            for (Bytes &one : split_der(read_file(c))) {
                m.crls.push_back(std::move(one));
            }
        }
    }
    if (!m.signer || !m.key) {
        throw Error("no signer: give --pki DIR or --signer and --key");
    }
    if (o.tsa_url.empty() && (!m.tsa || !m.tsa_key)) {
        throw Error(
            "no time-stamping authority: give --pki DIR, --tsa-cert and --tsa-key, "
            "or --tsa-url");
    }
    return m;
}

bool self_signed(const Cert &c) {
    if (X509_NAME_cmp(X509_get_subject_name(c.get()), X509_get_issuer_name(c.get())) != 0) {
        return false;
    }
    EVP_PKEY *pub = X509_get0_pubkey(c.get());
    return pub != nullptr && X509_verify(c.get(), pub) == 1;
}

// The first byte of a one-byte KeyUsage BIT STRING; nullopt when absent or
// encoded otherwise (the verifier does not see such a KeyUsage).
std::optional<uint8_t> one_byte_key_usage(const Cert &c) {
    int idx = X509_get_ext_by_NID(c.get(), NID_key_usage, -1);
    if (idx < 0) {
        return std::nullopt;
    }
    const ASN1_OCTET_STRING *v = X509_EXTENSION_get_data(X509_get_ext(c.get(), idx));
    const unsigned char *p = ASN1_STRING_get0_data(v);
    if (ASN1_STRING_length(v) != 4 || p[0] != 0x03 || p[1] != 0x02) {
        return std::nullopt;
    }
    return p[3];
}

int first_eku(const Cert &c) {
    auto free_eku = [](EXTENDED_KEY_USAGE *e) { EXTENDED_KEY_USAGE_free(e); };
    std::unique_ptr<EXTENDED_KEY_USAGE, decltype(free_eku)> eku(
        static_cast<EXTENDED_KEY_USAGE *>(
            X509_get_ext_d2i(c.get(), NID_ext_key_usage, nullptr, nullptr)),
        free_eku);
    if (!eku || sk_ASN1_OBJECT_num(eku.get()) < 1) {
        return NID_undef;
    }
    return OBJ_obj2nid(sk_ASN1_OBJECT_value(eku.get(), 0));
}

void check_signing_cert(const Cert &c, int usage, const char *role, std::time_t at) {
    const std::string who = std::string(role) + " certificate " + subject_text(c);
    std::optional<uint8_t> ku = one_byte_key_usage(c);
    if (!ku || (*ku & 0x80) == 0) {
        throw Error(who + " needs a one-byte KeyUsage with digitalSignature");
    }
    if (first_eku(c) != usage) {
        throw Error(who + " must list " + OBJ_nid2sn(usage) + " as its first extended key usage");
    }
    if (at < not_before(c) || at > not_after(c)) {
        throw Error(who + " is not valid at " + format_time(at));
    }
}

// Every certificate below a root needs a current CRL from its issuer.
void check_crl_coverage(const std::vector<Cert> &certs, const std::vector<Bytes> &crls,
                        std::time_t at) {
    std::vector<CrlInfo> infos;
    for (const Bytes &c : crls) {
        infos.push_back(describe_crl(c));
    }
    for (const Cert &c : certs) {
        if (self_signed(c)) {
            continue;
        }
        const std::string issuer = issuer_text(c);
        bool covered = false;
        for (const CrlInfo &info : infos) {
            if (info.issuer != issuer) {
                continue;
            }
            for (const Revoked &r : info.revoked) {
                if (r.serial == serial(c)) {
                    throw Error("certificate " + subject_text(c) + " is revoked by the CRL of " +
                                issuer);
                }
            }
            covered = covered || (info.next_update && *info.next_update >= at);
        }
        if (!covered) {
            throw Error("no current CRL from " + issuer + " covers " + subject_text(c) +
                        "; the verifier needs one for every certificate below the root "
                        "(add it with --crl)");
        }
    }
}

std::string digest_word(const std::string &d) {
    if (d == "sha256") {
        return "SHA256-Digest";
    }
    if (d == "sha384") {
        return "SHA384-Digest";
    }
    if (d == "sha512") {
        return "SHA512-Digest";
    }
    throw Error("unsupported digest \"" + d + "\": the verifier accepts sha256, sha384, sha512");
}

Bytes remote_token(const BuildOptions &o, const Bytes &sig) {
    const Bytes imprint = digest(o.digest, sig);
    const Bytes nonce = random_serial(8);
    Bytes token = token_from_ts_response(
        post_ts_request(o.tsa_url, make_ts_request(o.digest, imprint, nonce), 30));
    TokenInfo info = describe_token(token);
    if (info.imprint != imprint || info.imprint_digest != o.digest) {
        throw Error("the time-stamping authority stamped a different imprint");
    }
    if (info.nonce != nonce) {
        throw Error("the time-stamping authority answered with a different nonce");
    }
    return token;
}

}  // namespace

int run_build(const BuildOptions &o) {
    try {
        const std::string word = digest_word(o.digest);
        Material m = load_material(o);
        if (1 + m.chain.size() > 2) {
            throw Error("the signature would embed " + std::to_string(1 + m.chain.size()) +
                        " certificates; the verifier accepts at most 2 (signer and one CA)");
        }
        if (X509_check_private_key(m.signer.get(), m.key.get()) != 1) {
            throw Error("the signer key does not match " + subject_text(m.signer));
        }
        if (m.tsa && m.tsa_key && X509_check_private_key(m.tsa.get(), m.tsa_key.get()) != 1) {
            throw Error("the TSA key does not match " + subject_text(m.tsa));
        }
        const Bytes payload = read_file(o.payload);
        const std::string name =
            o.name.empty() ? std::filesystem::path(o.payload).filename().string() : o.name;
        const Bytes file_list = make_file_list(payload, name, word);

        SignProfile sign;
        sign.digest = o.digest;
        std::vector<const Cert *> embed{&m.signer};
        for (const Cert &c : m.chain) {
            embed.push_back(&c);
        }
        sign.embed = embed;
        Bytes cms = sign_detached(file_list, m.signer, m.key, sign);
        const Bytes sig = signature_value(cms);

        Bytes token;
        if (!o.tsa_url.empty()) {
            token = remote_token(o, sig);
        } else {
            TsProfile ts;
            ts.gen_time = o.time.empty() ? std::time(nullptr) : parse_time(o.time);
            ts.digest = o.digest;
            ts.signer_digest = o.digest;
            ts.serial = random_serial(8);
            token = make_timestamp_token(sig, m.tsa, m.tsa_key, ts);
        }
        TokenInfo info = describe_token(token);
        if (info.certs.size() > 2) {
            throw Error("the time-stamp token embeds more than 2 certificates");
        }
        if (!m.tsa) {
            if (info.certs.empty()) {
                throw Error("the time-stamp token carries no TSA certificate (give --tsa-cert)");
            }
            m.tsa = info.certs.front();
        }
        check_signing_cert(m.signer, NID_code_sign, "signer", info.gen_time);
        check_signing_cert(m.tsa, NID_time_stamp, "TSA", info.gen_time);
        std::vector<Cert> below_root{m.signer, m.tsa};
        below_root.insert(below_root.end(), m.chain.begin(), m.chain.end());
        check_crl_coverage(below_root, m.crls, info.gen_time);

        cms = attach_timestamp(cms, token);
        Bytes crl_section;
        for (const Bytes &c : m.crls) {
            crl_section.insert(crl_section.end(), c.begin(), c.end());
        }
        write_file(o.out, make_package(file_list, cms, crl_section, payload));
        std::cout << o.out << ": " << payload.size() << " byte payload, signed by "
                  << subject_text(m.signer) << ", time-stamped " << info.gen_time_text << "\n";
        return 0;
    } catch (const std::exception &e) {
        std::cerr << "tavo-pack: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace tavo_pack
