#pragma once

#include <cstdint>

#include "base/Export.h"
#include "storage/raid/storelib_records.h"

namespace tav::storelib {

using EntryPoint = std::uint32_t (*)(_SL_LIB_CMD_PARAM_T* command);

/// The vendor library's file. Not locked: belongs to whoever loads it.
class TAV_API LibraryFile {
 public:
    LibraryFile() = default;
    LibraryFile(const LibraryFile&) = delete;
    LibraryFile& operator=(const LibraryFile&) = delete;
    ~LibraryFile() { close(); }

    /// Opens the library where the loader looks for it. Null, and a line in the log that says why,
    /// when it is not there or not what it is named after.
    EntryPoint open();
    bool isOpen() const noexcept { return handle_ != nullptr; }
    /// Nothing of the library may be in use.
    void close() noexcept;

 private:
    void* handle_ = nullptr;
};

}  // namespace tav::storelib
