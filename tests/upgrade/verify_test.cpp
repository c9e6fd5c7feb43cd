// TavoCmsValidateSign end to end: packages signed here with the development PKI and a
// local time-stamp, broken one rule at a time; each case asserts the verdict and the
// exact records of the error log.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <optional>
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

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return std::toupper(c); });
    return text;
}

// A header field: 8 hex digits, or the shortest form, which the header pads with blanks.
std::string field(uint32_t value, bool shortest = false) {
    char buf[16];
    std::snprintf(buf, sizeof(buf), "%08x", value);
    std::string text = buf;
    return shortest ? text.erase(0, text.find_first_not_of('0')) : text;
}

std::string expand(std::string text, const std::string &digest) {
    for (auto [mark, value] : {std::pair{"%d", digest}, std::pair{"%D", upper(digest)}}) {
        for (std::size_t at; (at = text.find(mark)) != std::string::npos;) {
            text.replace(at, 2, value);
        }
    }
    return text;
}

class VerifyTest : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        pki_ = pki::load_dev_pki(TAVO_DEV_PKI_DIR);
        payload_.resize(70000);
        for (std::size_t i = 0; i < payload_.size(); ++i) {
            payload_[i] = static_cast<uint8_t>(i * 7 + 3);
        }
        crls_ = pki_->root_crl;
        crls_.insert(crls_.end(), pki_->ca_crl.begin(), pki_->ca_crl.end());
        digest_ = pki::hex(pki::digest("sha256", payload_));
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
        pki::SignProfile profile;
        profile.digest = digest;
        profile.embed = std::vector<const pki::Cert *>{&pki_->signer, &pki_->ca};
        Bytes cms = pki::sign_detached(content, pki_->signer, pki_->signer_key, profile);
        pki::TsProfile ts;
        ts.gen_time = std::time(nullptr);
        Bytes token =
            pki::make_timestamp_token(pki::signature_value(cms), pki_->tsa, pki_->tsa_key, ts);
        return pki::attach_timestamp(cms, token);
    }

    // Writes a package and verifies it.
    int32_t verify(const Bytes &package, const std::string &path = kPackage) {
        pki::write_file(path, package);
        return TavoCmsValidateSign(path.c_str());
    }

    // "%d" and "%D" in a record's text stand for the payload's SHA-256 in lower and upper case.
    static void expect_logged(const std::vector<Record> &records) {
        for (const auto &[where, text] : records) {
            std::string origin = where.find(',') == std::string::npos ? kApi + where : where;
            EXPECT_TRUE(tavo::test::logged(kErrLog, origin, expand(text, digest_)))
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
    static inline std::optional<pki::DevPki> pki_;
    static inline Bytes payload_, crls_;
    static inline std::string digest_;
};

TEST_F(VerifyTest, GoodPackagesAreAcceptedWithoutARecord) {
    const struct {
        const char *word;
        const char *digest;  // of the CMS signature
        std::size_t payloadSize;
    } cases[] = {
        {"SHA256-Digest", "sha256", 70000},
        {"SHA384-Digest", "sha384", 4097},
        {"SHA512-Digest", "sha512", 1},
        {"SHA256-Digest", "sha256", 0},  // the sections end exactly at the end of the file
    };
    for (const auto &c : cases) {
        Bytes payload(payload_.begin(), payload_.begin() + static_cast<long>(c.payloadSize));
        Bytes list = pki::make_file_list(payload, "firmware.bin", c.word);
        EXPECT_EQ(verify(pki::make_package(list, sign(list, c.digest), crls_, payload)), 0)
            << c.word << " " << c.payloadSize;
    }
    expect_no_errors();
}

struct ListCase {
    const char *what;
    // The file list; "%d" stands for the payload's SHA-256 in lowercase hex.
    std::string list;
    int32_t verdict;
    std::vector<Record> records;  // "%d" and "%D": the digest in lower and upper case
};

class FileListRules : public VerifyTest, public ::testing::WithParamInterface<ListCase> {};

TEST_P(FileListRules, DecideTheChecksumStage) {
    const ListCase &c = GetParam();
    const std::string listText = expand(c.list, digest_);
    Bytes list(listText.begin(), listText.end());
    EXPECT_EQ(verify(pki::make_package(list, sign(list), crls_, payload_)), c.verdict);
    std::vector<Record> records = c.records;
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

ListCase Row(const char *what, std::string list, std::vector<Record> records = {}) {
    return ListCase{what, std::move(list), records.empty() ? 0 : -1, std::move(records)};
}

INSTANTIATE_TEST_SUITE_P(
    Cases, FileListRules,
    ::testing::Values(
        // digests compare as text: uppercase hex fails
        Row("uppercase", "Name: a\nSHA256-Digest: %D\n",
            {{"VerifyFileChecksum", "checksum in file list : SHA256-Digest : %D\r\n\r\n"},
             {"VerifyFileChecksum", "checksum of real file : SHA256-Digest : %d\r\n\r\n"}}),
        Row("trailing_cr", "Name: a\nSHA256-Digest: %d\r\n",
            {{"VerifyFileChecksum", "checksum in file list : SHA256-Digest : %d\r\r\n\r\n"}}),
        Row("unknown_word", "Name: a\nSHA1-Digest: %d\n",
            {{"DigestAlgorithmStrToId", "Wrong digest algorithm : SHA1-Digest\r\n\r\n"},
             {"upgrade_cmsv_callback,CvbMdInitImpl",
              "Undefined hash algorithm : hash_algo = 0\r\n\r\n"},
             {"CalUpFileMd", "init md context error, ret = -1\r\n.\r\n"},
             {"VerifyFileChecksum", "CalUpFileMd failed, ret = -1\r\n\r\n"}}),
        // only the first 13 characters of the word count
        Row("longer_word", "Name: a\nSHA256-Digest-v2: %d\n"),
        // lines before the first "Name: " are skipped, up to 256 characters each
        Row("line_of_256", "Manifest: 1\n" + kLine256 + "\nName: a\nSHA256-Digest: %d\n"),
        Row("line_of_257", kLine256 + "x\nName: a\nSHA256-Digest: %d\n",
            {{"ReadUpFileLine", "Line too long.\r\n\r\n"},
             {"VerifyFileChecksum", "ReadUpFileLine failed, ret = -1\r\n\r\n"}}),
        // only the first entry counts
        Row("second_entry_ignored", "Name: a\nSHA256-Digest: %d\nName: b\nSHA256-Digest: 00\n"),
        Row("no_name_line", "name: a\nSHA256-Digest: %d\n",
            {{"VerifyFileChecksum", "File list wrong : can't find digest.\r\n\r\n"}}),
        Row("no_colon", "Name: a\nSHA256-Digest %d\n",
            {{"VerifyFileChecksum", "strchr buf[SHA256-Digest %d] failed.\r\n\r\n"}}),
        Row("empty_digest", "Name: a\nSHA256-Digest:\n",
            {{"VerifyFileChecksum", "Hash value is null\r\n\r\n"}})),
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
    std::vector<Record> records;  // none: accepted; "%L" "%S" "%C" "%T": lengths, see below
};

// What a header with the wrong file count or ids leaves in the log.
std::vector<Record> dump(const std::string &id3, std::vector<Record> more = {}) {
    std::vector<Record> r{{"CheckCmsFileInfo", "Check cmsFileInfo failed.\r\n\r\n"},
                          {"CheckCmsFileInfo",
                           "file_num = 3 file1_id = 1 file_list_len = %L file2_id = 2 cms_sign_len "
                           "= %S file3_id = " +
                               id3 + " crl_file_len = %C\r\n\r\n"},
                          {"TavoCmsValidateSign", "CheckCmsFileInfo failed.\r\n\r\n"}};
    r.insert(r.end(), more.begin(), more.end());
    return r;
}

class HeaderRules : public VerifyTest, public ::testing::WithParamInterface<HeaderCase> {};

TEST_P(HeaderRules, DecideTheHeaderStage) {
    const HeaderCase &c = GetParam();
    Bytes list = pki::make_file_list(payload_);
    Bytes cms = sign(list);
    Bytes good = pki::make_package(list, cms, crls_, payload_);
    Sections s{static_cast<uint32_t>(list.size()), static_cast<uint32_t>(cms.size()),
               static_cast<uint32_t>(crls_.size()), static_cast<uint32_t>(good.size())};
    Fields fields = canonical(s);
    c.edit(fields, s);
    Bytes package = pki::encode_header_text(fields);
    package.insert(package.end(), good.begin() + pki::kPackageHeaderSize, good.end());
    EXPECT_EQ(verify(package), c.records.empty() ? 0 : -1);
    // %R: the bytes left for the CRL after the 56-byte header; %W: one less than the CRL field.
    const std::pair<const char *, uint32_t> marks[] = {{"%L", s.list},
                                                       {"%S", s.sign},
                                                       {"%C", s.crl},
                                                       {"%T", s.total},
                                                       {"%R", s.total - 56 - s.list - s.sign},
                                                       {"%W", s.total - s.list - s.sign - 1}};
    std::vector<Record> records = c.records;
    for (auto &[where, text] : records) {
        for (const auto &[mark, value] : marks) {
            for (std::size_t at; (at = text.find(mark)) != std::string::npos;) {
                text.replace(at, 2, std::to_string(value));
            }
        }
    }
    expect_logged(records);
    if (c.records.empty()) {
        expect_no_errors();
    }
}

const Record kSignFailed{"TavoCmsValidateSign", "Verify file sign failed, ret = -1\r\n\r\n"};

INSTANTIATE_TEST_SUITE_P(
    Cases, HeaderRules,
    ::testing::Values(
        HeaderCase{"uppercase_hex",
                   [](Fields &f, const Sections &s) {
                       f[2] = upper(field(s.list));
                       f[4] = upper(field(s.sign));
                   },
                   {}},
        // the scan stops at the first non-hex character
        HeaderCase{"padded_fields",
                   [](Fields &f, const Sections &s) {
                       f[0] = "3z";
                       f[2] = field(s.list, true);
                       f[4] = field(s.sign, true) + "g";
                   },
                   {}},
        HeaderCase{"ids_1_2_4", [](Fields &f, const Sections &) { f[5] = "00000004"; }, dump("4")},
        // blanks only: the scan's input failure is logged and the field stays 0
        HeaderCase{"blank_field", [](Fields &f, const Sections &) { f[5] = ""; },
                   dump("0", {{"TavoCmsReadCmsFileInfoItem", "call sscanf_s failed.-1.\n\r\n"}})},
        // the three lengths reach the file length (the header is not counted)
        HeaderCase{"sections_fill_file",
                   [](Fields &f, const Sections &s) { f[6] = field(s.total - s.list - s.sign); },
                   {{"TavoCmsValidateSign", "File length is too short : fileLength = %T\r\n\r\n"}}},
        // one byte less passes the length check; the CRL read then runs short
        HeaderCase{
            "sections_one_short",
            [](Fields &f, const Sections &s) { f[6] = field(s.total - s.list - s.sign - 1); },
            {{"TavoCmsReadBuffFromFile", "count(%R) err. len_curr(%W).\r\n"},
             {"VerifyFileSign", "read_cms_file_content failed, ret = -1\r\n\r\n"},
             kSignFailed}}),
    [](const auto &p) { return std::string(p.param.what); });

struct Parts {
    Bytes list, cms, crls, payload;
};
struct BrokenCase {
    const char *what;
    void (*breakIt)(Parts &);     // applied after signing
    std::vector<Record> records;  // "%d": the payload's SHA-256
};

class BrokenPackage : public VerifyTest, public ::testing::WithParamInterface<BrokenCase> {};

TEST_P(BrokenPackage, FailsAtItsStage) {
    Parts p{pki::make_file_list(payload_), {}, crls_, payload_};
    p.cms = sign(p.list);
    GetParam().breakIt(p);
    EXPECT_EQ(verify(pki::make_package(p.list, p.cms, p.crls, p.payload)), -1);
    expect_logged(GetParam().records);
}

const std::string kNoCrl = std::to_string(static_cast<int32_t>(CMSV_ERR_NO_CRL));

INSTANTIATE_TEST_SUITE_P(
    Cases, BrokenPackage,
    ::testing::Values(
        BrokenCase{"changed_payload",
                   [](Parts &p) { p.payload[p.payload.size() - 100] ^= 0x20; },
                   {{"VerifyFileChecksum", "checksum in file list : SHA256-Digest : %d\r\n\r\n"},
                    {"TavoCmsValidateSign", "Verify file checksum failed, ret = -1\r\n\r\n"}}},
        BrokenCase{"changed_file_list",
                   [](Parts &p) { p.list[6] = 'X'; },  // "Name: X..."
                   {{"VerifyFileSign", "verify signature not match.\n\r\n"}, kSignFailed}},
        // an empty signature is reported as an allocation failure
        BrokenCase{"empty_signature",
                   [](Parts &p) { p.cms.clear(); },
                   {{"VerifyDetachSignatureQuick", "malloc failed, cms_sign_len=0.\n\r\n"},
                    {"VerifyFileSign", "verify signature error, code ffffffff.\r\n"},
                    kSignFailed}},
        // without CRLs no certificate of the chain is covered
        BrokenCase{
            "no_crls",
            [](Parts &p) { p.crls.clear(); },
            {{"VerifyDetachSignatureQuick",
              "cmsv_verify_detach_signature_begin, ret = " + kNoCrl + "\n\r\n"},
             {"VerifyFileSign", "verify signature error, code 88200012.\r\n"},
             {"TavoCmsValidateSign", "Verify file sign failed, ret = " + kNoCrl + "\r\n\r\n"}}}),
    [](const auto &p) { return std::string(p.param.what); });

TEST_F(VerifyTest, PathLengthLimit) {
    Bytes list = pki::make_file_list(payload_);
    Bytes package = pki::make_package(list, sign(list), crls_, payload_);
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
