#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace tav::test {

/// Lowers a limit of the process until it goes. The hard limit stays as whoever has started the
/// test wants it: only a privileged process could give it back.
class SoftLimit {
 public:
    SoftLimit(int resource, rlim_t value) : resource_(resource) {
        EXPECT_EQ(::getrlimit(resource_, &before_), 0);
        set({value, before_.rlim_max});
    }
    ~SoftLimit() { set(before_); }
    SoftLimit(const SoftLimit&) = delete;
    SoftLimit& operator=(const SoftLimit&) = delete;

 private:
    void set(const rlimit& limit) const { EXPECT_EQ(::setrlimit(resource_, &limit), 0); }

    int resource_;
    rlimit before_{};
};

}  // namespace tav::test
