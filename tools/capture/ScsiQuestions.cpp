#include "tools/capture/ScsiQuestions.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <fcntl.h>

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include "base/FileDescriptor.h"
#include "base/Waiting.h"
#include "storage/scsi/scsi_commands.h"
#include "storage/scsi/scsi_pages.h"

namespace tav::capture {
namespace {

/// What has been learnt of the disk so far, which decides about what it is asked.
struct Disk {
    bool isAta = false;       ///< it stands behind a translation layer
    int protocol = -1;        ///< SPC-4's number of its transport; -1 for none told
    int rotationRate = -1;    ///< 1: it does not rotate
    int majorVersion = 0;     ///< of ATA
    bool hasAborted = false;  ///< an ATA command
    bool hasAnswered = true;  ///< the last question, in time
    std::string lastAnswer;   ///< without failure
};

constexpr int ataProtocol = 8;

bool speaksAta(const Disk& disk) {
    return disk.protocol == ataProtocol || (disk.protocol < 0 && disk.isAta);
}

// When a question is asked.
bool always(const Disk& /*disk*/) {
    return true;
}
bool ofAta(const Disk& disk) {
    return disk.isAta;
}
bool ofOthers(const Disk& disk) {
    return !disk.isAta;
}
bool ofAtaSsd(const Disk& disk) {
    return speaksAta(disk) && disk.rotationRate == 1;
}
bool ofRecentAta(const Disk& disk) {
    constexpr int acs2AndLater = 0xFE00;
    return speaksAta(disk) && disk.majorVersion != 0xFFFF &&
           (disk.majorVersion & acs2AndLater) != 0;
}
bool ofAtaProtocol(const Disk& disk) {
    return speaksAta(disk);
}
bool ofAtaThatAborted(const Disk& disk) {
    return disk.hasAborted;
}
/// Also where the disk tells no protocol, or another one: where any controller is claimed, the
/// managers judge it by these.
bool ofScsiProtocol(const Disk& disk) {
    return !ofAtaProtocol(disk);
}
bool ofScsiSsd(const Disk& disk) {
    return ofScsiProtocol(disk) && disk.rotationRate == 1;
}

unsigned byteAt(const std::string& bytes, std::size_t at) {
    return at < bytes.size() ? static_cast<unsigned char>(bytes[at]) : 0U;
}

int littleWordAt(const std::string& bytes, std::size_t word) {
    return static_cast<int>(byteAt(bytes, 2 * word) | byteAt(bytes, 2 * word + 1) << 8U);
}

// What is learnt from an answer.
void nothing(Disk& /*disk*/) {}
void learnProtocol(Disk& disk) {
    constexpr std::size_t at = offsetof(scsi::ProtocolSpecificPort, protocolIdentifier);
    if (disk.lastAnswer.size() > at)
        disk.protocol = static_cast<int>(byteAt(disk.lastAnswer, at) & 0xFU);
}
void learnIdentity(Disk& disk) {
    constexpr std::size_t majorVersion = 80;
    constexpr std::size_t rotationRate = 217;
    if (disk.lastAnswer.size() < scsi::ataSector) return;
    disk.majorVersion = littleWordAt(disk.lastAnswer, majorVersion);
    disk.rotationRate = littleWordAt(disk.lastAnswer, rotationRate);
}
void learnRotation(Disk& disk) {
    constexpr std::size_t at = offsetof(scsi::BlockDeviceCharacteristics, mediumRotationRate);
    if (disk.lastAnswer.size() <= at + 1) return;
    disk.rotationRate =
        static_cast<int>(byteAt(disk.lastAnswer, at) << 8U | byteAt(disk.lastAnswer, at + 1));
}

struct Question {
    template <class Command>
    constexpr Question(const Command& command, std::size_t replyRoom, bool (*asked)(const Disk&),
                       void (*learnt)(Disk&) = nothing)
        : bytes(std::bit_cast<std::array<std::uint8_t, sizeof(Command)>>(command)),
          room(replyRoom),
          isAsked(asked),
          learn(learnt) {}

    /// At most 16 bytes of a command.
    struct Bytes {
        template <std::size_t Size>
        constexpr Bytes(const std::array<std::uint8_t, Size>& command) : size(Size) {
            std::copy(command.begin(), command.end(), data.begin());
        }
        std::array<std::uint8_t, 16> data{};
        std::size_t size;
    };
    Bytes bytes;
    std::size_t room;
    bool (*isAsked)(const Disk&);
    void (*learn)(Disk&);
};

constexpr std::uint8_t portPageRoom = 255;
constexpr std::uint16_t exceptionsRoom = 98;
constexpr std::uint16_t temperatureRoom = sizeof(scsi::Temperature);
constexpr std::uint16_t wearRoom = 16;

/// In the manager's order. The ATA directories come last: they tell whether what was aborted is
/// supported.
constexpr std::array questions = {
    Question(scsi::modePage(scsi::protocolSpecificPortPage, portPageRoom), portPageRoom, always,
             learnProtocol),
    Question(scsi::identifyDevice(), scsi::ataSector, ofAta, learnIdentity),
    Question(scsi::vitalProductData(scsi::blockDeviceCharacteristicsPage), scsi::inquiryRoom,
             ofOthers, learnRotation),
    Question(scsi::deviceStatistics(scsi::solidStateDeviceStatisticsPage), scsi::ataSector,
             ofAtaSsd),
    Question(scsi::deviceStatistics(scsi::temperatureStatisticsPage), scsi::ataSector, ofRecentAta),
    Question(scsi::smartErrorLog(), scsi::ataSector, ofAtaProtocol),
    Question(scsi::logDirectory(), scsi::ataSector, ofAtaThatAborted),
    Question(scsi::deviceStatistics(0), scsi::ataSector, ofAtaThatAborted),
    Question(scsi::cumulativeLogPage(scsi::solidStateMediaPage, wearRoom), wearRoom, ofScsiSsd),
    Question(scsi::cumulativeLogPage(scsi::temperaturePage, temperatureRoom), temperatureRoom,
             ofScsiProtocol),
    Question(scsi::cumulativeLogPage(scsi::informationalExceptionsPage, exceptionsRoom),
             exceptionsRoom, ofScsiProtocol),
};

constexpr std::uint8_t ataPassThrough = 0x85;
constexpr std::size_t senseRoom = 32;
/// Shorter than the managers' minute, in which a capture has to be over.
constexpr unsigned timeoutMilliseconds = 20000;
constexpr unsigned hostTimedOut = 3;

std::string_view textOf(const std::uint8_t* bytes, std::size_t size) {
    return {reinterpret_cast<const char*>(bytes), size};
}

/// What is made of a command that the kernel has completed, well or badly.
void takeCompleted(const sg_io_hdr& header, const std::string& room, Answer& answer, Disk& disk) {
    const std::int64_t came = std::int64_t{header.dxfer_len} - header.resid;
    const auto size =
        static_cast<std::size_t>(std::clamp<std::int64_t>(came, 0, std::int64_t(room.size())));
    const bool isGood = (header.info & SG_INFO_OK_MASK) == SG_INFO_OK;
    answer.outcome = "status=" + std::to_string(header.status) +
                     " host=" + std::to_string(header.host_status) +
                     " driver=" + std::to_string(header.driver_status);
    answer.sense = textOf(header.sbp, std::min<std::size_t>(header.sb_len_wr, senseRoom));
    if (isGood) answer.data = room.substr(0, size);
    disk.lastAnswer = answer.data;
    disk.hasAnswered = header.host_status != hostTimedOut;
    disk.hasAborted = disk.hasAborted || (answer.hasAtaTexts && !isGood && disk.hasAnswered);
}

void ask(Recorder& recorder, const std::string& device, int node, const Question& question,
         Disk& disk) {
    std::array<std::uint8_t, 16> command = question.bytes.data;
    std::array<std::uint8_t, senseRoom> sense{};
    std::string room(question.room, '\0');
    sg_io_hdr header{};
    header.interface_id = 'S';
    header.dxfer_direction = SG_DXFER_FROM_DEV;
    header.cmd_len = static_cast<unsigned char>(question.bytes.size);
    header.cmdp = command.data();
    header.mx_sb_len = sense.size();
    header.sbp = sense.data();
    header.dxfer_len = static_cast<unsigned>(room.size());
    header.dxferp = room.data();
    header.timeout = timeoutMilliseconds;

    Answer answer;
    answer.question = "scsi " + hexadecimal(textOf(command.data(), question.bytes.size));
    answer.hasAtaTexts = command[0] == ataPassThrough;
    recorder.ask(device, answer.question);
    const Stopwatch taken;
    disk.lastAnswer.clear();
    if (::ioctl(node, SG_IO, &header) < 0) {
        answer.outcome = "error=" + std::to_string(errno);
        disk.hasAnswered = errno != ETIMEDOUT;
    } else {
        takeCompleted(header, room, answer, disk);
    }
    answer.outcome += " ms=" + std::to_string(taken.elapsed().count());
    recorder.addAnswer(device, std::move(answer));
}

}  // namespace

void askScsiDisk(Recorder& recorder, const ScsiNode& node) {
    recorder.ask(node.name, "open");
    const std::string path = "/dev/" + node.name;
    const FileDescriptor opened(::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!opened.isOpen()) {
        recorder.refuseToOpen(node.name, errno);
        return;
    }
    Disk disk;
    disk.isAta = node.isAta;
    for (const Question& question : questions) {
        if (!question.isAsked(disk)) continue;
        ask(recorder, node.name, opened.get(), question, disk);
        question.learn(disk);
        // As for the managers: one question that is not answered in time ends the disk's turn.
        if (!disk.hasAnswered) return;
    }
}

}  // namespace tav::capture
