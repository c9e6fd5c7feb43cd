#include "cmsv_pki_world.h"

#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <openssl/evp.h>

#include "tests/cmsv/cmsv_test_context.h"

namespace pkitest {

namespace {

namespace fs = std::filesystem;

Party Make(const std::string &cn, uint8_t serial, const Party *issuer, pki::Key key,
           std::function<void(pki::CertProfile &)> tweak = {}) {
    pki::CertProfile profile;
    profile.subject = pki::name({{"O", "tavo"}, {"CN", cn}});
    profile.serial = {serial};
    profile.not_before = pki::utc(2020, 1, 1);
    profile.not_after = pki::utc(2045, 1, 1);
    if (tweak) {
        tweak(profile);
    }
    Party party{{}, key};
    party.cert =
        pki::issue(profile, key, issuer ? &issuer->cert : nullptr, issuer ? issuer->key : key);
    return party;
}

void MakeCa(pki::CertProfile &profile) {
    profile.ca = true;
    profile.key_usage = pki::kKeyCertSign | pki::kCrlSign;
}
void MakeCodeSigner(pki::CertProfile &profile) {
    profile.key_usage = pki::kDigitalSignature;
    profile.eku = {"codeSigning"};
}
void MakeTsa(pki::CertProfile &profile) {
    profile.key_usage = pki::kDigitalSignature;
    profile.eku = {"timeStamping"};
    profile.eku_critical = true;
}

World BuildWorld() {
    const pki::Key rootKey = pki::make_rsa_key(2048), caKey = pki::make_rsa_key(2048);
    const pki::Key leafKey = pki::make_rsa_key(2048), tsaKey = pki::make_rsa_key(2048);
    const pki::Key strangerKey = pki::make_rsa_key(2048);
    World w;
    w.root = Make("Tavo Root", 1, nullptr, rootKey, MakeCa);
    w.ca = Make("Tavo Code CA", 0x10, &w.root, caKey, MakeCa);
    w.signer = Make("Tavo Signer", 0x20, &w.ca, leafKey, MakeCodeSigner);
    w.tsa = Make("Tavo TSA", 0x30, &w.root, tsaKey, MakeTsa);
    // Code signers under the CA that differ from w.signer in one field.
    const auto variant = [&](uint8_t serial, std::function<void(pki::CertProfile &)> tweak) {
        return Make("Tavo Signer", serial, &w.ca, leafKey, [&](pki::CertProfile &s) {
            MakeCodeSigner(s);
            tweak(s);
        });
    };
    w.signerExpiredNow = variant(0x21, [](pki::CertProfile &s) {
        s.not_before = pki::utc(2025, 1, 1);
        s.not_after = pki::utc(2026, 6, 1);
    });
    w.signerNotYet = variant(0x22, [](pki::CertProfile &s) { s.not_before = kGenTime + 1; });
    w.signerExpired = variant(0x23, [](pki::CertProfile &s) { s.not_after = kGenTime - 1; });
    w.signerEkuSecond = variant(0x24, [](pki::CertProfile &s) {
        s.eku = {"serverAuth", "codeSigning"};
    });
    w.signerNoDigSig =
        variant(0x25, [](pki::CertProfile &s) { s.key_usage = pki::kNonRepudiation; });
    w.tsaCodeSigning = Make("Tavo TSA", 0x31, &w.root, tsaKey, MakeCodeSigner);
    w.otherRoot = Make("Other Root", 1, nullptr, strangerKey, MakeCa);
    w.lookAlike = Make("Tavo Root", 1, nullptr, strangerKey, MakeCa);
    w.caNoKu = Make("Tavo Bare CA", 0x40, &w.root, caKey, [](pki::CertProfile &s) { s.ca = true; });
    w.underNoKu = Make("Tavo Signer", 0x41, &w.caNoKu, leafKey, MakeCodeSigner);
    return w;
}

// CMSV_PKI_OPENSSL_LOG=file keeps OpenSSL's output for a failing comparison.
bool Run(const std::string &command) {
    const char *log = std::getenv("CMSV_PKI_OPENSSL_LOG");
    const std::string sink =
        log != nullptr ? " 2>>" + std::string(log) : std::string(" 2>/dev/null");
    return std::system((command + sink + " >/dev/null").c_str()) == 0;
}

bool IsCert(const Bytes &der) {
    try {
        pki::parse_cert(der);
        return true;
    } catch (const pki::Error &) {
        return false;
    }
}

}  // namespace

const World &TheWorld() {
    static const World world = BuildWorld();
    return world;
}

Bytes Crl(const Party &issuer, std::vector<pki::Revoked> revoked, bool indirect,
          std::time_t nextUpdate) {
    pki::CrlProfile profile;
    profile.this_update = kGenTime - kDay;
    profile.next_update = nextUpdate != 0 ? nextUpdate : kGenTime + 30 * kDay;
    profile.revoked = std::move(revoked);
    profile.indirect = indirect;
    return pki::make_crl(profile, issuer.cert, issuer.key);
}

Bytes Concat(const std::vector<Bytes> &parts) {
    Bytes out;
    for (const Bytes &part : parts) {
        out.insert(out.end(), part.begin(), part.end());
    }
    return out;
}

Scenario::Scenario() : w(TheWorld()) {
    signer = &w.signer;
    tsa = &w.tsa;
    ts.gen_time = kGenTime;
    ts.nonce = Bytes{0x5A, 0x17, 0xC3, 0x9E, 0x44, 0x02, 0x7B, 0xE1};
    trusted = {w.root.der()};
    crlBundle = {Crl(w.root), Crl(w.ca)};
    content = Bytes(3000);
    for (size_t i = 0; i < content.size(); ++i) {
        content[i] = static_cast<uint8_t>(i * 7 + 1);
    }
    sign.embed = Certs{&w.signer.cert, &w.ca.cert};
}

Material Build(const Scenario &s) {
    pki::SignProfile profile = s.sign;
    if (profile.embed && !profile.embed->empty() &&
        profile.embed->front() == &TheWorld().signer.cert) {
        profile.embed->front() = &s.signer->cert;
    }
    Material m;
    m.signature = pki::sign_detached(s.content, s.signer->cert, s.signer->key, profile);
    if (s.timestamp) {
        m.token = pki::make_timestamp_token(pki::signature_value(m.signature), s.tsa->cert,
                                            s.tsa->key, s.ts);
        m.signature = pki::attach_timestamp(m.signature, m.token);
    }
    if (s.tamper) {
        s.tamper(m.signature);
        try {
            m.token = pki::timestamp_of(m.signature).value_or(Bytes{});
        } catch (const pki::Error &) {
            m.token.clear();
        }
    }
    return m;
}

Verdict RunEngine(const Scenario &s, const Material &m, uint32_t chunk) {
    Bytes crls;  // outlives the context, which points into it
    for (const Bytes &crl : s.crlBundle) {
        const std::string pem = Pem(crl, "X509 CRL");
        const Bytes part = s.pemCrls ? Bytes(pem.begin(), pem.end()) : crl;
        crls.insert(crls.end(), part.begin(), part.end());
    }
    CmsvTestContext ctx;
    EXPECT_TRUE(ctx.ok());
    Verdict v;
    const auto step = [&](uint32_t rc) {
        if (v.status == CMSV_OK) {
            v.status = rc;
        }
        return v.status == CMSV_OK;
    };
    for (const Bytes &der : s.trusted) {
        step(cmsv_verify_add_cert(ctx, der.data(), static_cast<uint32_t>(der.size())));
    }
    if (!crls.empty()) {
        step(cmsv_verify_add_crl(ctx, crls.data(), static_cast<uint32_t>(crls.size())));
    }
    if (!step(cmsv_verify_detach_signature_begin(ctx, m.signature.data(),
                                                 static_cast<uint32_t>(m.signature.size())))) {
        return v;
    }
    for (size_t pos = 0; pos < s.content.size(); pos += chunk) {
        const auto n = static_cast<uint32_t>(std::min<size_t>(chunk, s.content.size() - pos));
        if (!step(cmsv_verify_detach_signature_update(ctx, s.content.data() + pos, n))) {
            return v;
        }
    }
    step(cmsv_verify_detach_signature_final(ctx, &v.result));
    return v;
}

bool OpenSslAccepts(const Scenario &s, const Material &m) {
    std::string tmpl = (fs::temp_directory_path() / "cmsv-pki-XXXXXX").string();
    const fs::path d = mkdtemp(tmpl.data());
    const auto file = [&](const char *name) { return (d / name).string(); };
    // Trust anchors and CRLs in one PEM file, as both commands read it. OpenSSL 3.0's cms
    // takes chain certificates only from the message or the trust store; without partial
    // chains a CA there still needs its root.
    std::string ca, untrusted;
    for (const Bytes &der : s.trusted) {
        ca += Pem(der, "CERTIFICATE");
    }
    for (const Bytes &object : pki::split_der(Concat(s.crlBundle))) {
        const bool cert = IsCert(object);
        ca += Pem(object, cert ? "CERTIFICATE" : "X509 CRL");
        untrusted += cert ? Pem(object, "CERTIFICATE") : "";
    }
    std::ofstream(file("ca.pem")) << ca;
    std::ofstream(file("untrusted.pem")) << untrusted;
    pki::write_file(file("sig.der"), m.signature);
    pki::write_file(file("content.bin"), s.content);
    const std::string common =
        " -CAfile " + file("ca.pem") + " -crl_check_all -attime " + std::to_string(s.ts.gen_time);
    const std::string extra = untrusted.empty() ? "" : " " + file("untrusted.pem");
    bool ok = Run("openssl cms -verify -binary -inform DER -in " + file("sig.der") + " -content " +
                  file("content.bin") + " -purpose any -out /dev/null" + common +
                  (extra.empty() ? "" : " -certfile" + extra));
    if (ok && !m.token.empty()) {
        pki::write_file(file("token.der"), m.token);
        const Bytes imprint = pki::digest(pki::describe_token(m.token).imprint_digest,
                                          pki::signature_value(m.signature));
        ok = Run("openssl ts -verify -token_in -in " + file("token.der") + " -digest " +
                 pki::hex(imprint) + common + (extra.empty() ? "" : " -untrusted" + extra));
    }
    fs::remove_all(d);
    return ok;
}

std::string Pem(const Bytes &der, const std::string &label) {
    std::string b64(4 * ((der.size() + 2) / 3) + 1, '\0');
    const int n = EVP_EncodeBlock(reinterpret_cast<unsigned char *>(b64.data()), der.data(),
                                  static_cast<int>(der.size()));
    std::string text = "-----BEGIN " + label + "-----\n";
    for (int i = 0; i < n; i += 64) {
        text += b64.substr(static_cast<size_t>(i), 64) + "\n";
    }
    return text + "-----END " + label + "-----\n";
}

void FlipIn(Bytes &der, const Bytes &needle) {
    const auto it = std::search(der.begin(), der.end(), needle.begin(), needle.end());
    ASSERT_NE(it, der.end());
    *(it + static_cast<long>(needle.size()) - 1) ^= 0x01;
}

}  // namespace pkitest
