// Certificate revocation lists.
#include "pki_internal.h"

namespace tavo::pki {

using namespace detail;

namespace {

void add_crl_ext(X509_CRL *crl, int nid, bool critical, void *value) {
    ExtPtr ext(check_ptr(X509V3_EXT_i2d(nid, critical ? 1 : 0, value), "X509V3_EXT_i2d"));
    check(X509_CRL_add_ext(crl, ext.get(), -1) == 1, "X509_CRL_add_ext");
}

}  // namespace

Bytes make_crl(const CrlProfile &profile, const Cert &issuer, const Key &issuer_key) {
    if (!issuer || !issuer_key) {
        throw Error("CRL needs an issuer certificate and key");
    }
    CrlPtr crl(check_ptr(X509_CRL_new(), "X509_CRL_new"));
    check(X509_CRL_set_version(crl.get(), profile.version_override.value_or(1)) == 1,
          "X509_CRL_set_version");
    check(X509_CRL_set_issuer_name(crl.get(), X509_get_subject_name(issuer.get())) == 1,
          "X509_CRL_set_issuer_name");
    TimePtr this_update(check_ptr(ASN1_TIME_set(nullptr, profile.this_update), "ASN1_TIME_set"));
    check(X509_CRL_set1_lastUpdate(crl.get(), this_update.get()) == 1, "thisUpdate");
    TimePtr next_update(check_ptr(ASN1_TIME_set(nullptr, profile.next_update), "ASN1_TIME_set"));
    check(X509_CRL_set1_nextUpdate(crl.get(), next_update.get()) == 1, "nextUpdate");

    for (const auto &r : profile.revoked) {
        RevokedPtr rev(check_ptr(X509_REVOKED_new(), "X509_REVOKED_new"));
        IntPtr sn = make_integer(r.serial);
        check(X509_REVOKED_set_serialNumber(rev.get(), sn.get()) == 1, "revoked serial");
        TimePtr when(check_ptr(ASN1_TIME_set(nullptr, r.when), "ASN1_TIME_set"));
        check(X509_REVOKED_set_revocationDate(rev.get(), when.get()) == 1, "revocationDate");
        if (r.reason) {
            EnumPtr reason(check_ptr(ASN1_ENUMERATED_new(), "ASN1_ENUMERATED_new"));
            check(ASN1_ENUMERATED_set(reason.get(), *r.reason) == 1, "ASN1_ENUMERATED_set");
            check(X509_REVOKED_add1_ext_i2d(rev.get(), NID_crl_reason, reason.get(), 0, 0) == 1,
                  "reason code");
        }
        check(X509_CRL_add0_revoked(crl.get(), rev.get()) == 1, "X509_CRL_add0_revoked");
        rev.release();
    }
    if (profile.crl_number) {
        IntPtr number(check_ptr(ASN1_INTEGER_new(), "ASN1_INTEGER_new"));
        check(ASN1_INTEGER_set(number.get(), *profile.crl_number) == 1, "ASN1_INTEGER_set");
        add_crl_ext(crl.get(), NID_crl_number, false, number.get());
    }
    if (profile.with_idp || profile.indirect) {
        Ptr<ISSUING_DIST_POINT, ISSUING_DIST_POINT_free> idp(ISSUING_DIST_POINT_new());
        check(idp != nullptr, "ISSUING_DIST_POINT_new");
        idp->indirectCRL = profile.indirect ? 0xFF : 0;
        add_crl_ext(crl.get(), NID_issuing_distribution_point, true, idp.get());
    }
    if (X509_CRL_sign(crl.get(), issuer_key.get(), md_by_name(profile.digest)) <= 0) {
        fail("signing the CRL");
    }
    return encode(crl.get(), i2d_X509_CRL, "i2d_X509_CRL");
}

CrlInfo describe_crl(const Bytes &der) {
    const unsigned char *p = der.data();
    CrlPtr crl(d2i_X509_CRL(nullptr, &p, static_cast<long>(der.size())));
    if (!crl) {
        fail("bad DER CRL");
    }
    CrlInfo info;
    info.issuer = name_text(X509_CRL_get_issuer(crl.get()));
    info.this_update = asn1_time_to_time_t(X509_CRL_get0_lastUpdate(crl.get()));
    if (const ASN1_TIME *next = X509_CRL_get0_nextUpdate(crl.get()); next != nullptr) {
        info.next_update = asn1_time_to_time_t(next);
    }
    STACK_OF(X509_REVOKED) *revoked = X509_CRL_get_REVOKED(crl.get());
    for (int i = 0; i < sk_X509_REVOKED_num(revoked); ++i) {
        const X509_REVOKED *r = sk_X509_REVOKED_value(revoked, i);
        Revoked out;
        out.serial = integer_bytes(X509_REVOKED_get0_serialNumber(r));
        out.when = asn1_time_to_time_t(X509_REVOKED_get0_revocationDate(r));
        int crit = 0;
        Ptr<ASN1_ENUMERATED, ASN1_ENUMERATED_free> reason(static_cast<ASN1_ENUMERATED *>(
            X509_REVOKED_get_ext_d2i(r, NID_crl_reason, &crit, nullptr)));
        if (reason) {
            out.reason = static_cast<int>(ASN1_ENUMERATED_get(reason.get()));
        }
        info.revoked.push_back(std::move(out));
    }
    return info;
}

}  // namespace tavo::pki
