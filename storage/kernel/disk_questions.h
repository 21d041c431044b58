#pragma once

#include <string>

#include "storage/model/tavDiskInfo.h"

/// What a disk's answers and refusals say, whatever it speaks. The disk's memory is brought up to
/// date. Any thread.
namespace tav {

/// What a disk is asked about its condition, as a set of bits.
enum DiskQuestion : unsigned {
    wearQuestion = 1,
    temperatureQuestion = 2,
    errorsQuestion = 4,
    healthLogQuestion = 8,
};

void noteAnswered(DiskQuestion question, tavDiskInfo& disk);

/// A question that the disk has refused as one that it does not know. That is no fault, and said
/// once, unless the disk has answered it before: then the reason of the failure is returned.
std::string noteRefused(DiskQuestion question, tavDiskInfo& disk);

}  // namespace tav
