// tavo-pack and the tavo_pki library, with the openssl command line as the
// independent judge of what they produce.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <openssl/x509.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "pki.h"
#include "run_command.h"

extern char **environ;

namespace {

namespace fs = std::filesystem;
namespace pki = tavo::pki;
using pki::Bytes;
using tavo::test::CommandResult;

class TavoPack : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        std::string tmpl = std::string(TAVO_PACK_TEST_SCRATCH) + "/tavo_pack.XXXXXX";
        ASSERT_NE(::mkdtemp(tmpl.data()), nullptr);
        dir_ = new fs::path(tmpl);
        CommandResult r = pack({"pki", "init", (*dir_ / "pki").string()});
        ASSERT_EQ(r.status, 0) << r.err;
        pki::save_cert_pem(pki::load_cert(*dir_ / "pki/root.der"), *dir_ / "root.pem");
        pki::write_file(*dir_ / "payload.bin", Bytes{'f', 'w', 0x00, 0xff, '\n'});
    }
    static void TearDownTestSuite() {
        std::error_code ec;
        fs::remove_all(*dir_, ec);
        delete dir_;
    }

    static CommandResult run(const std::vector<std::string> &argv) {
        return tavo::test::run_command(argv, *dir_);
    }
    static CommandResult pack(std::vector<std::string> args) {
        args.insert(args.begin(), TAVO_PACK_PATH);
        return run(args);
    }
    static fs::path path(const std::string &name) { return *dir_ / name; }

    // openssl cms -verify over the file list at the token's genTime, and
    // openssl ts -verify of the token over the signature value.
    static void expect_openssl_accepts(const fs::path &package) {
        pki::Package p = pki::parse_package(pki::read_file(package));
        pki::write_file(path("filelist"), p.file_list);
        pki::write_file(path("cms.der"), p.cms);
        std::optional<Bytes> token = pki::timestamp_of(p.cms);
        ASSERT_TRUE(token);
        pki::write_file(path("token.der"), *token);
        pki::write_file(path("sigvalue"), pki::signature_value(p.cms));
        const std::time_t gen_time = pki::describe_token(*token).gen_time;

        CommandResult cms =
            run({OPENSSL_CLI_PATH, "cms", "-verify", "-binary", "-inform", "DER", "-in",
                 path("cms.der"), "-content", path("filelist"), "-CAfile", path("root.pem"),
                 "-purpose", "any", "-attime", std::to_string(gen_time), "-out", "/dev/null"});
        EXPECT_EQ(cms.status, 0) << cms.err;
        CommandResult ts =
            run({OPENSSL_CLI_PATH, "ts", "-verify", "-in", path("token.der"), "-token_in", "-data",
                 path("sigvalue"), "-CAfile", path("root.pem")});
        EXPECT_EQ(ts.status, 0) << ts.out << ts.err;
    }

    static fs::path *dir_;
};
fs::path *TavoPack::dir_ = nullptr;

TEST_F(TavoPack, BuiltPackagesVerifyWithOpensslForEveryDigest) {
    const struct {
        const char *digest;
        const char *word;
    } kCases[] = {
        {"sha256", "SHA256-Digest"}, {"sha384", "SHA384-Digest"}, {"sha512", "SHA512-Digest"}};
    const pki::DevPki dev = pki::load_dev_pki(path("pki"));
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.digest);
        const fs::path out = path(std::string("p-") + c.digest + ".pkg");
        CommandResult r = pack({"build", "--payload", path("payload.bin"), "--out", out, "--pki",
                                path("pki"), "--digest", c.digest, "--name", "fw.img"});
        ASSERT_EQ(r.status, 0) << r.err;
        expect_openssl_accepts(out);

        pki::Package p = pki::parse_package(pki::read_file(out));
        EXPECT_EQ(pki::encode_header(p.header),
                  pki::encode_header({3, 1, static_cast<uint32_t>(p.file_list.size()), 2,
                                      static_cast<uint32_t>(p.cms.size()), 3,
                                      static_cast<uint32_t>(p.crls.size())}));
        EXPECT_EQ(p.file_list, pki::make_file_list(p.payload, "fw.img", c.word));
        EXPECT_EQ(p.crls.size(), dev.root_crl.size() + dev.ca_crl.size());
        EXPECT_EQ(pki::embedded_certs(p.cms).size(), 2u);
        std::vector<pki::SignerSummary> s = pki::signers(p.cms);
        ASSERT_EQ(s.size(), 1u);
        EXPECT_EQ(s[0].serial, pki::serial(dev.signer));
        EXPECT_TRUE(s[0].signed_attrs);
        pki::TokenInfo t = pki::describe_token(*pki::timestamp_of(p.cms));
        EXPECT_EQ(t.imprint, pki::digest(c.digest, pki::signature_value(p.cms)));
        ASSERT_EQ(t.certs.size(), 1u);
        EXPECT_EQ(pki::der(t.certs[0]), pki::der(dev.tsa));
    }
}

TEST_F(TavoPack, InspectReportsAChangedPayload) {
    const fs::path out = path("inspect.pkg");
    ASSERT_EQ(pack({"build", "--payload", path("payload.bin"), "--out", out, "--pki", path("pki")})
                  .status,
              0);
    CommandResult good = pack({"inspect", out, "--json"});
    ASSERT_EQ(good.status, 0) << good.err;
    nlohmann::json j = nlohmann::json::parse(good.out);
    EXPECT_TRUE(j["signature"]["timestamp"]["imprint_matches"].get<bool>());
    EXPECT_EQ(j["crls"].size(), 2u);

    Bytes data = pki::read_file(out);
    data.back() ^= 0x01;
    pki::write_file(out, data);
    CommandResult bad = pack({"inspect", out, "--json"});
    EXPECT_EQ(bad.status, 1);
    EXPECT_FALSE(nlohmann::json::parse(bad.out)["digest"]["matches"].get<bool>());
}

TEST_F(TavoPack, RefusesWhatTheVerifierWouldReject) {
    const std::string p = path("pki");
    const std::vector<std::string> base = {"build", "--payload", path("payload.bin"), "--out",
                                           path("refused.pkg")};
    const struct {
        std::vector<std::string> args;
        int status;
        const char *reason;
    } kCases[] = {
        {{"--pki", p, "--chain", p + "/ca.der", "--chain", p + "/root.der"}, 1, "at most 2"},
        {{"--pki", p, "--crl", p + "/root-crl.der"}, 1, "no current CRL from CN=tavo dev signing"},
        {{"--pki", p, "--digest", "sha1"}, 1, "unsupported digest"},
        {{"--pki", p, "--key", p + "/tsa.key"}, 1, "does not match"},
        {{"--signer", p + "/tsa.der", "--key", p + "/tsa.key", "--tsa-cert", p + "/tsa.der",
          "--tsa-key", p + "/tsa.key", "--crl", p + "/root-crl.der"},
         1,
         "first extended key usage"},
        {{}, 1, "no signer"},
        {{"--pki"}, 2, "--pki"},
    };
    for (const auto &c : kCases) {
        std::vector<std::string> args = base;
        args.insert(args.end(), c.args.begin(), c.args.end());
        CommandResult r = pack(args);
        SCOPED_TRACE(r.err);
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.err.find(c.reason), std::string::npos);
        EXPECT_FALSE(fs::exists(path("refused.pkg")));
    }
    EXPECT_EQ(pack({"tsa", "serve", "--cert", p + "/tsa.der", "--key", p + "/tsa.key", "--listen",
                    "0.0.0.0:0", "--once"})
                  .status,
              2);
}

TEST_F(TavoPack, BuildsWithARemoteTimeStampingAuthority) {
    const fs::path log = path("serve.out");
    std::vector<std::string> words = {
        TAVO_PACK_PATH,      "tsa",      "serve",       "--cert", path("pki/tsa.der"), "--key",
        path("pki/tsa.key"), "--listen", "127.0.0.1:0", "--once", "--idle-timeout",    "30"};
    std::vector<char *> argv;
    for (std::string &w : words) {
        argv.push_back(w.data());
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    pid_t server = -1;
    ASSERT_EQ(posix_spawn(&server, argv[0], &actions, nullptr, argv.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);

    std::string port;
    for (int i = 0; i < 100 && port.empty(); ++i) {
        std::ifstream in(log);
        std::string line;
        if (std::getline(in, line) && line.rfind("listening on 127.0.0.1:", 0) == 0) {
            port = line.substr(line.rfind(':') + 1);
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    CommandResult r;
    if (!port.empty()) {
        r = pack({"build", "--payload", path("payload.bin"), "--out", path("remote.pkg"), "--pki",
                  path("pki"), "--tsa-url", "http://127.0.0.1:" + port + "/tsa"});
    }
    int status = 0;
    pid_t done = 0;
    for (int i = 0; i < 100 && done == 0; ++i) {
        done = ::waitpid(server, &status, WNOHANG);
        if (done == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }
    if (done == 0) {
        ::kill(server, SIGKILL);
        ::waitpid(server, &status, 0);
    }
    ASSERT_FALSE(port.empty()) << "the responder did not report its port";
    ASSERT_EQ(r.status, 0) << r.err;
    EXPECT_NE(done, 0) << "the responder did not stop after one request";
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    expect_openssl_accepts(path("remote.pkg"));
    pki::Package p = pki::parse_package(pki::read_file(path("remote.pkg")));
    EXPECT_TRUE(pki::describe_token(*pki::timestamp_of(p.cms)).nonce.has_value());
}

TEST_F(TavoPack, CrlCommandWritesRevocations) {
    CommandResult r =
        pack({"crl", "--ca", path("pki/ca.der"), "--key", path("pki/ca.key"), "--out",
              path("revoked.der"), "--this-update", "2030-01-01T00:00:00Z", "--revoke",
              "03:superseded:2031-02-03T04:05:06Z", "--revoke", "0x123", "--revoke", "7:1"});
    ASSERT_EQ(r.status, 0) << r.err;
    pki::CrlInfo info = pki::describe_crl(pki::read_file(path("revoked.der")));
    EXPECT_EQ(info.issuer, "CN=tavo dev signing CA,O=tavo development,C=CN");
    EXPECT_EQ(info.this_update, pki::utc(2030, 1, 1));
    ASSERT_EQ(info.revoked.size(), 3u);
    EXPECT_EQ(info.revoked[0].serial, (Bytes{0x03}));
    EXPECT_EQ(info.revoked[0].reason, 4);
    EXPECT_EQ(info.revoked[0].when, pki::utc(2031, 2, 3, 4, 5, 6));
    EXPECT_EQ(info.revoked[1].serial, (Bytes{0x01, 0x23}));
    EXPECT_FALSE(info.revoked[1].reason);
    EXPECT_EQ(info.revoked[1].when, pki::utc(2030, 1, 1));
    EXPECT_EQ(info.revoked[2].reason, 1);
    EXPECT_EQ(pack({"crl", "--ca", path("pki/ca.der"), "--key", path("pki/ca.key"), "--out",
                    path("x.der"), "--revoke", "zz"})
                  .status,
              1);
}

TEST_F(TavoPack, SignatureOptionsVerifyWithOpenssl) {
    const pki::DevPki dev = pki::load_dev_pki(path("pki"));
    // The CA goes with the root: `cms -verify` takes -certfile for signer
    // certificates only.
    const std::string trusted = pki::cert_pem(dev.root) + pki::cert_pem(dev.ca);
    pki::write_file(path("trusted.pem"), Bytes(trusted.begin(), trusted.end()));
    const std::string pems = pki::cert_pem(dev.signer) + pki::cert_pem(dev.tsa);
    pki::write_file(path("certs.pem"), Bytes(pems.begin(), pems.end()));
    const Bytes content = {'N', 'a', 'm', 'e', ':', ' ', 'x', '\n'};
    pki::write_file(path("content"), content);
    const std::pair<const pki::Cert *, const pki::Key *> second{&dev.tsa, &dev.tsa_key};
    const struct {
        const char *name;
        pki::SignProfile profile;
        std::size_t certs, signers;
    } kCases[] = {
        {"defaults", {}, 1, 1},
        {"sha512 no attributes", {"sha512", false, false, true, std::nullopt, {}}, 1, 1},
        {"by key id", {"sha256", true, true, true, std::nullopt, {}}, 1, 1},
        {"signer and CA", {"sha384", true, false, true, {{&dev.signer, &dev.ca}}, {}}, 2, 1},
        {"nothing embedded", {"sha256", true, false, true, {{}}, {}}, 0, 1},
        {"two signers", {"sha256", true, false, true, std::nullopt, {second}}, 1, 2},
    };
    for (const auto &c : kCases) {
        SCOPED_TRACE(c.name);
        const Bytes cms = pki::sign_detached(content, dev.signer, dev.signer_key, c.profile);
        EXPECT_EQ(pki::embedded_certs(cms).size(), c.certs);
        std::vector<pki::SignerSummary> s = pki::signers(cms);
        ASSERT_EQ(s.size(), c.signers);
        EXPECT_EQ(s[0].signed_attrs, c.profile.signed_attrs);
        EXPECT_EQ(s[0].key_id.empty(), !c.profile.signer_by_ski);
        EXPECT_FALSE(pki::timestamp_of(cms));
        pki::write_file(path("opt.der"), cms);
        CommandResult r =
            run({OPENSSL_CLI_PATH, "cms", "-verify", "-binary", "-inform", "DER", "-in",
                 path("opt.der"), "-content", path("content"), "-CAfile", path("trusted.pem"),
                 "-certfile", path("certs.pem"), "-purpose", "any", "-out", "/dev/null"});
        EXPECT_EQ(r.status, 0) << r.err;
    }
}

TEST_F(TavoPack, CrlOptionsAsOpensslReadsThem) {
    const pki::DevPki dev = pki::load_dev_pki(path("pki"));
    pki::CrlProfile profile;
    profile.this_update = pki::utc(2030, 1, 1);
    profile.next_update = pki::utc(2031, 1, 1);
    profile.indirect = true;
    profile.version_override = 0;
    profile.crl_number = std::nullopt;
    profile.digest = "sha384";
    profile.revoked = {{Bytes(20, 0x7f), pki::utc(2030, 6, 1), 5}};
    pki::write_file(path("opt-crl.der"), pki::make_crl(profile, dev.root, dev.root_key));
    CommandResult r = run({OPENSSL_CLI_PATH, "crl", "-inform", "DER", "-in", path("opt-crl.der"),
                           "-noout", "-text", "-CAfile", path("root.pem")});
    ASSERT_EQ(r.status, 0) << r.err;
    for (const char *want :
         {"Version 1 (0x0)", "Indirect CRL", "sha384WithRSAEncryption", "Cessation Of Operation",
          "7F7F7F7F7F7F7F7F7F7F7F7F7F7F7F7F7F7F7F7F", "Next Update: Jan  1 00:00:00 2031 GMT"}) {
        EXPECT_NE(r.out.find(want), std::string::npos) << want << "\n" << r.out;
    }
    EXPECT_EQ(r.out.find("CRL Number"), std::string::npos);
    EXPECT_NE(r.err.find("verify OK"), std::string::npos) << r.err;
}

// ------------------------------------------------------------ library only

Bytes extension_value(const pki::Cert &c, const char *oid) {
    ASN1_OBJECT *obj = OBJ_txt2obj(oid, 1);
    int idx = X509_get_ext_by_OBJ(c.get(), obj, -1);
    ASN1_OBJECT_free(obj);
    if (idx < 0) {
        return {};
    }
    const ASN1_OCTET_STRING *v = X509_EXTENSION_get_data(X509_get_ext(c.get(), idx));
    return Bytes(ASN1_STRING_get0_data(v), ASN1_STRING_get0_data(v) + ASN1_STRING_length(v));
}

TEST(TavoPki, KeyUsageEncodings) {
    const pki::Key key = pki::make_rsa_key(1024);
    const struct {
        unsigned mask;
        bool two_bytes;
        Bytes der;
    } kCases[] = {
        {pki::kDigitalSignature, false, {0x03, 0x02, 0x07, 0x80}},
        {pki::kKeyCertSign | pki::kCrlSign, false, {0x03, 0x02, 0x01, 0x06}},
        {pki::kDigitalSignature | pki::kNonRepudiation, false, {0x03, 0x02, 0x06, 0xc0}},
        {pki::kDigitalSignature, true, {0x03, 0x03, 0x07, 0x80, 0x00}},
        {pki::kDigitalSignature | pki::kDecipherOnly, false, {0x03, 0x03, 0x07, 0x80, 0x80}},
        {0, false, {0x03, 0x01, 0x00}},
    };
    for (const auto &c : kCases) {
        pki::CertProfile profile;
        profile.subject = pki::name({{"CN", "ku"}});
        profile.not_before = pki::utc(2020, 1, 1);
        profile.not_after = pki::utc(2040, 1, 1);
        profile.key_usage = c.mask;
        profile.key_usage_two_bytes = c.two_bytes;
        EXPECT_EQ(extension_value(pki::issue(profile, key, nullptr, key), "2.5.29.15"), c.der)
            << c.mask << " " << c.two_bytes;
    }
}

TEST(TavoPki, CertificateFieldsAsAsked) {
    const pki::Key key = pki::make_rsa_key(1024);
    pki::CertProfile profile;
    profile.subject.rdns = {{{"C", "CN"}}, {{"O", "tavo"}, {"OU", "fw"}}, {{"2.5.4.3", "x"}}};
    profile.serial = Bytes(20, 0xab);
    profile.not_before = pki::utc(2021, 5, 6, 7, 8, 9);
    profile.not_after = pki::utc(2049, 1, 1);
    profile.generalized_time = true;
    profile.eku = {"timeStamping", "codeSigning", "1.2.3.4"};
    profile.extra = {{"1.3.6.1.4.1.99999.1", true, {0x05, 0x00}}};
    const pki::Cert c = pki::issue(profile, key, nullptr, key);
    const pki::Cert back = pki::parse_cert(pki::der(c));
    EXPECT_EQ(pki::subject_text(back), "CN=x,O=tavo+OU=fw,C=CN");
    EXPECT_EQ(pki::serial(back), profile.serial);
    EXPECT_EQ(pki::not_before(back), profile.not_before);
    EXPECT_EQ(ASN1_STRING_type(X509_get0_notAfter(back.get())), V_ASN1_GENERALIZEDTIME);
    EXPECT_EQ(
        extension_value(back, "2.5.29.37"),
        (Bytes{0x30, 0x19, 0x06, 0x08, 0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x08, 0x06, 0x08,
               0x2b, 0x06, 0x01, 0x05, 0x05, 0x07, 0x03, 0x03, 0x06, 0x03, 0x2a, 0x03, 0x04}));
    EXPECT_EQ(extension_value(back, "1.3.6.1.4.1.99999.1"), (Bytes{0x05, 0x00}));
    const std::string pem = pki::cert_pem(c);
    EXPECT_EQ(pki::der(pki::parse_cert(Bytes(pem.begin(), pem.end()))), pki::der(c));
}

TEST(TavoPki, TokenOptions) {
    const pki::Key key = pki::make_rsa_key(1024);
    pki::CertProfile profile;
    profile.subject = pki::name({{"CN", "tsa"}});
    profile.not_before = pki::utc(2020, 1, 1);
    profile.not_after = pki::utc(2040, 1, 1);
    const pki::Cert tsa = pki::issue(profile, key, nullptr, key);
    const Bytes sig = {1, 2, 3};
    pki::TsProfile ts;
    ts.gen_time = pki::utc(2025, 3, 4, 5, 6, 7);

    pki::TokenInfo plain = pki::describe_token(pki::make_timestamp_token(sig, tsa, key, ts));
    EXPECT_EQ(plain.gen_time_text, "20250304050607Z");
    EXPECT_EQ(plain.imprint, pki::digest("sha256", sig));
    EXPECT_TRUE(plain.signers.at(0).signed_attrs);
    EXPECT_FALSE(plain.nonce);

    ts.signed_attrs = false;
    ts.fractional_seconds = true;
    ts.wrong_imprint = true;
    ts.digest = "sha1";
    ts.nonce = Bytes{0x42};
    ts.embed = std::vector<const pki::Cert *>{};
    pki::TokenInfo odd = pki::describe_token(pki::make_timestamp_token(sig, tsa, key, ts));
    EXPECT_EQ(odd.gen_time_text, "20250304050607.5Z");
    EXPECT_EQ(odd.imprint_digest, "sha1");
    EXPECT_NE(odd.imprint, pki::digest("sha1", sig));
    EXPECT_EQ(odd.imprint.size(), 20u);
    EXPECT_FALSE(odd.signers.at(0).signed_attrs);
    EXPECT_EQ(odd.nonce, Bytes{0x42});
    EXPECT_TRUE(odd.certs.empty());
}

TEST(TavoPki, PackageHeaderFields) {
    EXPECT_EQ(pki::encode_header({3, 1, 0x62, 2, 0x10c7, 3, 0}),
              (Bytes{'0', '0', '0', '0', '0', '0', '0', '3', '0', '0', '0', '0', '0', '0',
                     '0', '1', '0', '0', '0', '0', '0', '0', '6', '2', '0', '0', '0', '0',
                     '0', '0', '0', '2', '0', '0', '0', '0', '1', '0', 'c', '7', '0', '0',
                     '0', '0', '0', '0', '0', '3', '0', '0', '0', '0', '0', '0', '0', '0'}));
    Bytes odd = pki::encode_header_text({"3", "1", "2", "2", "1", "3x", "0"});
    odd.insert(odd.end(), {'a', 'b', 'c', 'd'});
    pki::Package p = pki::parse_package(odd);
    EXPECT_EQ(p.header.file3_id, 3u);
    EXPECT_EQ(p.file_list, (Bytes{'a', 'b'}));
    EXPECT_EQ(p.cms, (Bytes{'c'}));
    EXPECT_EQ(p.payload, (Bytes{'d'}));
    Bytes overrun = pki::encode_header({3, 1, 5, 2, 0, 3, 0});
    EXPECT_THROW(pki::parse_package(overrun), pki::Error);
}

}  // namespace
