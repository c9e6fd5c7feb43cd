// tavoctl verify PKG: the library's verdict on an upgrade package.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

#include "audit.h"
#include "commands.h"
#include "package.h"

namespace tavoctl {
namespace {

std::string &package_path() {
    static std::string path;
    return path;
}

void print_root(const nlohmann::json &root) {
    auto text = [](const nlohmann::json &value) {
        return value.is_string() ? value.get<std::string>() : std::string("unknown");
    };
    std::printf("trusted root: %s\n", text(root["subject"]).c_str());
    std::printf("root SHA-256: %s\n", text(root["sha256"]).c_str());
    if (root["development"] == true) {
        std::printf(
            "warning: this library trusts the DEVELOPMENT root; build it with "
            "TAVO_ROOT_CERT for production\n");
    }
}

}  // namespace

CLI::App *add_verify_command(CLI::App &app, Options &options) {
    CLI::App *verify = app.add_subcommand(
        "verify", "check an upgrade package's signature, time-stamp, chain, CRLs and digest");
    verify->add_option("PACKAGE", package_path(), "upgrade package")->required();
    verify->add_flag("--json", options.json, "print one JSON document instead of text");
    return verify;
}

int run_verify(const Options &options) {
    PrivateCopy copy(package_path());
    if (!copy.ok()) {
        std::fprintf(stderr, "tavoctl: %s\n", copy.error().c_str());
        return kExitFailure;
    }
    Verdict verdict = verify_package(copy.file());
    audit("verify", package_path() + ": " + describe(verdict));
    nlohmann::json root = trusted_root();
    if (options.json) {
        nlohmann::json document = to_json(verdict);
        document["package"] = package_path();
        document["trusted_root"] = root;
        print_json(document);
    } else {
        std::printf("%s: %s\n", package_path().c_str(), describe(verdict).c_str());
        print_root(root);
    }
    return verdict.accepted ? 0 : kExitFailure;
}

}  // namespace tavoctl
