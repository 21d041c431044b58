#pragma once

#include <json/value.h>

#include "base/Export.h"
#include "core/tavResourceStatus.h"

/// Base of the storage inventory records.
///
/// The records are plain values: copied freely, without pointers to each other and without locks
/// (their owners lock). Texts hold whatever bytes a device answered. Every record derives virtually
/// from this class, so that one that is built from several parts has one base.
class TAV_API tavInventoryBase {
 public:
    /// The record as JSON: the variable data of its events.
    virtual Json::Value getVariableData() const = 0;

    tavInventoryBase() = default;
    tavInventoryBase(const tavInventoryBase&) = default;
    tavInventoryBase& operator=(const tavInventoryBase&) = default;
    virtual ~tavInventoryBase() = default;
};

/// The condition a resource is in, and the one that its last event reported.
class TAV_API tavStatusInfo : public virtual tavInventoryBase {
 public:
    /// {"State", "Health"} as display strings.
    Json::Value getVariableData() const override;

    virtual TAV_RESOURCE_STATE getState() const { return state_; }
    virtual void setState(TAV_RESOURCE_STATE state) { state_ = state; }
    virtual TAV_RESOURCE_HEALTH getHealth() const { return health_; }
    virtual void setHealth(TAV_RESOURCE_HEALTH health) { health_ = health; }
    virtual TAV_RESOURCE_STATE getEventState() const { return eventState_; }
    virtual void setEventState(TAV_RESOURCE_STATE state) { eventState_ = state; }
    virtual TAV_RESOURCE_HEALTH getEventHealth() const { return eventHealth_; }
    virtual void setEventHealth(TAV_RESOURCE_HEALTH health) { eventHealth_ = health; }

 private:
    TAV_RESOURCE_STATE state_ = TAV_STATE_UNKNOWN;
    TAV_RESOURCE_HEALTH health_ = TAV_HEALTH_UNKNOWN;
    TAV_RESOURCE_STATE eventState_ = TAV_STATE_UNKNOWN;
    TAV_RESOURCE_HEALTH eventHealth_ = TAV_HEALTH_UNKNOWN;
};
