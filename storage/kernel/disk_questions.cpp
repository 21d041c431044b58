#include "storage/kernel/disk_questions.h"

#include <algorithm>
#include <array>

#include "base/printed.h"
#include "core/Log.h"

namespace tav {
namespace {

constexpr ModuleLog logger{"STOR_CTLR"};

struct QuestionText {
    DiskQuestion question;
    const char* what;
};
constexpr std::array questionTexts = {
    QuestionText{wearQuestion, "its wear"},
    QuestionText{temperatureQuestion, "its temperatures"},
    QuestionText{errorsQuestion, "its errors"},
    QuestionText{healthLogQuestion, "its SMART / health information log"},
};

const char* textOf(DiskQuestion question) {
    return std::find_if(questionTexts.begin(), questionTexts.end(),
                        [&](const QuestionText& row) { return row.question == question; })
        ->what;
}

}  // namespace

void noteAnswered(DiskQuestion question, tavDiskInfo& disk) {
    disk.memory().answered |= question;
    disk.memory().refused &= ~unsigned{question};
}

std::string noteRefused(DiskQuestion question, tavDiskInfo& disk) {
    DiskMemory& memory = disk.memory();
    if ((memory.answered & question) != 0) {
        return printed("The disk drive refuses to tell %s, which it has told before.",
                       textOf(question));
    }
    if ((memory.refused & question) == 0) {
        memory.refused |= question;
        logger.info(here(), "%s: The disk does not support to be asked for %s.",
                    disk.getOSSCSILink().c_str(), textOf(question));
    }
    return {};
}

}  // namespace tav
