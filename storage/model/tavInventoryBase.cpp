#include "storage/model/tavInventoryBase.h"

Json::Value tavStatusInfo::getVariableData() const {
    Json::Value data(Json::objectValue);
    data["State"] = tav::displayText(getState());
    data["Health"] = tav::displayText(getHealth());
    return data;
}
