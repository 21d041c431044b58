#include "service/StatusFile.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <sys/stat.h>

#include "base/FileDescriptor.h"
#include "core/Log.h"
#include "rmc/DeliveryRecord.h"

namespace tavd {
namespace {

constexpr tav::ModuleLog logger{"TAVD"};
constexpr const char* directory = "/run/tavd";

bool replaceFile(const std::string& path, const std::string& text) {
    const std::string fresh = path + ".new";
    ::unlink(fresh.c_str());  // one that a crash has left behind
    const tav::FileDescriptor file(
        ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    return file.isOpen() &&
           ::write(file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) &&
           ::rename(fresh.c_str(), path.c_str()) == 0;
}

}  // namespace

void writeStatusFile() {
    ::mkdir(directory, 0755);
    if (!replaceFile(tav::deliveryRecordFile, tav::renderDeliveryRecord(tav::deliveryRecord()))) {
        logger.debug(tav::here(), "%s cannot be written: %s", tav::deliveryRecordFile,
                     std::strerror(errno));
    }
}

}  // namespace tavd
