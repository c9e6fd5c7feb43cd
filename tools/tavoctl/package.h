// Upgrade packages as tavoctl sees them: the library's verdict, the stage that
// rejected a package, and the payload of an accepted one.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tavoctl {

struct Verdict {
    bool accepted = false;
    // "header", "length", "signature" or "checksum" for a rejected package.
    std::string stage;
    // The verification engine's code where the signature stage reported one.
    std::optional<uint32_t> engine_code;
    // The library's last record about the rejection, without its prefix.
    std::string reason;
};

// Runs the library's package check on `path` and reads what it logged.
Verdict verify_package(const std::string &path);

// The root certificate the library trusts: subject, SHA-256 fingerprint and
// whether it is the development root.
nlohmann::json trusted_root();

// One line for an operator: "accepted", or the stage, code and meaning.
std::string describe(const Verdict &verdict);
nlohmann::json to_json(const Verdict &verdict);

// Copies `path` into a private directory that lives as long as the object, so a
// package that is replaced while it is checked cannot mix two files.
class PrivateCopy {
  public:
    explicit PrivateCopy(const std::string &path);
    ~PrivateCopy();
    PrivateCopy(const PrivateCopy &) = delete;
    PrivateCopy &operator=(const PrivateCopy &) = delete;

    bool ok() const { return !file_.empty(); }
    const std::string &file() const { return file_; }
    const std::string &directory() const { return directory_; }
    const std::string &error() const { return error_; }

  private:
    std::string directory_;
    std::string file_;
    std::string error_;
};

// Writes the payload section of the package `package` to `out`; false with a
// reason when the header cannot be read.
bool extract_payload(const std::string &package, const std::string &out, std::string &error);

}  // namespace tavoctl
