// Replays the seed corpus through the engine and checks that each seed is what the
// corpus needs it to be: certificates and CRLs that decode whole, bundles that walk,
// and signatures that verify over the fixed content (and fail over altered content)
// against the fixed store. A seed the engine rejects leaves its target fuzzing only
// the first few bytes of a decoder.
//
//   fuzz_seed_check CORPUS_DIR
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cmsv/cmsv_bundle.h"
#include "fuzz_callbacks.h"
#include "fuzz_content.h"
#include "trust_material.h"

namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;

int passed = 0;
int failed = 0;

void Expect(bool ok, const fs::path &seed, const std::string &what) {
    if (ok) {
        ++passed;
    } else {
        ++failed;
        std::printf("FAIL %s: %s\n", seed.filename().c_str(), what.c_str());
    }
}

std::string Hex(uint32_t rc) {
    char buf[16];
    std::snprintf(buf, sizeof(buf), "0x%08X", rc);
    return buf;
}

std::vector<std::pair<fs::path, Bytes>> Seeds(const fs::path &dir) {
    std::vector<std::pair<fs::path, Bytes>> seeds;
    for (const auto &entry : fs::directory_iterator(dir)) {
        std::ifstream f(entry.path(), std::ios::binary);
        seeds.emplace_back(entry.path(), Bytes(std::istreambuf_iterator<char>(f), {}));
    }
    std::sort(seeds.begin(), seeds.end());
    if (seeds.empty()) {
        Expect(false, dir, "no seeds");
    }
    return seeds;
}

uint32_t Len(const Bytes &b) {
    return static_cast<uint32_t>(b.size());
}

template <typename Record>
void CheckWhole(const fs::path &dir,
                uint32_t (*decode)(CmsvVrfCtx *, const uint8_t *, uint32_t, Record **, uint32_t *),
                void (*release)(CmsvVrfCtx *, Record *)) {
    CmsvVrfCtx *ctx = tavo::fuzz::NewContext();
    for (const auto &[path, data] : Seeds(dir)) {
        Record *record = nullptr;
        uint32_t consumed = 0;
        uint32_t rc = decode(ctx, data.data(), Len(data), &record, &consumed);
        Expect(rc == 0 && consumed == data.size(), path,
               "decode gives " + Hex(rc) + ", consumed " + std::to_string(consumed));
        release(ctx, record);
    }
    cmsv_vrf_ctx_free(ctx);
}

void FreeCert(CmsvVrfCtx *ctx, void *p) {
    cmsv_x509_free_cert(ctx, static_cast<CmsvCert *>(p));
}
void FreeCrl(CmsvVrfCtx *ctx, void *p) {
    cmsv_x509_free_crl(ctx, static_cast<CmsvCrl *>(p));
}

void CheckBundles(const fs::path &dir) {
    for (const auto &[path, data] : Seeds(dir)) {
        CmsvVrfCtx *ctx = tavo::fuzz::NewContext();
        CmsvList certs{};
        CmsvList crls{};
        uint32_t rc = cmsv_decode_bundle(ctx, data.data(), Len(data), &certs, &crls);
        Expect(rc == 0 && certs.count + crls.count > 0, path, "bundle walk gives " + Hex(rc));
        cmsv_list_free(ctx, &certs, FreeCert);
        cmsv_list_free(ctx, &crls, FreeCrl);
        cmsv_vrf_ctx_free(ctx);
    }
}

// The older CRL set is older than the CRL file, and the CA it holds and the file
// does not is one the file's root CRL revokes.
void CheckCrlComparison(const fs::path &dir) {
    const fs::path path = dir / "old-crls.der";
    std::ifstream f(path, std::ios::binary);
    const Bytes old(std::istreambuf_iterator<char>(f), {});
    CmsvVrfCtx *ctx = tavo::fuzz::NewContext();
    cmsv_verify_add_cert(ctx, tavo::fuzz::kTrustRoot, sizeof(tavo::fuzz::kTrustRoot));
    CmsvCrlInfoList *older = nullptr;
    CmsvCrlInfoList *newer = nullptr;
    uint32_t rc = cmsv_decode_crl(ctx, old.data(), Len(old), &older);
    if (rc == 0) {
        rc = cmsv_decode_crl(ctx, tavo::fuzz::kTrustCaCrls, sizeof(tavo::fuzz::kTrustCaCrls),
                             &newer);
    }
    uint32_t forward = 0;
    uint32_t backward = 0;
    if (rc == 0) {
        rc = cmsv_crl_compare(ctx, older, newer, &forward) |
             cmsv_crl_compare(ctx, newer, older, &backward);
    }
    Expect(rc == 0 && forward == 2 && backward == 1, path,
           "comparison with the CRL file gives " + Hex(rc) + ", results " +
               std::to_string(forward) + " and " + std::to_string(backward));
    cmsv_crl_free(ctx, older);
    cmsv_crl_free(ctx, newer);
    cmsv_vrf_ctx_free(ctx);
}

// Verifies a signature over content; returns the status of the first failing step.
uint32_t Verify(const Bytes &sig, const Bytes &content, uint32_t *result) {
    CmsvVrfCtx *ctx = tavo::fuzz::NewContext();
    *result = 0;
    uint32_t rc = cmsv_verify_add_cert(ctx, tavo::fuzz::kTrustRoot, sizeof(tavo::fuzz::kTrustRoot));
    if (rc == 0) {
        rc = cmsv_verify_add_crl(ctx, tavo::fuzz::kTrustCrls, sizeof(tavo::fuzz::kTrustCrls));
    }
    if (rc == 0) {
        rc = cmsv_verify_detach_signature_begin(ctx, sig.data(), Len(sig));
    }
    if (rc == 0) {
        rc = cmsv_verify_detach_signature_update(ctx, content.data(), Len(content));
    }
    if (rc == 0) {
        rc = cmsv_verify_detach_signature_final(ctx, result);
    }
    cmsv_vrf_ctx_free(ctx);
    return rc;
}

void CheckSignatures(const fs::path &dir) {
    const Bytes content(std::begin(tavo::fuzz::kContent), std::end(tavo::fuzz::kContent));
    Bytes altered = content;
    altered[0] ^= 1;
    for (const auto &[path, data] : Seeds(dir)) {
        uint32_t result = 0;
        uint32_t rc = Verify(data, content, &result);
        if (path.filename().string().starts_with("no-token")) {
            Expect(rc == CMSV_ERR_PARAM, path, "a signature without a token gives " + Hex(rc));
            continue;
        }
        Expect(rc == 0 && result == 1, path,
               "verification gives " + Hex(rc) + ", result " + std::to_string(result));
        // Without signed attributes only the signature covers the content, and the
        // stand-in RSA check does not look at what it covers.
        if (path.filename().string().find("noattr") != std::string::npos) {
            continue;
        }
        rc = Verify(data, altered, &result);
        Expect(rc == 0 && result == 0, path,
               "altered content gives " + Hex(rc) + ", result " + std::to_string(result));
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_seed_check CORPUS_DIR\n");
        return 2;
    }
    fs::path corpus = argv[1];
    CheckWhole<CmsvCert>(corpus / "fuzz_cert", cmsv_x509_decode_cert, cmsv_x509_free_cert);
    CheckWhole<CmsvCrl>(corpus / "fuzz_crl", cmsv_x509_decode_crl, cmsv_x509_free_crl);
    CheckBundles(corpus / "fuzz_bundle");
    CheckCrlComparison(corpus / "fuzz_bundle");
    CheckSignatures(corpus / "fuzz_signed_data");
    std::printf("seeds: %d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
