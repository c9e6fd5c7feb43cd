// Query of the built-in root certificate for tools that show what a build trusts.
#include "upgrade/root_cert.h"

#include "tavo/tavo_upgrade.h"

TAVO_API int32_t tavo_get_upgrade_root_cert(const uint8_t **der, uint32_t *length,
                                            int32_t *development) {
    if (der == nullptr || length == nullptr || development == nullptr) {
        return -1;
    }
    *der = tavo::upgrade::kRootCertificate;
    *length = static_cast<uint32_t>(tavo::upgrade::kRootCertificateSize);
    *development = tavo::upgrade::root_certificate_is_development() ? 1 : 0;
    return 0;
}
