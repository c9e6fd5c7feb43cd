// Upgrade package verification (unit tavo_cms_api): the header, the detached CMS
// signature over the file list (checked by the cmsv engine against the built-in
// root) and the payload digest written in the file list.
#include "upgrade/tavo_cms_api.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>

#include "api/tavo_log.h"
#include "base/bounded.h"
#include "base/c_handle.h"
#include "base/sys.h"
#include "base/unique_file.h"
#include "upgrade/root_cert.h"

char g_cmsFileName[256];
uint32_t g_totalUpFileLen;

namespace {

constexpr const char *kUnit = "tavo_cms_api";

constexpr uint32_t kHeaderFieldLen = 8;
constexpr uint32_t kHeaderFieldCount = 7;
constexpr uint32_t kFileNumFileList = 3;
constexpr std::size_t kPathBufferSize = sizeof(g_cmsFileName);
// A file list line holds at most 256 characters before its line feed.
constexpr uint32_t kLineBufferSize = 257;
constexpr uint32_t kContentStep = 256;
// Lowercase hex of the longest digest (SHA-512) and its terminator.
constexpr uint32_t kHashTextSize = 129;
// The payload is read in blocks of this size through one descriptor: memory stays
// constant and the hash, not the reading, sets the speed.
constexpr std::size_t kPayloadBlockSize = 64 * 1024;

constexpr char kNamePrefix[] = "Name: ";
constexpr std::size_t kNamePrefixLen = sizeof(kNamePrefix) - 1;
constexpr std::size_t kAlgorithmWordLen = 13;

struct DigestWord {
    const char *word;
    uint32_t hashId;
};
constexpr std::array<DigestWord, 3> kDigestWords{{
    {"SHA256-Digest", AOID_SHA256},
    {"SHA384-Digest", AOID_SHA384},
    {"SHA512-Digest", AOID_SHA512},
}};

using MallocBuffer = std::unique_ptr<uint8_t[], tavo::base::FreeWith<std::free>>;
using CmsvContext = tavo::base::CHandle<CmsvVrfCtx, cmsv_vrf_ctx_free>;

MallocBuffer allocate(std::size_t size) {
    return MallocBuffer(static_cast<uint8_t *>(std::malloc(size)));
}

// Offset of the file list: the header is file_num fields of 16 hex digits plus 8.
uint32_t file_list_offset(const cms_file_info &info) {
    return info.file_num * 16 + 8;
}

// A digest context of the provider's table, destroyed on scope exit.
class MdContext {
  public:
    explicit MdContext(const CmsvCallbackFuncs &funcs) : funcs_(funcs) {}
    ~MdContext() {
        if (md_ != nullptr) {
            funcs_.mdCtxDestroy(md_);
        }
    }
    MdContext(const MdContext &) = delete;
    MdContext &operator=(const MdContext &) = delete;

    uint32_t create() { return funcs_.mdCtxCreate(&md_); }
    uint32_t init(uint32_t hashId) { return funcs_.mdInit(md_, hashId); }
    uint32_t update(const uint8_t *data, uint32_t len) { return funcs_.mdUpdate(md_, data, len); }
    uint32_t final(uint8_t *digest, uint32_t *len) { return funcs_.mdFinal(md_, digest, len); }

  private:
    const CmsvCallbackFuncs &funcs_;
    void *md_ = nullptr;
};

// Reads the payload through one descriptor, front to back. Opened lazily so that an
// empty payload touches nothing.
class PayloadReader {
  public:
    // 0, or -1 (logged) when the package cannot be opened or positioned.
    int32_t open(uint32_t start) {
        fd_ = tavo::base::sys_open(g_cmsFileName, O_RDONLY);
        if (!fd_) {
            TAVO_LOG_FOR(tavo::log::kErr, kUnit, "CalUpFileMd",
                         "open file %s failed errno(%d).\r\n", g_cmsFileName, errno);
            return -1;
        }
        (void)posix_fadvise(fd_.get(), start, 0, POSIX_FADV_SEQUENTIAL);
        if (lseek(fd_.get(), start, SEEK_SET) < 0) {
            TAVO_LOG_FOR(tavo::log::kErr, kUnit, "CalUpFileMd",
                         "call fseek fail.file %s failed errno(%d).\r\n", g_cmsFileName, errno);
            return -1;
        }
        return 0;
    }

    // Exactly `count` bytes into `dest`. 0, or -1 (logged) for a short read.
    int32_t read(uint8_t *dest, uint32_t count) {
        ssize_t got =
            tavo::base::read_full(fd_.get(), std::as_writable_bytes(std::span(dest, count)));
        if (got != static_cast<ssize_t>(count)) {
            TAVO_LOG_FOR(tavo::log::kErr, kUnit, "CalUpFileMd", "count(%d) err. len_curr(%d).\r\n",
                         static_cast<int>(got), static_cast<int>(count));
            return -1;
        }
        return 0;
    }

  private:
    tavo::base::UniqueFd fd_;
};

// Opens the package for reading; a failure is logged for `site`.
tavo::base::UniqueFile open_package(const char *path, tavo::log::Site site) {
    tavo::base::UniqueFile file{std::fopen(path, "rb")};
    if (!file) {
        TAVO_LOG_FOR(tavo::log::kErr, kUnit, site, "open file %s failed errno(%d).\r\n", path,
                     errno);
    }
    return file;
}

}  // namespace

int32_t TavoCmsGetFileLen(const char *path, uint32_t *length) {
    if (path == nullptr || length == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error.\r\n\r\n");
        return -1;
    }
    tavo::base::UniqueFile file = open_package(path, __func__);
    if (!file) {
        return -1;
    }
    long end = std::fseek(file.get(), 0, SEEK_END) == 0 ? std::ftell(file.get()) : -1;
    if (end < 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "call fseek fail.file %s failed errno(%d).\r\n", path,
                    errno);
        return -1;
    }
    *length = static_cast<uint32_t>(end);
    return 0;
}

int32_t TavoCmsReadBuffFromFile(const char *path, uint8_t *dest, int32_t offset, uint32_t count) {
    if (path == nullptr || dest == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error.\r\n\r\n");
        return -1;
    }
    tavo::base::UniqueFile file = open_package(path, __func__);
    if (!file) {
        return -1;
    }
    if (std::fseek(file.get(), offset, SEEK_SET) != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "call fseek fail.file %s failed errno(%d).\r\n", path,
                    errno);
        return -1;
    }
    std::size_t got = std::fread(dest, 1, count, file.get());
    if (got != count) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "count(%d) err. len_curr(%d).\r\n",
                    static_cast<int>(got), static_cast<int>(count));
        return -1;
    }
    return 0;
}

int32_t TavoCmsReadCmsFileInfoItem(int32_t offset, uint32_t *value) {
    if (value == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error.\r\n\r\n");
        return -1;
    }
    std::array<char, kHeaderFieldLen + 1> field{};
    int32_t ret = TavoCmsReadBuffFromFile(g_cmsFileName, reinterpret_cast<uint8_t *>(field.data()),
                                          offset, kHeaderFieldLen);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_app_flash_content failed, ret = %d\r\n\r\n", ret);
        return -1;
    }
    unsigned int parsed = *value;
    int scanned = sscanf_s(field.data(), "%x", &parsed);
    if (scanned < 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "call sscanf_s failed.%d.\n\r\n", scanned);
    }
    *value = parsed;
    return 0;
}

int32_t TavoCmsReadCmsFileInfo(cms_file_info *info) {
    if (info == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : cms_file_info is null.\r\n\r\n");
        return -1;
    }
    std::array<uint32_t *, kHeaderFieldCount> fields{
        &info->file_num,     &info->file1_id, &info->file_list_len, &info->file2_id,
        &info->cms_sign_len, &info->file3_id, &info->crl_file_len};
    for (uint32_t i = 0; i < kHeaderFieldCount; ++i) {
        int32_t ret =
            TavoCmsReadCmsFileInfoItem(static_cast<int32_t>(i * kHeaderFieldLen), fields[i]);
        if (ret != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_cms_file_info failed, ret = %d\r\n\r\n", ret);
            return 1;
        }
    }
    return 0;
}

int32_t ReadUpFileLine(uint32_t offset, char *lineBuf, uint32_t bufLen) {
    if (lineBuf == nullptr || bufLen == 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : lineBuf is null OR bufLen is 0, bufLen = %d\r\n\r\n",
                    static_cast<int>(bufLen));
        return -1;
    }
    for (uint32_t i = 0; i < bufLen; ++i) {
        int32_t ret =
            TavoCmsReadBuffFromFile(g_cmsFileName, reinterpret_cast<uint8_t *>(&lineBuf[i]),
                                    static_cast<int32_t>(offset + i), 1);
        if (ret != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "SPI_FLASH_ReadAppCode failed, ret = %d\r\n\r\n",
                        ret);
            return -1;
        }
        if (lineBuf[i] == '\n') {
            lineBuf[i] = '\0';
            return 0;
        }
    }
    TAVO_LOG_TO(tavo::log::kErr, kUnit, "Line too long.\r\n\r\n");
    return -1;
}

void ByteToStr(char *out, int32_t outSize, const uint8_t *bytes, uint32_t count) {
    // The whole text and its terminator must fit: refuse rather than write past it.
    if (out == nullptr || bytes == nullptr || outSize < 2 ||
        static_cast<uint64_t>(outSize) < static_cast<uint64_t>(count) * 2 + 1) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error.\r\n\r\n");
        return;
    }
    for (uint32_t i = 0; i < count; ++i) {
        std::size_t room = static_cast<std::size_t>(outSize) - 2 * static_cast<std::size_t>(i);
        if (snprintf_s(out + 2 * i, room, room - 1, "%02x", bytes[i]) < 1) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "snprintf failed.\n\r\n");
            return;
        }
    }
}

uint32_t DigestAlgorithmStrToId(const char *word) {
    if (word != nullptr) {
        for (const DigestWord &known : kDigestWords) {
            if (std::strncmp(word, known.word, kAlgorithmWordLen) == 0) {
                return known.hashId;
            }
        }
    }
    TAVO_LOG_TO(tavo::log::kErr, kUnit, "Wrong digest algorithm : %s\r\n\r\n",
                word != nullptr ? word : "");
    return 0;
}

int32_t CalUpFileMd(const cms_file_info *info, const char *algorithm, char *out, uint32_t outSize,
                    uint32_t *outLen) {
    if (info == nullptr || algorithm == nullptr || out == nullptr || outLen == nullptr ||
        outSize == 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error.\r\n\r\n");
        return -1;
    }
    CmsvCallbackFuncs funcs;
    int32_t status = CmsvSetCallbackFuncs(&funcs);
    if (status != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CmsvSetCallbackFuncs failed, ret = %d\r\n\r\n",
                    status);
        return -1;
    }
    MdContext md(funcs);
    uint32_t ret = md.create();
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "create md context error, ret = %d\r\n.\r\n",
                    static_cast<int>(ret));
        return -1;
    }
    ret = md.init(DigestAlgorithmStrToId(algorithm));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "init md context error, ret = %d\r\n.\r\n",
                    static_cast<int>(ret));
        return -1;
    }
    // The payload runs from the end of the CRL to the end of the package.
    uint32_t position =
        file_list_offset(*info) + info->file_list_len + info->cms_sign_len + info->crl_file_len;
    MallocBuffer block = allocate(kPayloadBlockSize);
    if (!block) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "pvPortMalloc failed : buf is null.\n\r\n");
        return -1;
    }
    PayloadReader reader;
    if (position < g_totalUpFileLen && reader.open(position) != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_app_flash_content failed, rc = %d\r\n\r\n", -1);
        return -1;
    }
    while (position < g_totalUpFileLen) {
        uint32_t count = static_cast<uint32_t>(
            std::min<std::size_t>(kPayloadBlockSize, g_totalUpFileLen - position));
        int32_t rc = reader.read(block.get(), count);
        if (rc != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_app_flash_content failed, rc = %d\r\n\r\n",
                        rc);
            return -1;
        }
        ret = md.update(block.get(), count);
        if (ret != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "Failed to update md context, ret = %d\r\n\r\n",
                        static_cast<int>(ret));
            return -1;
        }
        position += count;
    }
    block.reset();
    std::array<uint8_t, 256> digest{};
    uint32_t digestLen = 0;
    ret = md.final(digest.data(), &digestLen);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "final md context error, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        return -1;
    }
    ByteToStr(out, static_cast<int32_t>(std::min<uint32_t>(outSize, INT32_MAX)), digest.data(),
              digestLen);
    *outLen = 2 * digestLen;
    return 0;
}

TAVO_API int32_t VerifyFileChecksum(const cms_file_info *info) {
    if (info == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : cmsFileInfo is null.\r\n\r\n");
        return -1;
    }
    MallocBuffer lineBlock = allocate(kLineBufferSize);
    if (!lineBlock) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "pvPortMalloc failed : buf is null.\n\r\n");
        return -1;
    }
    char *line = reinterpret_cast<char *>(lineBlock.get());
    uint32_t position = file_list_offset(*info);
    uint32_t end = position + info->file_list_len;
    bool found = false;
    // The bound is tested before each line only: the last line may run on past the
    // end of the file list.
    while (position < end) {
        (void)memset_s(line, kLineBufferSize, 0, kLineBufferSize);
        int32_t ret = ReadUpFileLine(position, line, kLineBufferSize);
        if (ret != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "ReadUpFileLine failed, ret = %d\r\n\r\n", ret);
            return -1;
        }
        position += static_cast<uint32_t>(std::strlen(line)) + 1;
        if (std::strncmp(line, kNamePrefix, kNamePrefixLen) == 0) {
            found = true;
            break;
        }
    }
    if (!found) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "File list wrong : can't find digest.\r\n\r\n");
        return -1;
    }
    (void)memset_s(line, kLineBufferSize, 0, kLineBufferSize);
    int32_t ret = ReadUpFileLine(position, line, kLineBufferSize);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "ReadUpFileLine failed, ret = %d\r\n\r\n", ret);
        return -1;
    }
    char *colon = std::strchr(line, ':');
    if (colon == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "strchr buf[%s] failed.\r\n\r\n", line);
        return -1;
    }
    // The character after the colon is a separator and is not examined.
    const char *expected = colon[1] == '\0' ? "" : colon + 2;
    if (*expected == '\0') {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Hash value is null\r\n\r\n");
        return -1;
    }
    *colon = '\0';
    const char *algorithm = line;

    MallocBuffer hashBlock = allocate(kHashTextSize);
    if (!hashBlock) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "malloc failed : calcHash is null.\r\n");
        return -1;
    }
    char *calcHash = reinterpret_cast<char *>(hashBlock.get());
    (void)memset_s(calcHash, kHashTextSize, 0, kHashTextSize);
    uint32_t calcLen = 0;
    ret = CalUpFileMd(info, algorithm, calcHash, kHashTextSize, &calcLen);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CalUpFileMd failed, ret = %d\r\n\r\n", ret);
        return -1;
    }
    if (std::strcmp(expected, calcHash) == 0) {
        return 0;
    }
    TAVO_LOG_TO(tavo::log::kErr, kUnit, "checksum in file list : %s : %s\r\n\r\n", algorithm,
                expected);
    TAVO_LOG_TO(tavo::log::kErr, kUnit, "checksum of real file : %s : %s\r\n\r\n", algorithm,
                calcHash);
    return -1;
}

int32_t CheckCmsFileInfo(const cms_file_info *info) {
    if (info == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : cms_file_info is null.\r\n\r\n");
        return -1;
    }
    if (info->file_num == kFileNumFileList && info->file1_id == 1 && info->file2_id == 2 &&
        info->file3_id == 3) {
        return 0;
    }
    TAVO_LOG_TO(tavo::log::kErr, kUnit, "Check cmsFileInfo failed.\r\n\r\n");
    TAVO_LOG_TO(tavo::log::kErr, kUnit,
                "file_num = %d file1_id = %d file_list_len = %d file2_id = %d cms_sign_len = %d "
                "file3_id = %d crl_file_len = %d\r\n\r\n",
                static_cast<int>(info->file_num), static_cast<int>(info->file1_id),
                static_cast<int>(info->file_list_len), static_cast<int>(info->file2_id),
                static_cast<int>(info->cms_sign_len), static_cast<int>(info->file3_id),
                static_cast<int>(info->crl_file_len));
    return -1;
}

int32_t UpdateContent(CmsvVrfCtx *ctx, const cms_file_info *info) {
    if (ctx == nullptr || info == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : pVrf or cmsFileInfo is null.\r\n");
        return -1;
    }
    MallocBuffer block = allocate(kContentStep);
    if (!block) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "pvPortMalloc failed.\r\n\r\n");
        return -1;
    }
    uint32_t start = file_list_offset(*info);
    for (uint32_t done = 0; done < info->file_list_len;) {
        uint32_t step = std::min(kContentStep, info->file_list_len - done);
        (void)memset_s(block.get(), kContentStep, 0, kContentStep);
        int32_t rc = TavoCmsReadBuffFromFile(g_cmsFileName, block.get(),
                                             static_cast<int32_t>(start + done), step);
        if (rc != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_up_file_content failed, rc = %d\r\n\r\n", rc);
            return -1;
        }
        uint32_t ret = cmsv_verify_detach_signature_update(ctx, block.get(), step);
        if (ret != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit,
                        "cmsv_verify_detach_signature_update failed, ret = %d\r\n\r\n",
                        static_cast<int>(ret));
            return -1;
        }
        done += step;
    }
    return 0;
}

int32_t VerifyDetachSignatureQuick(CmsvVrfCtx *ctx, const cms_file_info *info, uint32_t *result) {
    if (info == nullptr || result == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "Input parameter error : cms_file_info OR result is null.\r\n\r\n");
        return -1;
    }
    *result = 0;
    // An empty signature and a failed allocation are reported alike.
    MallocBuffer signature = info->cms_sign_len != 0 ? allocate(info->cms_sign_len) : nullptr;
    if (!signature) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "malloc failed, cms_sign_len=%d.\n\r\n",
                    static_cast<int>(info->cms_sign_len));
        return -1;
    }
    int32_t rc = TavoCmsReadBuffFromFile(
        g_cmsFileName, signature.get(),
        static_cast<int32_t>(file_list_offset(*info) + info->file_list_len), info->cms_sign_len);
    if (rc != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_cms_file_content failed, ret = %d\n\r\n", rc);
        return rc;
    }
    uint32_t ret = cmsv_verify_detach_signature_begin(ctx, signature.get(), info->cms_sign_len);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "cmsv_verify_detach_signature_begin, ret = %d\n\r\n",
                    static_cast<int>(ret));
        return static_cast<int32_t>(ret);
    }
    signature.reset();
    rc = UpdateContent(ctx, info);
    if (rc != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "UpdateContent failed, ret = %d\r\n\r\n", rc);
        return -1;
    }
    ret = cmsv_verify_detach_signature_final(ctx, result);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit,
                    "cmsv_verify_detach_signature_final failed, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
    }
    return static_cast<int32_t>(ret);
}

TAVO_API int32_t VerifyFileSign(const cms_file_info *info) {
    if (info == nullptr) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Input parameter error : cmsFileInfo is null.\r\n\r\n");
        return -1;
    }
    CmsvCreateParams params;
    (void)memset_s(&params, sizeof(params), 0, sizeof(params));
    params.size = CMSV_CREATE_PARAMS_SIZE;
    int32_t status = CmsvSetCallbackFuncs(&params.funcs);
    if (status != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Failed to set callback functions, ret = %d\r\n\r\n",
                    status);
        return -1;
    }
    CmsvVrfCtx *created = nullptr;
    uint32_t ret = cmsv_verify_create_ctx(&created, &params);
    CmsvContext ctx(created);
    if (ret != 0 || !ctx) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Failed cmsv_verify_create_ctx, ret = %d\r\n\r\n",
                    static_cast<int>(ret));
        return -1;
    }
    std::span<const uint8_t> root = tavo::upgrade::root_certificate();
    ret = cmsv_verify_add_cert(ctx.get(), root.data(), static_cast<uint32_t>(root.size()));
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Add root certificate failed\r\n");
        return static_cast<int32_t>(ret);
    }
    // The CRL bytes stay allocated until the verification ends.
    MallocBuffer crl;
    if (info->crl_file_len != 0) {
        crl = allocate(info->crl_file_len);
        if (!crl) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "pvPortMalloc failed.\r\n");
            return -1;
        }
        int32_t rc =
            TavoCmsReadBuffFromFile(g_cmsFileName, crl.get(),
                                    static_cast<int32_t>(file_list_offset(*info) +
                                                         info->file_list_len + info->cms_sign_len),
                                    info->crl_file_len);
        if (rc != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "read_cms_file_content failed, ret = %d\r\n\r\n",
                        rc);
            return rc;
        }
        ret = cmsv_verify_add_crl(ctx.get(), crl.get(), info->crl_file_len);
        if (ret != 0) {
            TAVO_LOG_TO(tavo::log::kErr, kUnit, "cmsv_verify_add_crl failed, ret = %d\r\n\r\n",
                        static_cast<int>(ret));
            return static_cast<int32_t>(ret);
        }
    }
    uint32_t result = 0;
    int32_t code = VerifyDetachSignatureQuick(ctx.get(), info, &result);
    if (code != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "verify signature error, code %08x.\r\n",
                    static_cast<unsigned int>(code));
        return code;
    }
    if (result != 1) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "verify signature not match.\n\r\n");
        return -1;
    }
    return 0;
}

TAVO_API int32_t TavoCmsValidateSign(const char *path) {
    if (path == nullptr || strnlen(path, kPathBufferSize + 1) + 1 >= kPathBufferSize + 1) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Failed to get cms file info, ret = %d\r\n\r\n", -1);
        return -1;
    }
    std::size_t pathLen = std::strlen(path);
    int copied = memcpy_s(g_cmsFileName, sizeof(g_cmsFileName), path, pathLen + 1);
    if (copied != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "call memcpy_s failed.%d\n\r\n", copied);
    }
    int32_t ret = TavoCmsGetFileLen(g_cmsFileName, &g_totalUpFileLen);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Failed to get cms file info, ret = %d\r\n\r\n", ret);
        return -1;
    }
    cms_file_info info{};
    ret = TavoCmsReadCmsFileInfo(&info);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Failed to get cms file info, ret = %d\r\n\r\n", ret);
        return -1;
    }
    if (CheckCmsFileInfo(&info) != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "CheckCmsFileInfo failed.\r\n\r\n");
        return -1;
    }
    // Unsigned 32-bit sum without the header: only grossly short packages are
    // refused here; reads past the end fail later.
    uint32_t sections = info.file_list_len + info.cms_sign_len + info.crl_file_len;
    if (sections >= g_totalUpFileLen) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "File length is too short : fileLength = %d\r\n\r\n",
                    static_cast<int>(g_totalUpFileLen));
        return -1;
    }
    ret = VerifyFileSign(&info);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Verify file sign failed, ret = %d\r\n\r\n", ret);
        return -1;
    }
    ret = VerifyFileChecksum(&info);
    if (ret != 0) {
        TAVO_LOG_TO(tavo::log::kErr, kUnit, "Verify file checksum failed, ret = %d\r\n\r\n", ret);
        return -1;
    }
    return 0;
}
