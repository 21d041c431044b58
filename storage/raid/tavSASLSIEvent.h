#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "base/Export.h"
#include "storage/raid/sas_event_detail.h"
#include "storage/raid/storelib_records.h"
#include "storage/tavRemoveLockEx.h"

/// What the vendor library calls, on a thread of its own, for every event that was registered for.
/// Translates it, brings the library cache up to date and hands the result to the registered
/// handler. Events are handled one after the other, in the order of their calls. Nothing is thrown.
TAV_API void AENCallBack(_SL_EVENT_DETAIL_T* notification);

/// Registers with the vendor library for the events of all its controllers.
///
/// Statuses are the library's: 0 for success. Any thread may call, except that nothing here may be
/// called from within a handler. Locks: registrationLock_ serialises registration and is held while
/// the library is called; no callback takes it (docs/architecture.md).
class TAV_API tavSASLSIEvent {
 public:
    using Handler = void (*)(TAV_SAS_EVENT_DETAIL* event);

    static tavSASLSIEvent* getInstance();

    /// Lets `handler` have the events of all controllers whose newest event can be told; a
    /// registration for others is replaced. 1 when the library is usable, whether or not that
    /// succeeded (isRegistered() tells), 0 otherwise.
    int RegisterForAEN(Handler handler);

    /// Waits for the callbacks that run and ends the registration, for some two seconds in all. No
    /// handler is called afterwards, also when the library refuses or does not answer.
    std::uint32_t UnregisterForAEN();

    /// Whether the events of some controllers come.
    bool isRegistered() const noexcept { return registered_; }
    /// Whether those of that controller do. An empty serial number is not known.
    bool isRegistered(std::uint32_t controllerId, const std::string& serial) const;

    /// Newest and oldest event of a controller.
    std::uint32_t IssueEventSequenceInfo(_MR_EVT_LOG_INFO* record, std::uint32_t controllerId);
    std::uint32_t RegisterAENCall(_SL_REG_AEN_INPUT_T* input, _SL_REG_AEN_OUTPUT_T* output);

    static std::atomic<Handler> _tavSASFunc;
    static tavRemoveLockEx& epRemoveLock;

 private:
    struct EventSource {
        std::uint32_t id;
        std::string serial;  ///< empty where it is not known
        bool operator==(const EventSource&) const = default;
    };
    struct Selection {
        _SL_REG_AEN_INPUT_T record{};
        std::vector<EventSource> controllers{};  ///< those of the record
    };

    void renewRegistration();
    Selection selectControllers();
    void registerControllers(Selection selection);
    std::uint32_t unregister();
    std::vector<EventSource> registeredControllers() const;
    void setRegistered(std::vector<EventSource> controllers);

    std::mutex registrationLock_;
    std::atomic<bool> registered_{false};
    // The library may go on reading the one and knows the registration by the other.
    _SL_REG_AEN_INPUT_T input_{};
    _SL_REG_AEN_OUTPUT_T output_{};

    mutable std::mutex controllersLock_;    ///< nothing is called under it
    std::vector<EventSource> controllers_;  ///< whose events come
};
