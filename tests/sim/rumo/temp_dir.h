// A private directory under /tmp for host files, removed with its contents.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tavo::test {

class TempDir {
  public:
    TempDir() {
        std::string pattern = "/tmp/rumo_sim_test_XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            throw std::runtime_error("mkdtemp failed");
        }
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    // Writes `content` to `name` inside the directory; returns the full path.
    std::string write(const std::string &name, std::string_view content) const {
        std::string file = path_ + "/" + name;
        std::ofstream(file, std::ios::binary) << content;
        return file;
    }
    const std::string &path() const { return path_; }

  private:
    std::string path_;
};

}  // namespace tavo::test
