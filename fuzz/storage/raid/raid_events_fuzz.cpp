#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "storage/raid/raid_event_record.h"
#include "storage/raid/raid_event_rules.h"

namespace {

TAV_SAS_EVENT_DETAIL translate(const tav::RaidEventRecord& record) {
    TAV_SAS_EVENT_DETAIL event;
    event.eventCode = record.code;
    event.eventClass = static_cast<std::uint32_t>(record.eventClass + 2);
    event.locale = tav::raidLocaleText(record.locale, record.code);
    if (const auto drive = tav::raidDriveOf(record)) event.driveSlot = drive->slot;
    if (const auto volume = tav::raidVolumeOf(record)) event.volumeTargetId = *volume;
    if (const auto state = tav::raidNewDriveStateOf(record)) event.newDriveState = *state;
    event.description = record.text;
    return event;
}

/// Nothing is raised of what is not known, nor without being remembered as reported.
void check(const tav::RaidEventRule* rule, const tav::ReportedHealth& reported) {
    if (rule == nullptr || rule->raises == 0) return;
    if (!reported || !rule->health || rule->health == reported) std::abort();
}

}  // namespace

/// Whatever the library hands over as a notification is decoded and judged.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto record = tav::decodeRaidEvent(std::as_bytes(std::span(data, size)));
    if (!record) return size < tav::raidEventSize ? 0 : (std::abort(), 0);
    if (record->text.size() > 128) std::abort();
    const TAV_SAS_EVENT_DETAIL event = translate(*record);
    for (int health = -1; health < 4; ++health) {
        tav::ReportedHealth reported;
        if (health >= 0) reported = static_cast<TAV_RESOURCE_HEALTH>(health);
        check(tav::volumeEventRule(event, reported), reported);
        check(tav::driveEventRule(event, reported), reported);
        if (reported) check(tav::controllerEventRule(event, *reported), reported);
    }
    return 0;
}
