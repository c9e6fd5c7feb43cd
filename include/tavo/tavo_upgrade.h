/*
 * tavo_upgrade.h - verification of upgrade packages.
 *
 * A package is a 56-byte header of seven 8-digit hexadecimal fields, then a file
 * list (a text manifest with the payload's digest), a detached CMS signature over
 * the file list (with an RFC 3161 time-stamp), an optional CRL bundle and the
 * payload. TavoCmsValidateSign accepts a package only when the header, the
 * signature (checked against the root certificate built into the library) and
 * the payload digest all hold. Failures are logged to
 * /var/log/quillmon_LOG_ERR.log.
 *
 * The verifier keeps the package path and length in process-wide state: callers
 * serialise verifications within one process.
 */
#ifndef TAVO_TAVO_UPGRADE_H
#define TAVO_TAVO_UPGRADE_H

#include <stdint.h>

#include "tavo/cmsv.h"
#include "tavo/tavo_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The package header, in file order. */
typedef struct cms_file_info {
    uint32_t file_num; /* 3 */
    uint32_t file1_id; /* 1: the file list */
    uint32_t file_list_len;
    uint32_t file2_id; /* 2: the CMS signature */
    uint32_t cms_sign_len;
    uint32_t file3_id;     /* 3: the CRL bundle */
    uint32_t crl_file_len; /* 0: no CRL */
} cms_file_info;

/* 0 when header, signature and payload digest are all good; -1 otherwise. The
 * path has at most 255 characters. */
TAVO_API int32_t TavoCmsValidateSign(const char *path);
/* 0 when the payload digest equals the file list's; -1 otherwise. Needs the
 * package named by a TavoCmsValidateSign call. */
TAVO_API int32_t VerifyFileChecksum(const cms_file_info *info);
/* 0 when the signature over the file list matches; the engine's code or -1. */
TAVO_API int32_t VerifyFileSign(const cms_file_info *info);

/* Length of the file at `path` into *length. The path must be shorter than 4096
 * characters and resolve (realpath); otherwise "Upgrade file path is illegal." is
 * printed on standard output. 0, or -1 (an unreadable file is logged). */
TAVO_API int TavoGetFileLength(const char *path, uint32_t *length);

/* Fills the engine's callback table with the library's crypto provider
 * (SHA-256/384/512 and RSA PKCS#1 v1.5 verification). 0, or -1 for null. */
TAVO_API int32_t CmsvSetCallbackFuncs(CmsvCallbackFuncs *funcs);

/* The root certificate built into the library: its DER bytes (static storage,
 * never freed), their length, and 1 in *development when it is the development
 * root whose private key is public. 0, or -1 for a null argument. */
TAVO_API int32_t tavo_get_upgrade_root_cert(const uint8_t **der, uint32_t *length,
                                            int32_t *development);

#ifdef __cplusplus
}
#endif

#endif
