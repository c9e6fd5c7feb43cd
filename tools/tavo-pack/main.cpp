// tavo-pack: development PKI, CRLs, signed upgrade packages and a small
// RFC 3161 time-stamping responder.
#include <CLI/CLI.hpp>

#include <iostream>

#include "commands.h"

int main(int argc, char **argv) {
    CLI::App app{"tavo-pack - build and inspect signed upgrade packages"};
    app.require_subcommand(1);

    CLI::App *pki = app.add_subcommand("pki", "development PKI");
    pki->require_subcommand(1);
    tavo_pack::PkiInitOptions init;
    CLI::App *pki_init = pki->add_subcommand(
        "init", "write root, ca, signer and tsa certificates, keys and empty CRLs into DIR");
    pki_init->add_option("DIR", init.dir, "output directory")->required();
    pki_init->add_flag("--force", init.force, "overwrite an existing PKI");

    tavo_pack::CrlOptions crl;
    CLI::App *crl_cmd = app.add_subcommand("crl", "issue a CRL");
    crl_cmd->add_option("--ca", crl.ca, "issuer certificate (DER or PEM)")->required();
    crl_cmd->add_option("--key", crl.key, "issuer key (PEM)")->required();
    crl_cmd->add_option("--out", crl.out, "output file (DER)")->required();
    crl_cmd->add_option("--revoke", crl.revoke,
                        "SERIAL[:REASON[:DATE]]: hex serial, reason code or name, revocation "
                        "date (default: this update)");
    crl_cmd->add_option("--this-update", crl.this_update, "YYYY-MM-DDTHH:MM:SSZ (default now)");
    crl_cmd->add_option("--next-update", crl.next_update,
                        "YYYY-MM-DDTHH:MM:SSZ (default this update + 30 years)");
    crl_cmd->add_option("--digest", crl.digest, "sha256, sha384 or sha512");

    tavo_pack::BuildOptions build;
    CLI::App *build_cmd = app.add_subcommand("build", "build a signed, time-stamped package");
    build_cmd->add_option("--payload", build.payload, "firmware image")->required();
    build_cmd->add_option("--out", build.out, "package to write")->required();
    build_cmd->add_option("--pki", build.pki_dir, "directory laid out as by `pki init`");
    build_cmd->add_option("--signer", build.signer, "signer certificate");
    build_cmd->add_option("--key", build.key, "signer key");
    build_cmd->add_option("--chain", build.chain, "CA certificates to embed after the signer");
    build_cmd->add_option("--root", build.root, "root certificate (for checks only)");
    build_cmd->add_option("--tsa-cert", build.tsa_cert, "TSA certificate");
    build_cmd->add_option("--tsa-key", build.tsa_key, "TSA key");
    build_cmd->add_option("--tsa-url", build.tsa_url, "RFC 3161 responder, http://HOST:PORT/PATH");
    build_cmd->add_option("--crl", build.crls, "CRL to include (DER), repeatable");
    build_cmd->add_option("--digest", build.digest, "sha256, sha384 or sha512");
    build_cmd->add_option("--name", build.name, "file name in the file list (default: payload's)");
    build_cmd->add_option("--time", build.time, "genTime of a local time-stamp (default now)");

    tavo_pack::InspectOptions inspect;
    CLI::App *inspect_cmd = app.add_subcommand("inspect", "describe a package");
    inspect_cmd->add_option("PKG", inspect.package, "package")->required();
    inspect_cmd->add_flag("--json", inspect.json, "JSON output");

    CLI::App *tsa = app.add_subcommand("tsa", "time-stamping authority");
    tsa->require_subcommand(1);
    tavo_pack::TsaServeOptions serve;
    CLI::App *serve_cmd = tsa->add_subcommand("serve", "answer RFC 3161 requests over HTTP");
    serve_cmd->add_option("--cert", serve.cert, "TSA certificate")->required();
    serve_cmd->add_option("--key", serve.key, "TSA key")->required();
    serve_cmd->add_option("--listen", serve.listen, "127.0.0.1:PORT (port 0 picks one)")
        ->required();
    serve_cmd->add_flag("--once", serve.once, "exit after one request");
    serve_cmd->add_option("--idle-timeout", serve.idle_timeout,
                          "exit after this many seconds without a request");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp &e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp &e) {
        return app.exit(e);
    } catch (const CLI::ParseError &e) {
        app.exit(e);
        return 2;
    }

    if (pki_init->parsed()) {
        return tavo_pack::run_pki_init(init);
    }
    if (crl_cmd->parsed()) {
        return tavo_pack::run_crl(crl);
    }
    if (build_cmd->parsed()) {
        return tavo_pack::run_build(build);
    }
    if (inspect_cmd->parsed()) {
        return tavo_pack::run_inspect(inspect);
    }
    if (serve_cmd->parsed()) {
        return tavo_pack::run_tsa_serve(serve);
    }
    return 2;
}
