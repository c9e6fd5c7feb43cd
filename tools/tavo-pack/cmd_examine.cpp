// inspect: what a package holds and whether its payload digest matches.
#include <nlohmann/json.hpp>

#include <iostream>

#include "commands.h"

namespace tavo_pack {

using namespace tavo::pki;
using json = nlohmann::ordered_json;

namespace {

json cert_json(const Cert &c) {
    return {{"subject", subject_text(c)},
            {"issuer", issuer_text(c)},
            {"serial", hex(serial(c))},
            {"not_before", format_time(not_before(c))},
            {"not_after", format_time(not_after(c))}};
}

json signers_json(const std::vector<SignerSummary> &signers) {
    json out = json::array();
    for (const auto &s : signers) {
        json j = {{"digest", s.digest}, {"signed_attributes", s.signed_attrs}};
        if (!s.key_id.empty()) {
            j["key_id"] = hex(s.key_id);
        } else {
            j["issuer"] = s.issuer;
            j["serial"] = hex(s.serial);
        }
        out.push_back(j);
    }
    return out;
}

json certs_json(const std::vector<Cert> &certs) {
    json out = json::array();
    for (const Cert &c : certs) {
        out.push_back(cert_json(c));
    }
    return out;
}

std::string word_to_digest(const std::string &word) {
    for (const char *d : {"sha256", "sha384", "sha512"}) {
        std::string w = std::string("SHA") + (d + 3) + "-Digest";
        if (word.compare(0, 13, w) == 0) {
            return d;
        }
    }
    return {};
}

// The digest entry as the verifier reads it: the line after the first line
// starting with "Name: ", split at its first colon; the hex starts two
// characters after the colon.
json digest_json(const Package &p) {
    std::string text(p.file_list.begin(), p.file_list.end());
    std::vector<std::string> lines;
    std::size_t pos = 0;
    while (pos < text.size()) {
        std::size_t nl = text.find('\n', pos);
        lines.push_back(text.substr(pos, nl == std::string::npos ? nl : nl - pos));
        pos = nl == std::string::npos ? text.size() : nl + 1;
    }
    json j = {{"matches", false}};
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].rfind("Name: ", 0) != 0) {
            continue;
        }
        j["name"] = lines[i].substr(6);
        if (i + 1 == lines.size()) {
            j["error"] = "no digest line after the Name line";
            return j;
        }
        const std::string &line = lines[i + 1];
        std::size_t colon = line.find(':');
        if (colon == std::string::npos || colon + 2 >= line.size()) {
            j["error"] = "malformed digest line";
            return j;
        }
        std::string word = line.substr(0, colon);
        j["word"] = word;
        j["expected"] = line.substr(colon + 2);
        std::string d = word_to_digest(word);
        if (d.empty()) {
            j["error"] = "unsupported digest word";
            return j;
        }
        j["computed"] = hex(digest(d, p.payload));
        j["matches"] = j["computed"] == j["expected"];
        return j;
    }
    j["error"] = "no \"Name: \" line";
    return j;
}

json inspect_json(const Package &p) {
    const PackageHeader &h = p.header;
    json out;
    out["header"] = {{"file_num", h.file_num},           {"file1_id", h.file1_id},
                     {"file_list_len", h.file_list_len}, {"file2_id", h.file2_id},
                     {"cms_sign_len", h.cms_sign_len},   {"file3_id", h.file3_id},
                     {"crl_file_len", h.crl_file_len}};
    out["header_ok"] = h.file_num == 3 && h.file1_id == 1 && h.file2_id == 2 && h.file3_id == 3;
    out["file_list"] = std::string(p.file_list.begin(), p.file_list.end());
    out["payload_size"] = p.payload.size();
    out["digest"] = digest_json(p);

    json sig;
    try {
        sig["signers"] = signers_json(signers(p.cms));
        sig["certificates"] = certs_json(embedded_certs(p.cms));
        if (std::optional<Bytes> token = timestamp_of(p.cms)) {
            TokenInfo t = describe_token(*token);
            Bytes expected = digest(t.imprint_digest, signature_value(p.cms));
            sig["timestamp"] = {{"gen_time", t.gen_time_text},
                                {"imprint_digest", t.imprint_digest},
                                {"imprint_matches", expected == t.imprint},
                                {"serial", hex(t.serial)},
                                {"policy", t.policy},
                                {"signers", signers_json(t.signers)},
                                {"certificates", certs_json(t.certs)}};
            if (t.nonce) {
                sig["timestamp"]["nonce"] = hex(*t.nonce);
            }
        } else {
            sig["timestamp"] = nullptr;
        }
    } catch (const std::exception &e) {
        sig["error"] = e.what();
    }
    out["signature"] = sig;

    json crls = json::array();
    try {
        for (const Bytes &c : split_der(p.crls)) {
            CrlInfo info = describe_crl(c);
            json revoked = json::array();
            for (const Revoked &r : info.revoked) {
                json e = {{"serial", hex(r.serial)}, {"date", format_time(r.when)}};
                if (r.reason) {
                    e["reason"] = *r.reason;
                }
                revoked.push_back(e);
            }
            crls.push_back({{"issuer", info.issuer},
                            {"this_update", format_time(info.this_update)},
                            {"next_update", info.next_update ? format_time(*info.next_update)
                                                             : std::string("none")},
                            {"revoked", revoked}});
        }
    } catch (const std::exception &e) {
        crls.push_back({{"error", e.what()}});
    }
    out["crls"] = crls;
    return out;
}

void print_text(const json &j, int indent) {
    const std::string pad(static_cast<std::size_t>(indent) * 2, ' ');
    for (auto it = j.begin(); it != j.end(); ++it) {
        std::string label = j.is_array() ? "-" : it.key() + ":";
        if (it->is_structured() && !it->empty()) {
            std::cout << pad << label << "\n";
            print_text(*it, indent + 1);
        } else if (it->is_string()) {
            std::string s = it->get<std::string>();
            if (s.find('\n') != std::string::npos) {
                std::cout << pad << label << "\n";
                std::size_t pos = 0;
                while (pos < s.size()) {
                    std::size_t nl = s.find('\n', pos);
                    std::cout << pad << "  | " << s.substr(pos, nl - pos) << "\n";
                    pos = nl == std::string::npos ? s.size() : nl + 1;
                }
            } else {
                std::cout << pad << label << " " << s << "\n";
            }
        } else {
            std::cout << pad << label << " " << it->dump() << "\n";
        }
    }
}

}  // namespace

int run_inspect(const InspectOptions &o) {
    json out;
    try {
        out = inspect_json(parse_package(read_file(o.package)));
    } catch (const std::exception &e) {
        std::cerr << "tavo-pack: " << o.package << ": " << e.what() << "\n";
        return 1;
    }
    if (o.json) {
        std::cout << out.dump(2) << "\n";
    } else {
        print_text(out, 0);
    }
    return out["digest"]["matches"].get<bool>() ? 0 : 1;
}

}  // namespace tavo_pack
