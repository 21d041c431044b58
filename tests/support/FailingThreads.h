#pragma once

#include <cstddef>

#include <pthread.h>

namespace tav::test {

/// While it lives, no thread of this process can be created: none has room for its stack.
class FailingThreads {
 public:
    FailingThreads() {
        ::pthread_getattr_default_np(&usual_);
        pthread_attr_t huge;
        ::pthread_getattr_default_np(&huge);
        ::pthread_attr_setstacksize(&huge, std::size_t{1} << 46U);
        ::pthread_setattr_default_np(&huge);
        ::pthread_attr_destroy(&huge);
    }
    FailingThreads(const FailingThreads&) = delete;
    FailingThreads& operator=(const FailingThreads&) = delete;
    ~FailingThreads() {
        ::pthread_setattr_default_np(&usual_);
        ::pthread_attr_destroy(&usual_);
    }

 private:
    pthread_attr_t usual_;
};

}  // namespace tav::test
