#include "scoped_testbed.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace tavo::test {

ScopedTestbed::ScopedTestbed(std::string owner) : owner_(std::move(owner)) {
    if (const char *dir = std::getenv("UMOCKDEV_DIR"); dir != nullptr) {
        previous_dir_ = dir;
    }
    // The testbed directory goes under g_get_tmp_dir(): keep it in the simulated host's private
    // /tmp whatever TMPDIR the user had. umockdev_testbed_new points UMOCKDEV_DIR at the new
    // testbed, and the preload follows it.
    g_setenv("TMPDIR", "/tmp", TRUE);
    testbed_ = umockdev_testbed_new();
    if (testbed_ == nullptr) {
        fail("cannot create a umockdev testbed");
    }
    g_autofree gchar *root = umockdev_testbed_get_root_dir(testbed_);
    root_ = root;
}

ScopedTestbed::~ScopedTestbed() {
    if (testbed_ != nullptr) {
        g_object_unref(testbed_);
    }
    if (previous_dir_) {
        setenv("UMOCKDEV_DIR", previous_dir_->c_str(), 1);
    } else {
        unsetenv("UMOCKDEV_DIR");
    }
}

void ScopedTestbed::fail(const std::string &problem) const {
    ADD_FAILURE() << owner_ << ": " << problem;
    throw std::runtime_error(owner_ + ": " + problem);
}

}  // namespace tavo::test
