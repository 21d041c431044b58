#include "base/StandardStreams.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

namespace tav {

void secureStandardStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
        if (::fcntl(stream, F_GETFD) >= 0) continue;
        // The lowest free number: those below are in use by now.
        ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
    ::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace tav
