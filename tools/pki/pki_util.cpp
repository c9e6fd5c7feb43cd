// Files, time, hex and OpenSSL glue shared by the other tavo::pki sources.
#include <openssl/err.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "pki_internal.h"

namespace tavo::pki {

namespace detail {

void fail(const std::string &what) {
    std::string msg = what;
    unsigned long e = 0;
    const char *sep = ": ";
    while ((e = ERR_get_error()) != 0) {
        char buf[256];
        ERR_error_string_n(e, buf, sizeof buf);
        msg += sep;
        msg += buf;
        sep = "; ";
    }
    throw Error(msg);
}

const EVP_MD *md_by_name(const std::string &name) {
    if (name == "sha1") {
        return EVP_sha1();
    }
    if (name == "sha256") {
        return EVP_sha256();
    }
    if (name == "sha384") {
        return EVP_sha384();
    }
    if (name == "sha512") {
        return EVP_sha512();
    }
    throw Error("unsupported digest \"" + name + "\" (sha1, sha256, sha384 or sha512)");
}

IntPtr make_integer(const Bytes &big_endian) {
    if (big_endian.empty()) {
        throw Error("empty serial number");
    }
    BnPtr bn(check_ptr(BN_bin2bn(big_endian.data(), static_cast<int>(big_endian.size()), nullptr),
                       "BN_bin2bn"));
    return IntPtr(check_ptr(BN_to_ASN1_INTEGER(bn.get(), nullptr), "BN_to_ASN1_INTEGER"));
}

Bytes integer_bytes(const ASN1_INTEGER *i) {
    BnPtr bn(check_ptr(ASN1_INTEGER_to_BN(i, nullptr), "ASN1_INTEGER_to_BN"));
    Bytes out(static_cast<std::size_t>(BN_num_bytes(bn.get())));
    BN_bn2bin(bn.get(), out.data());
    if (out.empty()) {
        out.push_back(0);
    }
    return out;
}

std::time_t asn1_time_to_time_t(const ASN1_TIME *t) {
    struct tm tm {};
    check(t != nullptr && ASN1_TIME_to_tm(t, &tm) == 1, "ASN1_TIME_to_tm");
    return timegm(&tm);
}

CmsPtr parse_cms(const Bytes &der) {
    const unsigned char *p = der.data();
    CmsPtr cms(d2i_CMS_ContentInfo(nullptr, &p, static_cast<long>(der.size())));
    if (!cms) {
        fail("not a DER CMS ContentInfo");
    }
    return cms;
}

std::string name_text(const X509_NAME *n) {
    BioPtr bio(check_ptr(BIO_new(BIO_s_mem()), "BIO_new"));
    X509_NAME_print_ex(bio.get(), n, 0, XN_FLAG_RFC2253 & ~ASN1_STRFLGS_ESC_MSB);
    char *data = nullptr;
    long len = BIO_get_mem_data(bio.get(), &data);
    return std::string(data, static_cast<std::size_t>(len));
}

}  // namespace detail

using namespace detail;

Bytes read_file(const std::filesystem::path &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw Error("cannot open " + path.string() + ": " + std::strerror(errno));
    }
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_file(const std::filesystem::path &path, const Bytes &data) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        throw Error("cannot create " + path.string() + ": " + std::strerror(errno));
    }
    out.write(reinterpret_cast<const char *>(data.data()),
              static_cast<std::streamsize>(data.size()));
    out.close();
    if (!out) {
        throw Error("cannot write " + path.string());
    }
}

std::time_t utc(int year, int month, int day, int hour, int minute, int second) {
    struct tm tm {};
    tm.tm_year = year - 1900;
    tm.tm_mon = month - 1;
    tm.tm_mday = day;
    tm.tm_hour = hour;
    tm.tm_min = minute;
    tm.tm_sec = second;
    return timegm(&tm);
}

std::time_t parse_time(const std::string &text) {
    int y = 0, mo = 0, d = 0, h = 0, mi = 0, s = 0;
    char z = 0;
    int used = 0;
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        return static_cast<std::time_t>(std::stoll(text));
    }
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c%n", &y, &mo, &d, &h, &mi, &s, &z,
                    &used) == 7 &&
        z == 'Z' && static_cast<std::size_t>(used) == text.size()) {
        return utc(y, mo, d, h, mi, s);
    }
    if (text.size() == 15 && text.back() == 'Z' && text.find_first_not_of("0123456789") == 14 &&
        std::sscanf(text.c_str(), "%4d%2d%2d%2d%2d%2d", &y, &mo, &d, &h, &mi, &s) == 6) {
        return utc(y, mo, d, h, mi, s);
    }
    throw Error("bad time \"" + text + "\" (YYYY-MM-DDTHH:MM:SSZ, YYYYMMDDHHMMSSZ or seconds)");
}

std::string format_time(std::time_t t) {
    struct tm tm {};
    gmtime_r(&t, &tm);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
    return buf;
}

std::string hex(const Bytes &data) {
    static const char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(data.size() * 2);
    for (uint8_t b : data) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 15]);
    }
    return out;
}

Bytes from_hex(const std::string &text) {
    auto nibble = [&](char c) -> int {
        if (c >= '0' && c <= '9') {
            return c - '0';
        }
        if (c >= 'a' && c <= 'f') {
            return c - 'a' + 10;
        }
        if (c >= 'A' && c <= 'F') {
            return c - 'A' + 10;
        }
        throw Error("bad hex \"" + text + "\"");
    };
    if (text.size() % 2 != 0) {
        throw Error("odd-length hex \"" + text + "\"");
    }
    Bytes out;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(nibble(text[i]) << 4 | nibble(text[i + 1])));
    }
    return out;
}

Bytes digest(const std::string &name, const Bytes &data) {
    Bytes out(EVP_MAX_MD_SIZE);
    unsigned len = 0;
    check(EVP_Digest(data.data(), data.size(), out.data(), &len, md_by_name(name), nullptr) == 1,
          "EVP_Digest");
    out.resize(len);
    return out;
}

std::vector<Bytes> split_der(const Bytes &bundle) {
    std::vector<Bytes> out;
    std::size_t pos = 0;
    while (pos < bundle.size()) {
        const unsigned char *p = bundle.data() + pos;
        long len = 0;
        int tag = 0, cls = 0;
        long avail = static_cast<long>(bundle.size() - pos);
        int r = ASN1_get_object(&p, &len, &tag, &cls, avail);
        if ((r & 0x80) != 0 || (r & 0x01) != 0) {
            throw Error("malformed DER object at offset " + std::to_string(pos));
        }
        std::size_t hdr = static_cast<std::size_t>(p - (bundle.data() + pos));
        std::size_t total = hdr + static_cast<std::size_t>(len);
        out.emplace_back(bundle.begin() + static_cast<long>(pos),
                         bundle.begin() + static_cast<long>(pos + total));
        pos += total;
    }
    return out;
}

}  // namespace tavo::pki
