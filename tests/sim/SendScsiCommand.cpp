/// Sends a command to a disk as any program would: SendScsiCommand NODE BYTE... Prints the data or
/// the sense bytes that come back in hexadecimal.
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>

#include <scsi/sg.h>
#include <sys/ioctl.h>

#include "base/FileDescriptor.h"

namespace {

int fail() {
    std::printf("error %d\n", errno);
    return 1;
}

void print(const char* heading, const unsigned char* bytes, int count) {
    std::printf("%s", heading);
    for (int i = 0; i < count; ++i)
        std::printf("%02X", unsigned{bytes[i]});
    std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
    std::array<unsigned char, 16> command{};
    const int length = argc - 2;
    if (length < 1 || length > static_cast<int>(command.size())) return 2;
    for (int i = 0; i < length; ++i)
        command[static_cast<unsigned>(i)] =
            static_cast<unsigned char>(std::strtoul(argv[i + 2], nullptr, 16));
    const tav::FileDescriptor disk(::open(argv[1], O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!disk.isOpen()) return fail();
    std::array<unsigned char, 512> data{};
    std::array<unsigned char, 32> sense{};
    sg_io_hdr request{};
    request.interface_id = 'S';
    request.dxfer_direction = SG_DXFER_FROM_DEV;
    request.cmd_len = static_cast<unsigned char>(length);
    request.cmdp = command.data();
    request.dxfer_len = data.size();
    request.dxferp = data.data();
    request.mx_sb_len = sense.size();
    request.sbp = sense.data();
    request.timeout = 1000;
    if (::ioctl(disk.get(), SG_IO, &request) != 0) return fail();
    if (request.info & SG_INFO_CHECK) {
        print("sense ", sense.data(), request.sb_len_wr);
    } else {
        print("", data.data(), static_cast<int>(request.dxfer_len) - request.resid);
    }
    return 0;
}
