// pki init and crl.
#include <openssl/rand.h>

#include <iostream>

#include "commands.h"

namespace tavo_pack {

using namespace tavo::pki;

namespace {

constexpr std::time_t kThirtyYears = 30L * 365 * 24 * 3600;

int reason_code(const std::string &text) {
    static const std::pair<const char *, int> kNames[] = {
        {"unspecified", 0},        {"keyCompromise", 1}, {"cACompromise", 2},
        {"affiliationChanged", 3}, {"superseded", 4},    {"cessationOfOperation", 5},
        {"certificateHold", 6},    {"removeFromCRL", 8}, {"privilegeWithdrawn", 9},
        {"aACompromise", 10}};
    for (const auto &[n, code] : kNames) {
        if (text == n) {
            return code;
        }
    }
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
        text.size() < 4) {
        return std::stoi(text);
    }
    throw Error("unknown revocation reason \"" + text + "\"");
}

// SERIAL[:REASON[:DATE]]; the date may itself contain colons.
Revoked parse_revoke(const std::string &arg, std::time_t default_when) {
    Revoked r;
    r.when = default_when;
    std::size_t c1 = arg.find(':');
    std::string sn = arg.substr(0, c1);
    if (sn.rfind("0x", 0) == 0 || sn.rfind("0X", 0) == 0) {
        sn = sn.substr(2);
    }
    if (sn.size() % 2 != 0) {
        sn.insert(sn.begin(), '0');
    }
    r.serial = from_hex(sn);
    if (r.serial.empty()) {
        throw Error("empty serial in --revoke " + arg);
    }
    if (c1 == std::string::npos) {
        return r;
    }
    std::size_t c2 = arg.find(':', c1 + 1);
    std::string reason = arg.substr(c1 + 1, c2 == std::string::npos ? c2 : c2 - c1 - 1);
    if (!reason.empty()) {
        r.reason = reason_code(reason);
    }
    if (c2 != std::string::npos) {
        r.when = parse_time(arg.substr(c2 + 1));
    }
    return r;
}

}  // namespace

Bytes random_serial(std::size_t size) {
    Bytes out(size);
    if (RAND_bytes(out.data(), static_cast<int>(size)) != 1) {
        throw Error("random generator failed");
    }
    out[0] = static_cast<uint8_t>((out[0] & 0x7F) | 0x01);
    return out;
}

int run_pki_init(const PkiInitOptions &o) {
    try {
        if (!o.force && std::filesystem::exists(std::filesystem::path(o.dir) / "root.der")) {
            std::cerr << "tavo-pack: " << o.dir << " already holds a PKI (use --force)\n";
            return 1;
        }
        save_dev_pki(make_dev_pki(std::time(nullptr)), o.dir);
        std::cout << "development PKI written to " << o.dir << "\n";
        return 0;
    } catch (const std::exception &e) {
        std::cerr << "tavo-pack: " << e.what() << "\n";
        return 1;
    }
}

int run_crl(const CrlOptions &o) {
    try {
        CrlProfile profile;
        profile.digest = o.digest;
        profile.this_update =
            o.this_update.empty() ? std::time(nullptr) : parse_time(o.this_update);
        profile.next_update =
            o.next_update.empty() ? profile.this_update + kThirtyYears : parse_time(o.next_update);
        for (const auto &r : o.revoke) {
            profile.revoked.push_back(parse_revoke(r, profile.this_update));
        }
        write_file(o.out, make_crl(profile, load_cert(o.ca), load_key(o.key)));
        return 0;
    } catch (const std::exception &e) {
        std::cerr << "tavo-pack: " << e.what() << "\n";
        return 1;
    }
}

}  // namespace tavo_pack
