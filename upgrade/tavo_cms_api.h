// Upgrade package verification (unit tavo_cms_api): package reading, the file
// list check and the CMS signature check. The exported entries are declared in
// tavo/tavo_upgrade.h; these are the unit's internal pieces.
//
// Package layout (offsets from the start of the file; H = file_num * 16 + 8):
//   0   seven header fields of 8 hexadecimal digits each (cms_file_info)
//   H   file list, file_list_len bytes ("Name: ..." then "<ALGO>-Digest: <hex>")
//   ... detached CMS signature over the file list, cms_sign_len bytes
//   ... CRL bundle, crl_file_len bytes (none when 0)
//   ... payload, to the end of the file
#pragma once

#include <cstdint>

#include "tavo/cmsv.h"
#include "tavo/tavo_upgrade.h"

// Path of the package being verified (set by TavoCmsValidateSign) and its length.
// Every read below opens this path.
extern char g_cmsFileName[256];
extern uint32_t g_totalUpFileLen;

// Length of the file at `path`. 0, or -1 when it cannot be opened.
int32_t TavoCmsGetFileLen(const char *path, uint32_t *length);
// Reads exactly `count` bytes at `offset` of `path` into `dest`. 0 or -1.
int32_t TavoCmsReadBuffFromFile(const char *path, uint8_t *dest, int32_t offset, uint32_t count);
// One 8-digit hexadecimal header field at `offset` of the package. A field without
// hex digits leaves *value as it was. 0, or -1 when the bytes cannot be read.
int32_t TavoCmsReadCmsFileInfoItem(int32_t offset, uint32_t *value);
// All seven header fields. 0; 1 when a field could not be read; -1 for null.
int32_t TavoCmsReadCmsFileInfo(cms_file_info *info);
// The line at `offset` of the package, zero-terminated in place of its line feed,
// read one byte per open. -1 when no line feed comes within `bufLen` bytes.
int32_t ReadUpFileLine(uint32_t offset, char *lineBuf, uint32_t bufLen);
// Two lowercase hex digits per byte; `out` must hold 2 * count + 1 characters.
void ByteToStr(char *out, int32_t outSize, const uint8_t *bytes, uint32_t count);
// 43, 44 or 45 for a word starting with "SHA256-Digest", "SHA384-Digest" or
// "SHA512-Digest"; 0 otherwise.
uint32_t DigestAlgorithmStrToId(const char *word);
// Digest of the payload as lowercase hex text in `out`, its length in *outLen.
int32_t CalUpFileMd(const cms_file_info *info, const char *algorithm, char *out, uint32_t outSize,
                    uint32_t *outLen);
// 0 when file_num is 3 and the ids are 1, 2, 3; -1 otherwise.
int32_t CheckCmsFileInfo(const cms_file_info *info);
// Begins, feeds and finishes the detached verification on `ctx`. 0 or a code;
// *result is 1 when the signature matches.
int32_t VerifyDetachSignatureQuick(CmsvVrfCtx *ctx, const cms_file_info *info, uint32_t *result);
// Feeds the file list to the verification in 256-byte steps. 0 or -1.
int32_t UpdateContent(CmsvVrfCtx *ctx, const cms_file_info *info);
