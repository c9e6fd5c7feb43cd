// Helper of make-corpus: turns OpenSSL's output into seeds the fuzz targets can
// follow past the stand-in digests, and writes the trust material header.
//
//   seedtool content OUT                 write the content the seeds sign
//   seedtool digest HASHID FILE          hex stand-in digest of a file
//   seedtool signature-digest HASHID SIG hex stand-in digest of SIG's signature value
//   seedtool attach SIG TOKEN OUT        put the time-stamp token into SIG as an
//                                        unsigned attribute, and rewrite both
//                                        messageDigest attributes as stand-in digests
//   seedtool header OUT NAME=FILE...     C++ header with one byte array per file
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

#include "fuzz_callbacks.h"
#include "fuzz_content.h"

namespace {

using Bytes = std::vector<uint8_t>;

// One DER element: constructed elements keep their children, primitive ones their
// value. Low tag numbers only, which is all CMS uses.
struct Node {
    uint8_t tag = 0;
    Bytes value;
    std::vector<Node> children;
    bool Constructed() const { return (tag & 0x20) != 0; }
};

Node Parse(const Bytes &in, size_t &pos, size_t end) {
    if (pos + 2 > end) {
        throw std::runtime_error("truncated element");
    }
    Node n;
    n.tag = in[pos++];
    if ((n.tag & 0x1F) == 0x1F) {
        throw std::runtime_error("high tag number");
    }
    size_t len = in[pos++];
    if (len & 0x80) {
        size_t count = len & 0x7F;
        if (count == 0 || count > 4 || pos + count > end) {
            throw std::runtime_error("bad length");
        }
        len = 0;
        while (count-- > 0) {
            len = (len << 8) | in[pos++];
        }
    }
    if (len > end - pos) {
        throw std::runtime_error("element overruns its parent");
    }
    size_t stop = pos + len;
    if (n.Constructed()) {
        while (pos < stop) {
            n.children.push_back(Parse(in, pos, stop));
        }
    } else {
        n.value.assign(in.begin() + static_cast<long>(pos), in.begin() + static_cast<long>(stop));
        pos = stop;
    }
    return n;
}

Node Parse(const Bytes &in) {
    size_t pos = 0;
    return Parse(in, pos, in.size());
}

Bytes Content(const Node &n);

Bytes Encode(const Node &n) {
    Bytes body = Content(n);
    Bytes out{n.tag};
    size_t len = body.size();
    if (len < 0x80) {
        out.push_back(static_cast<uint8_t>(len));
    } else {
        Bytes octets;
        for (; len > 0; len >>= 8) {
            octets.insert(octets.begin(), static_cast<uint8_t>(len));
        }
        out.push_back(static_cast<uint8_t>(0x80 | octets.size()));
        out.insert(out.end(), octets.begin(), octets.end());
    }
    out.insert(out.end(), body.begin(), body.end());
    return out;
}

Bytes Content(const Node &n) {
    if (!n.Constructed()) {
        return n.value;
    }
    Bytes out;
    for (const Node &c : n.children) {
        Bytes e = Encode(c);
        out.insert(out.end(), e.begin(), e.end());
    }
    return out;
}

Bytes Read(const std::string &path) {
    std::ifstream f(path, std::ios::binary);
    if (!f) {
        throw std::runtime_error("cannot read " + path);
    }
    return Bytes(std::istreambuf_iterator<char>(f), {});
}

void Write(const std::string &path, const Bytes &data) {
    std::ofstream f(path, std::ios::binary);
    f.write(reinterpret_cast<const char *>(data.data()), static_cast<long>(data.size()));
    if (!f) {
        throw std::runtime_error("cannot write " + path);
    }
}

const Bytes kOidMessageDigest = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x04};
const Bytes kOidTimeStampToken = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x09, 0x10, 0x02, 0x0E};
const Bytes kOidSha256 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x01};
const Bytes kOidSha384 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x02};
const Bytes kOidSha512 = {0x60, 0x86, 0x48, 0x01, 0x65, 0x03, 0x04, 0x02, 0x03};

Node &Child(Node &n, size_t i, uint8_t tag) {
    if (i >= n.children.size() || n.children[i].tag != tag) {
        throw std::runtime_error("unexpected CMS structure");
    }
    return n.children[i];
}

// ContentInfo -> [0] -> SignedData.
Node &SignedData(Node &contentInfo) {
    return Child(Child(contentInfo, 1, 0xA0), 0, 0x30);
}

Node &FirstSignerInfo(Node &contentInfo) {
    Node &sd = SignedData(contentInfo);
    return Child(Child(sd, sd.children.size() - 1, 0x31), 0, 0x30);
}

uint32_t HashIdOf(const Node &signerInfo) {
    const Bytes &oid = signerInfo.children.at(2).children.at(0).value;
    if (oid == kOidSha256) {
        return AOID_SHA256;
    }
    if (oid == kOidSha384) {
        return AOID_SHA384;
    }
    if (oid == kOidSha512) {
        return AOID_SHA512;
    }
    throw std::runtime_error("signer uses an unknown digest");
}

Bytes StandIn(uint32_t hashId, const Bytes &data) {
    Bytes out(tavo::fuzz::StandInDigestLength(hashId));
    tavo::fuzz::StandInDigest(hashId, data.data(), data.size(), out.data());
    return out;
}

// Replaces the messageDigest value in a SignerInfo's signed attributes, if it has any.
void SetMessageDigest(Node &signerInfo, const Bytes &content) {
    Node &attrs = signerInfo.children.at(3);
    if (attrs.tag != 0xA0) {
        return;
    }
    for (Node &attr : attrs.children) {
        if (attr.children.at(0).value == kOidMessageDigest) {
            attr.children.at(1).children.at(0).value = StandIn(HashIdOf(signerInfo), content);
            return;
        }
    }
    throw std::runtime_error("signed attributes without messageDigest");
}

// encryptedDigest: the only OCTET STRING directly inside a SignerInfo.
const Bytes &SignatureValue(const Node &signerInfo) {
    for (const Node &c : signerInfo.children) {
        if (c.tag == 0x04) {
            return c.value;
        }
    }
    throw std::runtime_error("SignerInfo without a signature value");
}

std::string Hex(const Bytes &b) {
    std::string s;
    char buf[3];
    for (uint8_t c : b) {
        std::snprintf(buf, sizeof(buf), "%02x", c);
        s += buf;
    }
    return s;
}

void Attach(const std::string &sigPath, const std::string &tokenPath, const std::string &out) {
    Node sig = Parse(Read(sigPath));
    Node token = Parse(Read(tokenPath));
    // The token's encapsulated content: [0] { OCTET STRING TSTInfo }.
    Node &eci = Child(SignedData(token), 2, 0x30);
    const Bytes &tst = Child(Child(eci, 1, 0xA0), 0, 0x04).value;
    SetMessageDigest(FirstSignerInfo(token), tst);

    Node &signer = FirstSignerInfo(sig);
    SetMessageDigest(signer,
                     Bytes(std::begin(tavo::fuzz::kContent), std::end(tavo::fuzz::kContent)));
    Node oid{0x06, kOidTimeStampToken, {}};
    Node values{0x31, {}, {token}};
    Node attr{0x30, {}, {oid, values}};
    signer.children.push_back(Node{0xA1, {}, {attr}});
    Write(out, Encode(sig));
}

void Header(const std::string &out, int argc, char **argv) {
    std::string text =
        "// Generated by fuzz/make-corpus from the fixed PKI that made the seeds.\n"
        "#pragma once\n\n#include <cstdint>\n\nnamespace tavo::fuzz {\n";
    for (int i = 0; i < argc; ++i) {
        std::string arg = argv[i];
        size_t eq = arg.find('=');
        if (eq == std::string::npos) {
            throw std::runtime_error("expected NAME=FILE: " + arg);
        }
        Bytes data = Read(arg.substr(eq + 1));
        text += "\ninline constexpr uint8_t " + arg.substr(0, eq) + "[] = {";
        for (size_t j = 0; j < data.size(); ++j) {
            char buf[16];
            std::snprintf(buf, sizeof(buf), "%s0x%02x,", j % 12 == 0 ? "\n    " : " ", data[j]);
            text += buf;
        }
        text += "\n};\n";
    }
    text += "\n}  // namespace tavo::fuzz\n";
    Write(out, Bytes(text.begin(), text.end()));
}

}  // namespace

int main(int argc, char **argv) try {
    std::string cmd = argc > 1 ? argv[1] : "";
    if (cmd == "content" && argc == 3) {
        Write(argv[2], Bytes(std::begin(tavo::fuzz::kContent), std::end(tavo::fuzz::kContent)));
    } else if (cmd == "digest" && argc == 4) {
        std::printf(
            "%s\n",
            Hex(StandIn(static_cast<uint32_t>(std::stoul(argv[2])), Read(argv[3]))).c_str());
    } else if (cmd == "signature-digest" && argc == 4) {
        Node sig = Parse(Read(argv[3]));
        const Bytes &value = SignatureValue(FirstSignerInfo(sig));
        std::printf("%s\n",
                    Hex(StandIn(static_cast<uint32_t>(std::stoul(argv[2])), value)).c_str());
    } else if (cmd == "attach" && argc == 5) {
        Attach(argv[2], argv[3], argv[4]);
    } else if (cmd == "header" && argc >= 4) {
        Header(argv[2], argc - 3, argv + 3);
    } else {
        std::fprintf(stderr, "usage: see the comment at the top of seedtool.cpp\n");
        return 2;
    }
    return 0;
} catch (const std::exception &e) {
    std::fprintf(stderr, "seedtool: %s\n", e.what());
    return 1;
}
