#include "service/CrashCapture.h"

#include <array>
#include <cstddef>
#include <cstring>

#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace tavd {
namespace {

constexpr std::array fatalSignals = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL};
constexpr std::size_t handlerStackSize = 64U << 10U;
constexpr int deepestStack = 64;

struct SignalName {
    int number;
    const char* text;
};
constexpr std::array signalNames = {SignalName{SIGSEGV, "tavd: SIGSEGV, stack of the thread:\n"},
                                    SignalName{SIGABRT, "tavd: SIGABRT, stack of the thread:\n"},
                                    SignalName{SIGBUS, "tavd: SIGBUS, stack of the thread:\n"},
                                    SignalName{SIGFPE, "tavd: SIGFPE, stack of the thread:\n"},
                                    SignalName{SIGILL, "tavd: SIGILL, stack of the thread:\n"}};

void writeStack(int file, int signalNumber, void** stack, int depth) {
    for (const SignalName& name : signalNames) {
        if (name.number != signalNumber) continue;
        [[maybe_unused]] const ssize_t written = ::write(file, name.text, std::strlen(name.text));
    }
    ::backtrace_symbols_fd(stack, depth, file);
}

/// Only calls that a signal handler may make. The action has been reset, so that the signal ends
/// the process when it is raised again.
void handleFatalSignal(int signalNumber) {
    std::array<void*, deepestStack> stack;
    const int depth = ::backtrace(stack.data(), deepestStack);
    writeStack(STDERR_FILENO, signalNumber, stack.data(), depth);
    const int file =
        ::open(crashStackFile, O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (file >= 0) {
        writeStack(file, signalNumber, stack.data(), depth);
        ::close(file);
    }
    ::raise(signalNumber);
}

}  // namespace

void captureCrashes() {
    // The first call loads code, which must not happen inside the handler.
    std::array<void*, 1> warmUp;
    ::backtrace(warmUp.data(), 1);

    // A stack of its own, which each thread would have to be given, lets the handler tell of an
    // exhausted one.
    static std::array<std::byte, handlerStackSize> handlerStack;
    stack_t alternate{};
    alternate.ss_sp = handlerStack.data();
    alternate.ss_size = handlerStack.size();
    ::sigaltstack(&alternate, nullptr);

    struct sigaction action {};
    action.sa_handler = handleFatalSignal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_ONSTACK | SA_NODEFER);
    for (const int signalNumber : fatalSignals) {
        ::sigaction(signalNumber, &action, nullptr);
    }
}

}  // namespace tavd
