// TavoCmsValidateSign end to end: packages built and signed here with the
// development PKI (the root built into the test library) and a local time-stamp
// token, then broken one rule at a time. Each case asserts the verdict and the
// exact records of the error log.
#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "log_reader.h"
#include "pki.h"
#include "tavo/tavo_upgrade.h"
#include "upgrade/root_cert.h"

namespace {

namespace fs = std::filesystem;
namespace pki = tavo::pki;
using pki::Bytes;
using tavo::test::kErrLog;

constexpr const char *kApi = "tavo_cms_api,";

// One expected record: "function" of the unit tavo_cms_api (or "unit,function"
// when it contains a comma) and the exact text.
using Record = std::pair<std::string, std::string>;

Bytes bytes(const std::string &text) {
    return Bytes(text.begin(), text.end());
}

std::string upper(std::string text) {
    for (char &c : text) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return text;
}

// A header field: 8 hex digits, in upper case on request.
std::string field(uint32_t value, bool uppercase = false) {
    char buf[16];
    std::snprintf(buf, sizeof(buf), uppercase ? "%08X" : "%08x", value);
    return buf;
}

// The shortest hex form, which the header pads with blanks.
std::string short_field(uint32_t value) {
    char buf[16];
    std::snprintf(buf, sizeof(buf), "%x", value);
    return buf;
}

class VerifyTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        pki_ = new pki::DevPki(pki::load_dev_pki(TAVO_DEV_PKI_DIR));
        payload_ = new Bytes(70000);
        for (std::size_t i = 0; i < payload_->size(); ++i) {
            (*payload_)[i] = static_cast<uint8_t>(i * 7 + 3);
        }
    }
    static void TearDownTestSuite() {
        delete pki_;
        delete payload_;
    }

    void SetUp() override {
        if (!tavo::upgrade::root_certificate_is_development()) {
            GTEST_SKIP() << "the library trusts a release root; packages here use the "
                            "development PKI";
        }
        tavo::test::remove_logs();
        fs::create_directories(kDir);
    }

    // Detached signature over `content` by the signer (with its CA embedded) and a
    // time-stamp token over the signature value.
    static Bytes sign(const Bytes &content, const std::string &digest = "sha256") {
        pki::SignSpec spec;
        spec.digest = digest;
        spec.embed = std::vector<const pki::Cert *>{&pki_->signer, &pki_->ca};
        Bytes cms = pki::sign_detached(content, pki_->signer, pki_->signer_key, spec);
        pki::TsSpec ts;
        ts.gen_time = std::time(nullptr);
        Bytes token =
            pki::make_timestamp_token(pki::signature_value(cms), pki_->tsa, pki_->tsa_key, ts);
        return pki::attach_timestamp(cms, token);
    }

    static Bytes crls() {
        Bytes out = pki_->root_crl;
        out.insert(out.end(), pki_->ca_crl.begin(), pki_->ca_crl.end());
        return out;
    }

    static std::string sha256_hex(const Bytes &data) {
        return pki::hex(pki::digest("sha256", data));
    }

    // Writes a package and verifies it.
    int32_t verify(const Bytes &package, const std::string &path = kPackage) {
        pki::write_file(path, package);
        return TavoCmsValidateSign(path.c_str());
    }

    static void expect_logged(const std::vector<Record> &records) {
        for (const auto &[where, text] : records) {
            std::string origin = where.find(',') == std::string::npos ? kApi + where : where;
            EXPECT_TRUE(tavo::test::logged(kErrLog, origin, text))
                << "missing [" << origin << "]: " << text;
        }
    }

    static void expect_no_errors() {
        for (const auto &record : tavo::test::read_log(kErrLog)) {
            ADD_FAILURE() << "unexpected record: " << record.message;
        }
    }

    static inline const std::string kDir = "/tmp/upgrade-test";
    static inline const std::string kPackage = kDir + "/package.bin";
    static inline pki::DevPki *pki_ = nullptr;
    static inline Bytes *payload_ = nullptr;
};

struct GoodCase {
    const char *what;
    const char *word;
    const char *digest;  // of the CMS signature
    std::size_t payloadSize;
};

class GoodPackage : public VerifyTest, public ::testing::WithParamInterface<GoodCase> {};

TEST_P(GoodPackage, IsAcceptedWithoutARecord) {
    const GoodCase &c = GetParam();
    Bytes payload(payload_->begin(), payload_->begin() + static_cast<long>(c.payloadSize));
    Bytes list = pki::make_file_list(payload, "firmware.bin", c.word);
    EXPECT_EQ(verify(pki::make_package(list, sign(list, c.digest), crls(), payload)), 0);
    expect_no_errors();
}

INSTANTIATE_TEST_SUITE_P(Digests, GoodPackage,
                         ::testing::Values(GoodCase{"sha256", "SHA256-Digest", "sha256", 70000},
                                           GoodCase{"sha384", "SHA384-Digest", "sha384", 4097},
                                           GoodCase{"sha512", "SHA512-Digest", "sha512", 1},
                                           // the sections end exactly at the end of the file
                                           GoodCase{"empty_payload", "SHA256-Digest", "sha256", 0}),
                         [](const auto &p) { return std::string(p.param.what); });

struct ListCase {
    const char *what;
    // The file list; "%d" stands for the payload's SHA-256 in lowercase hex.
    std::string list;
    int32_t verdict;
    std::vector<Record> records;  // "%d" and "%D": the digest in lower and upper case
};

std::string expand(std::string text, const std::string &digest) {
    for (auto [mark, value] : {std::pair{"%d", digest}, std::pair{"%D", upper(digest)}}) {
        for (std::size_t at; (at = text.find(mark)) != std::string::npos;) {
            text.replace(at, 2, value);
        }
    }
    return text;
}

class FileListRules : public VerifyTest, public ::testing::WithParamInterface<ListCase> {};

TEST_P(FileListRules, DecideTheChecksumStage) {
    const ListCase &c = GetParam();
    std::string digest = sha256_hex(*payload_);
    Bytes list = bytes(expand(c.list, digest));
    EXPECT_EQ(verify(pki::make_package(list, sign(list), crls(), *payload_)), c.verdict);
    std::vector<Record> records;
    for (const auto &[where, text] : c.records) {
        records.emplace_back(where, expand(text, digest));
    }
    if (c.verdict != 0) {
        records.emplace_back("TavoCmsValidateSign",
                             "Verify file checksum failed, ret = -1\r\n\r\n");
    }
    expect_logged(records);
    if (c.verdict == 0) {
        expect_no_errors();
    }
}

const std::string kLine256(256, 'x');

INSTANTIATE_TEST_SUITE_P(
    Cases, FileListRules,
    ::testing::Values(
        // digests compare as text: uppercase hex fails
        ListCase{"uppercase",
                 "Name: a\nSHA256-Digest: %D\n",
                 -1,
                 {{"VerifyFileChecksum", "checksum in file list : SHA256-Digest : %D\r\n\r\n"},
                  {"VerifyFileChecksum", "checksum of real file : SHA256-Digest : %d\r\n\r\n"}}},
        ListCase{"trailing_cr",
                 "Name: a\nSHA256-Digest: %d\r\n",
                 -1,
                 {{"VerifyFileChecksum", "checksum in file list : SHA256-Digest : %d\r\r\n\r\n"}}},
        ListCase{"unknown_word",
                 "Name: a\nSHA1-Digest: %d\n",
                 -1,
                 {{"DigestAlgorithmStrToId", "Wrong digest algorithm : SHA1-Digest\r\n\r\n"},
                  {"upgrade_cmsv_callback,CvbMdInitImpl",
                   "Undefined hash algorithm : hash_algo = 0\r\n\r\n"},
                  {"CalUpFileMd", "init md context error, ret = -1\r\n.\r\n"},
                  {"VerifyFileChecksum", "CalUpFileMd failed, ret = -1\r\n\r\n"}}},
        // only the first 13 characters of the word count
        ListCase{"longer_word", "Name: a\nSHA256-Digest-v2: %d\n", 0, {}},
        // lines before the first "Name: " are skipped, up to 256 characters each
        ListCase{
            "line_of_256", "Manifest: 1\n" + kLine256 + "\nName: a\nSHA256-Digest: %d\n", 0, {}},
        ListCase{"line_of_257",
                 kLine256 + "x\nName: a\nSHA256-Digest: %d\n",
                 -1,
                 {{"ReadUpFileLine", "Line too long.\r\n\r\n"},
                  {"VerifyFileChecksum", "ReadUpFileLine failed, ret = -1\r\n\r\n"}}},
        // only the first entry counts
        ListCase{"second_entry_ignored",
                 "Name: a\nSHA256-Digest: %d\nName: b\nSHA256-Digest: 00\n",
                 0,
                 {}},
        ListCase{"no_name_line",
                 "name: a\nSHA256-Digest: %d\n",
                 -1,
                 {{"VerifyFileChecksum", "File list wrong : can't find digest.\r\n\r\n"}}},
        ListCase{"no_colon",
                 "Name: a\nSHA256-Digest %d\n",
                 -1,
                 {{"VerifyFileChecksum", "strchr buf[SHA256-Digest %d] failed.\r\n\r\n"}}},
        ListCase{"empty_digest",
                 "Name: a\nSHA256-Digest:\n",
                 -1,
                 {{"VerifyFileChecksum", "Hash value is null\r\n\r\n"}}}),
    [](const auto &p) { return std::string(p.param.what); });

// Lengths of a well-formed package's sections, for header rows.
struct Sections {
    uint32_t list, sign, crl, total;
};
using Fields = std::array<std::string, 7>;

Fields canonical(const Sections &s) {
    return {"00000003",    "00000001", field(s.list), "00000002",
            field(s.sign), "00000003", field(s.crl)};
}

struct HeaderCase {
    const char *what;
    std::function<void(Fields &, const Sections &)> edit;  // applied to the canonical header
    std::function<std::vector<Record>(const Sections &)> records;  // none: accepted
};

// What a header with the wrong file count or ids leaves in the log.
std::vector<Record> dump(uint32_t id3, const Sections &s) {
    char text[256];
    std::snprintf(text, sizeof(text),
                  "file_num = 3 file1_id = 1 file_list_len = %u file2_id = 2 cms_sign_len = %u "
                  "file3_id = %u crl_file_len = %u\r\n\r\n",
                  s.list, s.sign, id3, s.crl);
    return {{"CheckCmsFileInfo", "Check cmsFileInfo failed.\r\n\r\n"},
            {"CheckCmsFileInfo", text},
            {"TavoCmsValidateSign", "CheckCmsFileInfo failed.\r\n\r\n"}};
}

class HeaderRules : public VerifyTest, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(HeaderRules, DecideTheHeaderStage) {
    const HeaderCase &c = GetParam();
    Bytes list = pki::make_file_list(*payload_);
    Bytes cms = sign(list);
    Bytes good = pki::make_package(list, cms, crls(), *payload_);
    Sections s{static_cast<uint32_t>(list.size()), static_cast<uint32_t>(cms.size()),
               static_cast<uint32_t>(crls().size()), static_cast<uint32_t>(good.size())};
    Fields fields = canonical(s);
    c.edit(fields, s);
    Bytes package = pki::encode_header_text(fields);
    package.insert(package.end(), good.begin() + pki::kPackageHeaderSize, good.end());
    EXPECT_EQ(verify(package), c.records ? -1 : 0);
    if (c.records) {
        expect_logged(c.records(s));
    } else {
        expect_no_errors();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HeaderRules,
    ::testing::Values(
        HeaderCase{"uppercase_hex",
                   [](Fields &f, const Sections &s) {
                       f[2] = field(s.list, true);
                       f[4] = field(s.sign, true);
                   },
                   nullptr},
        // the scan stops at the first non-hex character
        HeaderCase{"padded_fields",
                   [](Fields &f, const Sections &s) {
                       f[0] = "3z";
                       f[2] = short_field(s.list);
                       f[4] = short_field(s.sign) + "g";
                   },
                   nullptr},
        HeaderCase{"ids_1_2_4", [](Fields &f, const Sections &) { f[5] = "00000004"; },
                   [](const Sections &s) { return dump(4, s); }},
        // blanks only: the scan's input failure is logged and the field stays 0
        HeaderCase{"blank_field", [](Fields &f, const Sections &) { f[5] = ""; },
                   [](const Sections &s) {
                       std::vector<Record> r = dump(0, s);
                       r.emplace_back("TavoCmsReadCmsFileInfoItem",
                                      "call sscanf_s failed.-1.\n\r\n");
                       return r;
                   }},
        // the three lengths reach the file length (the header is not counted)
        HeaderCase{"sections_fill_file",
                   [](Fields &f, const Sections &s) { f[6] = field(s.total - s.list - s.sign); },
                   [](const Sections &s) {
                       return std::vector<Record>{
                           {"TavoCmsValidateSign", "File length is too short : fileLength = " +
                                                       std::to_string(s.total) + "\r\n\r\n"}};
                   }},
        // one byte less passes the length check; the CRL read then runs short
        HeaderCase{
            "sections_one_short",
            [](Fields &f, const Sections &s) { f[6] = field(s.total - s.list - s.sign - 1); },
            [](const Sections &s) {
                std::string left = std::to_string(s.total - 56 - s.list - s.sign);
                std::string wanted = std::to_string(s.total - s.list - s.sign - 1);
                return std::vector<Record>{
                    {"TavoCmsReadBuffFromFile",
                     "count(" + left + ") err. len_curr(" + wanted + ").\r\n"},
                    {"VerifyFileSign", "read_cms_file_content failed, ret = -1\r\n\r\n"},
                    {"TavoCmsValidateSign", "Verify file sign failed, ret = -1\r\n\r\n"}};
            }}),
    [](const auto &p) { return std::string(p.param.what); });

TEST_F(VerifyTest, ChangedPayloadFailsAtTheChecksum) {
    Bytes list = pki::make_file_list(*payload_);
    Bytes package = pki::make_package(list, sign(list), crls(), *payload_);
    package[package.size() - 100] ^= 0x20;
    EXPECT_EQ(verify(package), -1);
    expect_logged({{"VerifyFileChecksum", "checksum in file list : SHA256-Digest : " +
                                              sha256_hex(*payload_) + "\r\n\r\n"},
                   {"TavoCmsValidateSign", "Verify file checksum failed, ret = -1\r\n\r\n"}});
}

TEST_F(VerifyTest, ChangedFileListFailsAtTheSignature) {
    Bytes list = pki::make_file_list(*payload_);
    Bytes cms = sign(list);
    list[6] = 'X';  // "Name: X..."
    EXPECT_EQ(verify(pki::make_package(list, cms, crls(), *payload_)), -1);
    expect_logged({{"VerifyFileSign", "verify signature not match.\n\r\n"},
                   {"TavoCmsValidateSign", "Verify file sign failed, ret = -1\r\n\r\n"}});
}

TEST_F(VerifyTest, EmptySignatureIsReportedAsAnAllocationFailure) {
    Bytes list = pki::make_file_list(*payload_);
    EXPECT_EQ(verify(pki::make_package(list, {}, crls(), *payload_)), -1);
    expect_logged({{"VerifyDetachSignatureQuick", "malloc failed, cms_sign_len=0.\n\r\n"},
                   {"VerifyFileSign", "verify signature error, code ffffffff.\r\n"},
                   {"TavoCmsValidateSign", "Verify file sign failed, ret = -1\r\n\r\n"}});
}

// Without CRLs no certificate of the signer's chain is covered: the engine refuses
// the signature with "no CRL covers the certificate".
TEST_F(VerifyTest, PackageWithoutCrlsFailsAtTheSignature) {
    Bytes list = pki::make_file_list(*payload_);
    EXPECT_EQ(verify(pki::make_package(list, sign(list), {}, *payload_)), -1);
    const std::string code = std::to_string(static_cast<int32_t>(CMSV_ERR_NO_CRL));
    expect_logged({{"VerifyDetachSignatureQuick",
                    "cmsv_verify_detach_signature_begin, ret = " + code + "\n\r\n"},
                   {"VerifyFileSign", "verify signature error, code 88200012.\r\n"},
                   {"TavoCmsValidateSign", "Verify file sign failed, ret = " + code + "\r\n\r\n"}});
}

TEST_F(VerifyTest, PathLengthLimit) {
    Bytes list = pki::make_file_list(*payload_);
    Bytes package = pki::make_package(list, sign(list), crls(), *payload_);
    std::string dir = kDir + "/" + std::string(120, 'a') + "/" + std::string(100, 'b');
    fs::create_directories(dir);
    std::string path255 = dir + "/" + std::string(255 - dir.size() - 1, 'p');
    ASSERT_EQ(path255.size(), 255u);
    EXPECT_EQ(verify(package, path255), 0);
    expect_no_errors();

    std::string path256 = path255 + "q";
    pki::write_file(path256, package);
    EXPECT_EQ(TavoCmsValidateSign(path256.c_str()), -1);
    EXPECT_EQ(TavoCmsValidateSign(nullptr), -1);
    auto records = tavo::test::read_log(kErrLog);
    ASSERT_EQ(records.size(), 2u);
    for (const auto &record : records) {
        EXPECT_EQ(tavo::test::message_text(record),
                  "Failed to get cms file info, ret = -1\r\n\r\n");
    }
}

TEST_F(VerifyTest, MissingPackage) {
    EXPECT_EQ(TavoCmsValidateSign("/tmp/upgrade-test/none.bin"), -1);
    expect_logged(
        {{"TavoCmsGetFileLen", "open file /tmp/upgrade-test/none.bin failed errno(2).\r\n"},
         {"TavoCmsValidateSign", "Failed to get cms file info, ret = -1\r\n\r\n"}});
}

TEST_F(VerifyTest, BuiltInRootIsTheDevelopmentRoot) {
    const uint8_t *der = nullptr;
    uint32_t length = 0;
    int32_t development = -1;
    ASSERT_EQ(tavo_get_upgrade_root_cert(&der, &length, &development), 0);
    EXPECT_EQ(development, 1);
    EXPECT_EQ(Bytes(der, der + length), pki::read_file(fs::path(TAVO_DEV_PKI_DIR) / "root.der"));
    EXPECT_EQ(tavo_get_upgrade_root_cert(nullptr, &length, &development), -1);
}

}  // namespace
