#pragma once

#include <ctime>
#include <string>

#include <json/value.h>

/// What the service keeps for others to read (rmc/StateFiles.h), read by this client, which trusts
/// none of it.
namespace tav::ctl {

struct StateFile {
    Json::Value json;  ///< an object; null when there is none
    int error = 0;     ///< why, as errno tells it; EBADMSG for what is no JSON object
};
StateFile readStateFile(const char* path);

/// Members of another kind than is asked for are absent.
std::string textIn(const Json::Value& json, const char* member);
std::time_t timeIn(const Json::Value& json, const char* member);
const Json::Value& memberIn(const Json::Value& json, const char* member);

/// Whether the service lives: the one that has written its health, or another one that could not
/// write any.
enum class Life { Unknown, Runs, Stopped, Died };
Life lifeOf(const Json::Value& health);

/// Why the health tells nothing of the service that runs, or no more: an earlier one has written
/// it, or this one cannot write any more. Empty when it tells how it is, or none runs.
std::string whyOutdated(const Json::Value& health);
/// Whether an earlier service has written it than the one that runs.
bool isOfAnEarlierService(const Json::Value& health);

/// "2026-11-24 08:20:13", of the local time.
std::string timeText(std::time_t moment);

}  // namespace tav::ctl
