// The root certificate trusted by the package verifier, chosen at build time
// (CMake cache variable TAVO_ROOT_CERT; the development root of upgrade/dev-pki
// without it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tavo::upgrade {

// Defined in the generated root_cert_data.cpp.
extern const uint8_t kRootCertificate[];
extern const std::size_t kRootCertificateSize;
extern const bool kRootCertificateIsDevelopment;

// The DER bytes of the built-in root.
inline std::span<const uint8_t> root_certificate() {
    return {kRootCertificate, kRootCertificateSize};
}

// True when the build trusts the development root, whose private key is public.
inline bool root_certificate_is_development() {
    return kRootCertificateIsDevelopment;
}

}  // namespace tavo::upgrade
