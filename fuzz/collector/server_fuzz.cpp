/// The server itself, among clients of which some write anything: every good request is answered,
/// whatever it stands between. Runs in a private root only (scripts/fuzz).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "base/FileDescriptor.h"
#include "collector/tavServer.h"
#include "core/Logger.h"
#include "rmc/tavMsgInfra.h"
#include "tests/support/Files.h"

namespace {

constexpr std::size_t mostPieces = 12;  // fit into a pipe, so that one write takes them whole

void require(bool condition) {
    if (!condition) std::abort();
}

/// The server, a pipe to it, and the pipe of this process for its answers.
struct Service {
    tav::FileDescriptor requests, answers;
    std::size_t pieces = 0;  // that the server has been given, each an input of its own

    Service() {
        // Its test event waits for the managers that are enabled, and there are none here.
        tav::test::writeConfiguration(R"("EnableResources": [])");
        // A device that refuses whatever it is asked, so that no driver is looked for.
        tav::FileDescriptor(::open("/dev/ipmi0", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        const int nowhere = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
        ::dup2(nowhere, STDOUT_FILENO);
        const std::string path = tav::responsePipeOf(::getpid());
        tavCreatePipe(path.c_str());
        answers = tav::openPipe(path.c_str(), O_RDWR);
        CPlusPlusLogging::Logger::getInstance()->disableLog();  // takes longer than all else
        TAVServer::initializeTAVServer();
        for (int tries = 0; !requests.isOpen() && tries < 1000; ++tries) {
            ::usleep(10'000);
            requests = tav::openPipe(tavRequestPipe, O_WRONLY);
        }
        require(answers.isOpen() && requests.isOpen());
    }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service() { std::fprintf(stderr, "Pieces: %zu\n", pieces); }
};

std::string_view take(std::string_view& text, std::size_t size) {
    const std::string_view taken = text.substr(0, size);
    text.remove_prefix(taken.size());
    return taken;
}

void append(std::string& stream, std::uint16_t code, std::int32_t client, std::string_view text) {
    const _TAV_MESSAGE_PACKET packet = tav::makeCliRequest({code, client, std::string(text)});
    stream.append(reinterpret_cast<const char*>(&packet), sizeof packet);
}

/// The fuzzer sees our number being compared, and would put it where it makes a request of ours.
void hideOwnNumber(std::string& stream, const std::vector<std::size_t>& ownRequests) {
    const std::int32_t number = ::getpid();
    const std::string_view bytes(reinterpret_cast<const char*>(&number), sizeof number);
    for (std::size_t at = stream.find(bytes); at != std::string::npos;
         at = stream.find(bytes, at + 1)) {
        const bool isOurs = std::any_of(ownRequests.begin(), ownRequests.end(), [&](auto request) {
            return at == request + offsetof(_TAV_MESSAGE_PACKET, clientPID);
        });
        if (!isOurs) stream[at] = static_cast<char>(~stream[at]);
    }
}

/// What the input's pieces say: bytes of no packet, a packet of a client that there is not, a good
/// request; and a last request of nobody's event. `good` is how many are to be answered before
/// that.
std::string makeStream(std::string_view input, std::size_t& good, std::size_t& pieces) {
    std::string stream;
    std::vector<std::size_t> ownRequests;
    for (pieces = 1; input.size() > 2 && pieces <= mostPieces; ++pieces) {
        const auto kind = static_cast<unsigned char>(take(input, 1)[0]);
        const std::size_t size = static_cast<unsigned char>(take(input, 1)[0]);
        const std::string_view text = take(input, size);
        const std::uint16_t code = kind % 2U == 0 ? TAV_TEST_EVENT_REQUEST : 0;
        if (kind / 2U % 3U == 0) {
            stream.append(text);
        } else if (kind / 2U % 3U == 1) {
            append(stream, code, static_cast<std::int32_t>(kind << 16U), text);
        } else {
            ownRequests.push_back(stream.size());
            append(stream, code, ::getpid(), text);
        }
    }
    good = ownRequests.size();
    ownRequests.push_back(stream.size());
    append(stream, TAV_TEST_EVENT_REQUEST, ::getpid(), "of nobody");
    hideOwnNumber(stream, ownRequests);
    return stream;
}

tav::CliReason nextAnswer(const tav::FileDescriptor& answers) {
    pollfd watched{answers.get(), POLLIN, 0};
    while (::poll(&watched, 1, -1) != 1) {  // the fuzzer's own alarm interrupts it, and has a limit
    }
    _TAV_MESSAGE_PACKET answer{};
    require(::read(answers.get(), &answer, sizeof answer) == sizeof answer);
    const auto code = tav::parseCliResponse(answer);
    const tav::CliReason reason = tav::reasonOf(answer);
    require(code && (*code == 0) == (reason == tav::CliReason::None));
    require(reason >= tav::CliReason::None && reason <= tav::CliReason::NoEvent);
    return reason;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Service service;
    std::size_t good = 0;
    std::size_t pieces = 0;
    const std::string stream =
        makeStream({reinterpret_cast<const char*>(data), size}, good, pieces);
    service.pieces += pieces;
    const ssize_t written = ::write(service.requests.get(), stream.data(), stream.size());
    require(written == static_cast<ssize_t>(stream.size()));
    for (; good > 0; --good)
        nextAnswer(service.answers);
    require(nextAnswer(service.answers) == tav::CliReason::NoSuchEvent);
    return 0;
}
