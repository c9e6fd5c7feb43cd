// Upgrade packages and the development PKI.
#include <cstdio>
#include <cstring>

#include "pki_internal.h"

namespace tavo::pki {

namespace {

std::string digest_for_word(const std::string &word) {
    // The reader compares the first 13 characters of the word.
    if (word.compare(0, 13, "SHA256-Digest") == 0) {
        return "sha256";
    }
    if (word.compare(0, 13, "SHA384-Digest") == 0) {
        return "sha384";
    }
    if (word.compare(0, 13, "SHA512-Digest") == 0) {
        return "sha512";
    }
    throw Error("unsupported digest word \"" + word +
                "\" (SHA256-Digest, SHA384-Digest or SHA512-Digest)");
}

uint32_t scan_hex_field(const uint8_t *field) {
    char buf[9] = {};
    std::memcpy(buf, field, 8);
    unsigned value = 0;
    if (std::sscanf(buf, "%x", &value) != 1) {
        return 0;
    }
    return value;
}

}  // namespace

Bytes make_file_list(const Bytes &payload, const std::string &name,
                     const std::string &digest_word) {
    if (name.find('\n') != std::string::npos) {
        throw Error("file name contains a line feed");
    }
    std::string text = "Name: " + name + "\n" + digest_word + ": " +
                       hex(digest(digest_for_word(digest_word), payload)) + "\n";
    return Bytes(text.begin(), text.end());
}

Bytes encode_header(const PackageHeader &h) {
    const uint32_t fields[7] = {h.file_num,     h.file1_id, h.file_list_len, h.file2_id,
                                h.cms_sign_len, h.file3_id, h.crl_file_len};
    Bytes out;
    for (uint32_t f : fields) {
        char buf[9];
        std::snprintf(buf, sizeof buf, "%08x", f);
        out.insert(out.end(), buf, buf + 8);
    }
    return out;
}

Bytes encode_header_text(const std::array<std::string, 7> &fields) {
    Bytes out;
    for (const auto &f : fields) {
        if (f.size() > 8) {
            throw Error("header field \"" + f + "\" is longer than 8 characters");
        }
        out.insert(out.end(), f.begin(), f.end());
        out.insert(out.end(), 8 - f.size(), ' ');
    }
    return out;
}

Bytes make_package(const Bytes &file_list, const Bytes &cms, const Bytes &crls,
                   const Bytes &payload) {
    auto len32 = [](const Bytes &b, const char *what) {
        if (b.size() > 0xFFFFFFFFu) {
            throw Error(std::string(what) + " is larger than 4 GiB");
        }
        return static_cast<uint32_t>(b.size());
    };
    PackageHeader h;
    h.file_list_len = len32(file_list, "file list");
    h.cms_sign_len = len32(cms, "signature");
    h.crl_file_len = len32(crls, "CRL section");
    Bytes out = encode_header(h);
    for (const Bytes *b : {&file_list, &cms, &crls, &payload}) {
        out.insert(out.end(), b->begin(), b->end());
    }
    return out;
}

Package parse_package(const Bytes &data) {
    if (data.size() < kPackageHeaderSize) {
        throw Error("package shorter than its 56-byte header");
    }
    Package p;
    uint32_t *fields[7] = {&p.header.file_num,    &p.header.file1_id,     &p.header.file_list_len,
                           &p.header.file2_id,    &p.header.cms_sign_len, &p.header.file3_id,
                           &p.header.crl_file_len};
    for (std::size_t i = 0; i < 7; ++i) {
        *fields[i] = scan_hex_field(data.data() + 8 * i);
    }
    std::size_t pos = static_cast<std::size_t>(p.header.file_num) * 16 + 8;
    auto take = [&](uint32_t len, Bytes &out, const char *what) {
        if (pos > data.size() || len > data.size() - pos) {
            throw Error(std::string(what) + " runs past the end of the package");
        }
        out.assign(data.begin() + static_cast<long>(pos),
                   data.begin() + static_cast<long>(pos + len));
        pos += len;
    };
    take(p.header.file_list_len, p.file_list, "file list");
    take(p.header.cms_sign_len, p.cms, "signature");
    take(p.header.crl_file_len, p.crls, "CRL section");
    take(static_cast<uint32_t>(data.size() - std::min(pos, data.size())), p.payload, "payload");
    return p;
}

// ------------------------------------------------------- development PKI

DevPki make_dev_pki(std::time_t now, int root_bits, int leaf_bits) {
    constexpr std::time_t kDay = 24 * 3600;
    const std::time_t from = now - kDay;
    const std::time_t to = now + 30 * 365 * kDay;
    DevPki p;
    p.root_key = make_rsa_key(root_bits);
    p.ca_key = make_rsa_key(leaf_bits);
    p.signer_key = make_rsa_key(leaf_bits);
    p.tsa_key = make_rsa_key(leaf_bits);

    CertProfile root;
    root.subject = name({{"C", "CN"}, {"O", "tavo development"}, {"CN", "tavo dev root"}});
    root.serial = {0x01};
    root.not_before = from;
    root.not_after = to;
    root.ca = true;
    root.key_usage = kKeyCertSign | kCrlSign;
    p.root = issue(root, p.root_key, nullptr, p.root_key);

    CertProfile ca = root;
    ca.subject = name({{"C", "CN"}, {"O", "tavo development"}, {"CN", "tavo dev signing CA"}});
    ca.serial = {0x02};
    p.ca = issue(ca, p.ca_key, &p.root, p.root_key);

    CertProfile signer;
    signer.subject = name({{"C", "CN"}, {"O", "tavo development"}, {"CN", "tavo dev signer"}});
    signer.serial = {0x03};
    signer.not_before = from;
    signer.not_after = to;
    signer.key_usage = kDigitalSignature;
    signer.eku = {"codeSigning"};
    p.signer = issue(signer, p.signer_key, &p.ca, p.ca_key);

    CertProfile tsa = signer;
    tsa.subject = name({{"C", "CN"}, {"O", "tavo development"}, {"CN", "tavo dev TSA"}});
    tsa.serial = {0x04};
    tsa.eku = {"timeStamping"};
    tsa.eku_critical = true;
    p.tsa = issue(tsa, p.tsa_key, &p.root, p.root_key);

    CrlProfile crl;
    crl.this_update = from;
    crl.next_update = to;
    p.root_crl = make_crl(crl, p.root, p.root_key);
    p.ca_crl = make_crl(crl, p.ca, p.ca_key);
    return p;
}

void save_dev_pki(const DevPki &p, const std::filesystem::path &dir) {
    std::error_code ec;
    std::filesystem::create_directories(dir, ec);
    if (ec) {
        throw Error("cannot create " + dir.string() + ": " + ec.message());
    }
    save_cert_der(p.root, dir / "root.der");
    save_key(p.root_key, dir / "root.key");
    save_cert_der(p.ca, dir / "ca.der");
    save_key(p.ca_key, dir / "ca.key");
    save_cert_der(p.signer, dir / "signer.der");
    save_key(p.signer_key, dir / "signer.key");
    save_cert_der(p.tsa, dir / "tsa.der");
    save_key(p.tsa_key, dir / "tsa.key");
    write_file(dir / "root-crl.der", p.root_crl);
    write_file(dir / "ca-crl.der", p.ca_crl);
}

DevPki load_dev_pki(const std::filesystem::path &dir) {
    DevPki p;
    p.root = load_cert(dir / "root.der");
    p.root_key = load_key(dir / "root.key");
    p.ca = load_cert(dir / "ca.der");
    p.ca_key = load_key(dir / "ca.key");
    p.signer = load_cert(dir / "signer.der");
    p.signer_key = load_key(dir / "signer.key");
    p.tsa = load_cert(dir / "tsa.der");
    p.tsa_key = load_key(dir / "tsa.key");
    p.root_crl = read_file(dir / "root-crl.der");
    p.ca_crl = read_file(dir / "ca-crl.der");
    return p;
}

}  // namespace tavo::pki
