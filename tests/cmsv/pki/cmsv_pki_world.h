// A PKI made once per run with OpenSSL, the engine run over it, and OpenSSL's own
// verdict on the same material.
//
//   root ─┬─ ca ─┬─ signer (and its variants)      tsa: timeStamping, critical EKU
//         │      └─ ...                            otherRoot, lookAlike: not in the chain
//         ├─ tsa (and its variants)                caNoKu: a CA without keyUsage
//         └─ caNoKu ── underNoKu
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <functional>
#include <string>
#include <vector>

#include "pki.h"
#include "tavo/cmsv.h"

namespace pkitest {

namespace pki = tavo::pki;
using pki::Bytes;
using Certs = std::vector<const pki::Cert *>;

// The time-stamp's genTime used throughout, and the CRL dates around it.
constexpr std::time_t kGenTime = 1772366400;  // 2026-03-01 12:00:00 UTC
constexpr std::time_t kDay = 24 * 3600;

struct Party {
    pki::Cert cert;
    pki::Key key;
    Bytes der() const { return pki::der(cert); }
};

struct World {
    Party root, ca, signer, tsa;
    Party signerExpiredNow, signerNotYet, signerExpired, signerEkuSecond, signerNoDigSig;
    Party tsaCodeSigning;
    Party otherRoot, lookAlike, caNoKu, underNoKu;
};
// Built on first use.
const World &TheWorld();

// A current CRL (thisUpdate a day before genTime, nextUpdate 30 days after).
Bytes Crl(const Party &issuer, std::vector<pki::Revoked> revoked = {}, bool indirect = false,
          std::time_t nextUpdate = 0);
Bytes Concat(const std::vector<Bytes> &parts);

// Everything one verification needs, defaulting to a valid signature.
struct Scenario {
    const World &w;
    const Party *signer = nullptr;
    const Party *tsa = nullptr;
    pki::SignProfile sign;
    pki::TsProfile ts;
    bool timestamp = true;
    std::vector<Bytes> trusted;    // cmsv_verify_add_cert, one call each
    std::vector<Bytes> crlBundle;  // one cmsv_verify_add_crl call
    Bytes content;
    std::function<void(Bytes &)> tamper;  // applied to the finished signature
    bool alterContent = false;            // one content byte changed after signing
    bool pemCrls = false;                 // the engine is handed the CRLs as PEM
    Scenario();
};

struct Material {
    Bytes signature;
    Bytes token;  // empty without a time-stamp
};
Material Build(const Scenario &s);

struct Verdict {
    uint32_t status = 0;  // first failing call's code
    uint32_t result = 0;  // final's result when every call succeeded
    bool accepted() const { return status == CMSV_OK && result == 1; }
};
Verdict RunEngine(const Scenario &s, const Material &m, uint32_t chunk = 4096);

// openssl cms -verify (and openssl ts -verify for the token) at genTime.
bool OpenSslAccepts(const Scenario &s, const Material &m);

// PEM armour around DER.
std::string Pem(const Bytes &der, const std::string &label);

// Flips the first occurrence of `needle` (its last byte) inside `der`.
void FlipIn(Bytes &der, const Bytes &needle);

}  // namespace pkitest
