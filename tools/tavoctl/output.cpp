#include "output.h"

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace tavoctl {

int fail(std::string_view what, int status) {
    std::fprintf(stderr, "tavoctl: %.*s failed (%d); details in /var/log/quillmon_LOG_ERR.log\n",
                 static_cast<int>(what.size()), what.data(), status);
    return kExitFailure;
}

Table::Table(std::vector<std::string> header) {
    rows_.push_back(std::move(header));
}

void Table::add(std::vector<std::string> row) {
    rows_.push_back(std::move(row));
}

void Table::print() const {
    std::vector<std::size_t> widths;
    for (const auto &row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], row[i].size());
        }
    }
    for (const auto &row : rows_) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i) {
            line += row[i];
            if (i + 1 < row.size()) {
                line.append(widths[i] - row[i].size() + 2, ' ');
            }
        }
        std::cout << line << '\n';
    }
}

void print_json(const nlohmann::json &document) {
    std::cout << document.dump(2) << '\n';
}

}  // namespace tavoctl
