#include "base/Threads.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <pthread.h>

namespace tav {

int startThread(std::thread& thread, const char* name, std::function<void()> body) {
    try {
        thread = std::thread([name, body = std::move(body)] {
            ::pthread_setname_np(::pthread_self(), name);
            body();
        });
    } catch (const std::system_error& failure) {
        return failure.code().value();
    }
    return 0;
}

int joinThread(std::thread& thread) {
    if (!thread.joinable()) return EINVAL;
    try {
        thread.join();
    } catch (const std::system_error& failure) {
        return failure.code().value();
    }
    return 0;
}

}  // namespace tav
