// tavo-pack commands. Each run_* returns the process exit status:
// 0 success, 1 failure (reason on stderr), 2 bad usage.
#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "pki.h"

namespace tavo_pack {

struct PkiInitOptions {
    std::string dir;
    bool force = false;
};
int run_pki_init(const PkiInitOptions &o);

struct CrlOptions {
    std::string ca, key, out;
    std::vector<std::string> revoke;  // SERIAL[:REASON[:DATE]]
    std::string this_update, next_update;
    std::string digest = "sha256";
};
int run_crl(const CrlOptions &o);

struct BuildOptions {
    std::string payload, out, pki_dir, name;
    std::string signer, key, tsa_cert, tsa_key, tsa_url, root;
    std::vector<std::string> chain, crls;
    std::string digest = "sha256";
    std::string time;  // genTime for the local TSA; default now
};
int run_build(const BuildOptions &o);

struct InspectOptions {
    std::string package;
    bool json = false;
};
int run_inspect(const InspectOptions &o);

struct TsaServeOptions {
    std::string cert, key, listen;
    bool once = false;
    int idle_timeout = 0;  // seconds without a connection before exiting; 0: none
};
int run_tsa_serve(const TsaServeOptions &o);

// HTTP/1.0 POST of an RFC 3161 request; returns the response body.
tavo::pki::Bytes post_ts_request(const std::string &url, const tavo::pki::Bytes &request,
                                 int timeout_seconds);

// Random bytes from OpenSSL's generator; the first byte is made non-zero.
tavo::pki::Bytes random_serial(std::size_t size);

}  // namespace tavo_pack
