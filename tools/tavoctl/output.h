// How tavoctl reports: human tables or one JSON document, and failures.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>
#include <vector>

namespace tavoctl {

struct Options {
    bool json = false;
};

// Exit status of a command that failed; its reason is printed on one line.
inline constexpr int kExitFailure = 1;

// Prints "tavoctl: <what> failed (<status>)" on standard error and returns kExitFailure.
int fail(std::string_view what, int status);

// A table printed with columns aligned to their widest cell.
class Table {
  public:
    explicit Table(std::vector<std::string> header);
    void add(std::vector<std::string> row);
    void print() const;

  private:
    std::vector<std::vector<std::string>> rows_;
};

void print_json(const nlohmann::json &document);

}  // namespace tavoctl
