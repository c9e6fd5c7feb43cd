#include "package.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string_view>
#include <vector>

#include "tavo/cmsv.h"
#include "tavo/tavo_upgrade.h"

namespace tavoctl {
namespace {

namespace fs = std::filesystem;

constexpr const char *kErrorLog = "/var/log/quillmon_LOG_ERR.log";
constexpr const char *kErrorLogBackup = "/var/log/quillmon_LOG_ERR.log.bak";
constexpr std::size_t kHeaderField = 8;
constexpr std::size_t kHeaderFields = 7;

struct StageMarker {
    std::string_view text;
    const char *stage;
};
// The verifier's own records for each stage, outermost last.
constexpr std::array<StageMarker, 5> kStageMarkers{{
    {"Failed to get cms file info", "header"},
    {"CheckCmsFileInfo failed", "header"},
    {"File length is too short", "length"},
    {"Verify file sign failed, ret = ", "signature"},
    {"Verify file checksum failed", "checksum"},
}};

struct EngineCode {
    uint32_t code;
    const char *meaning;
};
constexpr std::array<EngineCode, 36> kEngineCodes{{
    {CMSV_ERR_PARAM, "a required part is missing (no time-stamp token?)"},
    {CMSV_ERR_CERT_REVOKED, "a certificate is revoked"},
    {CMSV_ERR_NO_ISSUER, "the chain does not reach the trusted root"},
    {CMSV_ERR_CERT_SIGNATURE, "a certificate signature does not verify"},
    {CMSV_ERR_KEY_USAGE, "a certificate lacks the required key usage"},
    {CMSV_ERR_NAME_ATTRIBUTE, "a certificate name has an unknown attribute"},
    {CMSV_ERR_SIGNER_CHAIN, "the signer's certificate chain did not verify"},
    {CMSV_ERR_NO_CRL, "no CRL covers a certificate of the chain"},
    {CMSV_ERR_NOT_YET_VALID, "a certificate was not yet valid at the time-stamp"},
    {CMSV_ERR_EXPIRED, "a certificate had expired at the time-stamp"},
    {CMSV_ERR_TST_HASH, "the time-stamp uses an unsupported hash"},
    {CMSV_ERR_CHAIN_DEPTH, "the certificate chain nests too deep"},
    {CMSV_ERR_CRL_BUNDLE, "the CRL section holds no readable CRL"},
    {CMSV_ERR_CRL_SIGNER, "no trusted certificate verifies a CRL"},
    {CMSV_ERR_CRL_TOO_MANY, "the CRL section holds more than 16 CRLs"},
    {CMSV_ERR_SIGNATURE_TOO_LONG, "the signature value is too long"},
    {CMSV_ERR_DIGEST_CONFLICT, "two signers expect different digests"},
    {CMSV_ERR_DIGEST_UNSUPPORTED, "the signer uses an unsupported digest"},
    {CMSV_ERR_NO_WORK, "nothing to verify the content against"},
    {CMSV_ERR_NO_SIGNED_DATA, "the signature section holds no SignedData"},
    {CMSV_ERR_SIGNED_ATTRS, "the signed attributes do not verify"},
    {CMSV_ERR_SIGNATURE_ALGORITHM, "unsupported signature algorithm"},
    {CMSV_ERR_PKCS7_DECODE, "the signature section cannot be decoded"},
    {CMSV_ERR_SIGNER_NOT_FOUND, "the signer's certificate is not in the package"},
    {CMSV_ERR_TST_IMPRINT, "the time-stamp is not over this signature"},
    {CMSV_ERR_TST_SIGNATURE, "the time-stamp's own signature does not verify"},
    {CMSV_ERR_ASN_TAG, "malformed DER: unexpected tag"},
    {CMSV_ERR_ASN_TAG_MISMATCH, "malformed DER: unexpected tag"},
    {CMSV_ERR_ASN_LENGTH, "malformed DER: bad length"},
    {CMSV_ERR_ASN_CAPTURE, "malformed DER: field cannot be read"},
    {CMSV_ERR_ASN_SEQUENCE, "malformed DER: missing field or trailing bytes"},
    {CMSV_ERR_ASN_BITS, "malformed DER: bad BIT STRING"},
    {CMSV_ERR_ASN_INTEGER, "malformed DER: bad INTEGER"},
    {CMSV_ERR_ASN_SET, "malformed DER: bad list or too many elements"},
    {CMSV_ERR_ASN_BOOLEAN, "malformed DER: bad BOOLEAN"},
    {CMSV_ERR_TIME_FORMAT, "a time value has an unsupported form"},
}};

std::string read_from(const char *path, std::uintmax_t offset) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return {};
    }
    in.seekg(static_cast<std::streamoff>(offset));
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::uintmax_t size_of(const char *path) {
    std::error_code ec;
    std::uintmax_t size = fs::file_size(path, ec);
    return ec ? 0 : size;
}

// What the library appended to its error log since it was `before` bytes long; a
// rotation in between moved the start of it into the backup.
std::string appended_since(std::uintmax_t before) {
    std::uintmax_t now = size_of(kErrorLog);
    if (now >= before) {
        return read_from(kErrorLog, before);
    }
    return read_from(kErrorLogBackup, before) + read_from(kErrorLog, 0);
}

// Messages of the verifier's records, innermost first, prefixes removed.
std::vector<std::string> verifier_messages(const std::string &log) {
    std::vector<std::string> messages;
    std::istringstream lines(log);
    std::string line;
    while (std::getline(lines, line)) {
        bool ours = line.find("[tavo_cms_api,") != std::string::npos ||
                    line.find("[upgrade_cmsv_callback,") != std::string::npos;
        std::size_t start = line.find("]:");
        if (!ours || start == std::string::npos) {
            continue;
        }
        std::string text = line.substr(start + 2);
        while (!text.empty() && (text.back() == '\r' || text.back() == '.')) {
            text.pop_back();
        }
        messages.push_back(text);
    }
    return messages;
}

void read_stage(const std::string &message, Verdict &verdict) {
    for (const StageMarker &marker : kStageMarkers) {
        if (message.starts_with(marker.text)) {
            verdict.stage = marker.stage;
            if (verdict.stage == "signature") {
                long code = std::strtol(message.c_str() + marker.text.size(), nullptr, 10);
                auto word = static_cast<uint32_t>(code);
                if ((word & 0xFF000000u) == 0x88000000u) {
                    verdict.engine_code = word;
                }
            }
        }
    }
}

const char *meaning_of(uint32_t code) {
    for (const EngineCode &entry : kEngineCodes) {
        if (entry.code == code) {
            return entry.meaning;
        }
    }
    return "see the verification engine's codes";
}

std::string hex_code(uint32_t code) {
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", code);
    return text.data();
}

struct ContextDeleter {
    void operator()(CmsvVrfCtx *ctx) const { (void)cmsv_vrf_ctx_free(ctx); }
};
using Context = std::unique_ptr<CmsvVrfCtx, ContextDeleter>;

Context engine_context() {
    CmsvCreateParams params{};
    params.size = CMSV_CREATE_PARAMS_SIZE;
    if (CmsvSetCallbackFuncs(&params.funcs) != 0) {
        return nullptr;
    }
    CmsvVrfCtx *ctx = nullptr;
    return Context(cmsv_verify_create_ctx(&ctx, &params) == CMSV_OK ? ctx : nullptr);
}

std::string sha256_hex(CmsvVrfCtx *ctx, const uint8_t *data, uint32_t length) {
    void *md = nullptr;
    if (cmsv_md_ctx_create(ctx, &md) != CMSV_OK) {
        return {};
    }
    std::array<uint8_t, CMSV_DIGEST_MAX> digest{};
    uint32_t digest_length = 0;
    bool ok = cmsv_md_init(ctx, md, AOID_SHA256) == CMSV_OK &&
              cmsv_md_update(ctx, md, data, length) == CMSV_OK &&
              cmsv_md_final(ctx, md, digest.data(), &digest_length) == CMSV_OK;
    cmsv_md_ctx_destory(ctx, md);
    std::string text;
    for (uint32_t i = 0; ok && i < digest_length; ++i) {
        std::array<char, 4> pair{};
        std::snprintf(pair.data(), pair.size(), i == 0 ? "%02X" : ":%02X", digest[i]);
        text += pair.data();
    }
    return text;
}

std::string subject_of(CmsvVrfCtx *ctx, const uint8_t *der, uint32_t length) {
    CmsvCert *cert = nullptr;
    uint32_t consumed = 0;
    if (cmsv_x509_decode_cert(ctx, der, length, &cert, &consumed) != CMSV_OK) {
        return {};
    }
    char *name = nullptr;
    uint32_t name_length = 0;
    std::string subject;
    if (cmsv_convert_from_x509_name(ctx, &cert->tbs.subject, &name, &name_length) == CMSV_OK) {
        subject.assign(name, name_length);
        cmsv_free(ctx, name);
    }
    cmsv_x509_free_cert(ctx, cert);
    return subject;
}

bool parse_header(std::istream &in, std::array<uint32_t, kHeaderFields> &fields) {
    for (uint32_t &field : fields) {
        std::array<char, kHeaderField + 1> text{};
        if (!in.read(text.data(), kHeaderField)) {
            return false;
        }
        field = static_cast<uint32_t>(std::strtoul(text.data(), nullptr, 16));
    }
    return true;
}

}  // namespace

Verdict verify_package(const std::string &path) {
    std::uintmax_t before = size_of(kErrorLog);
    Verdict verdict;
    verdict.accepted = TavoCmsValidateSign(path.c_str()) == 0;
    if (verdict.accepted) {
        return verdict;
    }
    std::vector<std::string> messages = verifier_messages(appended_since(before));
    for (const std::string &message : messages) {
        read_stage(message, verdict);
    }
    if (!messages.empty()) {
        verdict.reason = messages.front();
    }
    if (verdict.stage.empty()) {
        verdict.stage = "header";
    }
    return verdict;
}

nlohmann::json trusted_root() {
    const uint8_t *der = nullptr;
    uint32_t length = 0;
    int32_t development = 0;
    nlohmann::json root = {{"subject", nullptr}, {"sha256", nullptr}, {"development", nullptr}};
    if (tavo_get_upgrade_root_cert(&der, &length, &development) != 0) {
        return root;
    }
    root["development"] = development != 0;
    if (Context ctx = engine_context()) {
        root["subject"] = subject_of(ctx.get(), der, length);
        root["sha256"] = sha256_hex(ctx.get(), der, length);
    }
    return root;
}

std::string describe(const Verdict &verdict) {
    if (verdict.accepted) {
        return "accepted";
    }
    std::string text = "rejected at the " + verdict.stage + " check";
    if (verdict.engine_code) {
        text += " (engine code " + hex_code(*verdict.engine_code) + ": " +
                meaning_of(*verdict.engine_code) + ")";
    }
    if (!verdict.reason.empty()) {
        text += "; library: " + verdict.reason;
    }
    return text;
}

nlohmann::json to_json(const Verdict &verdict) {
    nlohmann::json document = {{"accepted", verdict.accepted}};
    document["stage"] = verdict.accepted ? nlohmann::json(nullptr) : nlohmann::json(verdict.stage);
    document["engine_code"] = verdict.engine_code ? nlohmann::json(hex_code(*verdict.engine_code))
                                                  : nlohmann::json(nullptr);
    document["reason"] =
        verdict.reason.empty() ? nlohmann::json(nullptr) : nlohmann::json(verdict.reason);
    return document;
}

PrivateCopy::PrivateCopy(const std::string &path) {
    std::string templ = (fs::temp_directory_path() / "tavoctl-XXXXXX").string();
    if (::mkdtemp(templ.data()) == nullptr) {
        error_ = "cannot make a private directory";
        return;
    }
    directory_ = templ;
    std::error_code ec;
    fs::path target = fs::path(directory_) / "package";
    if (!fs::copy_file(path, target, ec)) {
        error_ = "cannot read " + path + ": " + ec.message();
        return;
    }
    file_ = target.string();
}

PrivateCopy::~PrivateCopy() {
    if (!directory_.empty()) {
        std::error_code ec;
        fs::remove_all(directory_, ec);
    }
}

bool extract_payload(const std::string &package, const std::string &out, std::string &error) {
    std::ifstream in(package, std::ios::binary);
    std::array<uint32_t, kHeaderFields> fields{};
    if (!in || !parse_header(in, fields)) {
        error = "the package header cannot be read";
        return false;
    }
    // file_num, id, list length, id, signature length, id, CRL length
    std::uintmax_t offset = static_cast<std::uintmax_t>(fields[0]) * 16 + kHeaderField +
                            std::uintmax_t{fields[2]} + fields[4] + fields[6];
    in.seekg(static_cast<std::streamoff>(offset));
    std::ofstream payload(out, std::ios::binary | std::ios::trunc);
    std::copy(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>(),
              std::ostreambuf_iterator<char>(payload));
    if (!in.eof() && !in.good()) {
        error = "cannot read the payload";
        return false;
    }
    if (!payload.flush()) {
        error = "cannot write the payload";
        return false;
    }
    return true;
}

}  // namespace tavoctl
