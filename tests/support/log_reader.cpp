#include "log_reader.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <fstream>
#include <regex>
#include <sstream>

namespace tavo::test {

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

bool file_exists(const std::string &path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

std::vector<LogRecord> read_log(const std::string &path, bool with_user) {
    static const std::regex header(R"(\[(\d{4}/\d{2}/\d{2} \d{2}:\d{2}:\d{2})\]\[(\d+)\])");
    static const std::regex columns(R"(^\[([^\]]*)\]\[([^\]]*)\])");
    const std::string text = read_file(path);
    std::vector<LogRecord> records;
    std::vector<std::smatch> heads;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), header);
         it != std::sregex_iterator(); ++it) {
        heads.push_back(*it);
    }
    for (size_t i = 0; i < heads.size(); ++i) {
        LogRecord r;
        r.time = heads[i][1];
        r.thread_id = std::stol(heads[i][2]);
        size_t begin = static_cast<size_t>(heads[i].position(0) + heads[i].length(0));
        size_t end =
            i + 1 < heads.size() ? static_cast<size_t>(heads[i + 1].position(0)) : text.size();
        std::string body = text.substr(begin, end - begin);
        std::smatch m;
        if (with_user && std::regex_search(body, m, columns)) {
            r.user = m[1];
            r.address = m[2];
            body = body.substr(static_cast<size_t>(m.length(0)));
        }
        r.message = body;
        records.push_back(std::move(r));
    }
    return records;
}

void remove_logs() {
    for (const char *p : {kErrLog, kInfoLog, kOpLog, kGpLog}) {
        ::unlink(p);
        ::unlink((std::string(p) + ".bak").c_str());
    }
}

namespace {

const std::regex &prefix_regex() {
    static const std::regex prefix(R"(^\[([^,\]]*),([^,\]]*),(\d+)\]:)");
    return prefix;
}

}  // namespace

std::string message_text(const LogRecord &record) {
    std::smatch m;
    if (std::regex_search(record.message, m, prefix_regex())) {
        return record.message.substr(static_cast<size_t>(m.length(0)));
    }
    return record.message;
}

std::string message_origin(const LogRecord &record) {
    std::smatch m;
    if (std::regex_search(record.message, m, prefix_regex())) {
        return std::string(m[1]) + "," + std::string(m[2]);
    }
    return "";
}

int message_line(const LogRecord &record) {
    std::smatch m;
    if (std::regex_search(record.message, m, prefix_regex())) {
        return std::stoi(m[3]);
    }
    return -1;
}

bool logged(const std::string &path, std::string_view origin, std::string_view text) {
    bool with_user = path.find("LOG_OP") != std::string::npos;
    for (const auto &r : read_log(path, with_user)) {
        if (message_origin(r) == origin && message_text(r) == text) {
            return true;
        }
    }
    return false;
}

}  // namespace tavo::test
