#pragma once

#include <cstddef>
#include <cstdint>

/// The records of the vendor's storage-management library, as far as they are read or written here;
/// bytes without a name are the library's own. All integers are little-endian, which the host is
/// too. The layouts are those of a 32-bit process; pointers take the process's own width, and the
/// last field of a record is the only pointer that changes its size.

struct __attribute__((packed)) _SL_LIB_CMD_PARAM_T {
    std::uint8_t commandType;  ///< it and the code: see storelib_commands.cpp
    std::uint8_t commandCode;
    std::uint8_t commandQualifier;
    std::uint8_t reserved3;
    std::uint32_t controllerId;
    std::uint16_t deviceId;  ///< of a physical drive
    std::uint8_t targetId;   ///< of a logical drive
    std::uint8_t reserved11[5];
    union __attribute__((packed)) {
        std::uint32_t argument;
        void* argumentPointer;
        std::uint8_t reserved16[12];
    };
    std::uint32_t dataSize;  ///< bytes at `data`
    void* data;
};
static_assert(offsetof(_SL_LIB_CMD_PARAM_T, controllerId) == 4);
static_assert(offsetof(_SL_LIB_CMD_PARAM_T, deviceId) == 8);
static_assert(offsetof(_SL_LIB_CMD_PARAM_T, targetId) == 10);
static_assert(offsetof(_SL_LIB_CMD_PARAM_T, argument) == 16);
static_assert(offsetof(_SL_LIB_CMD_PARAM_T, dataSize) == 28);
static_assert(offsetof(_SL_LIB_CMD_PARAM_T, data) == 32);
static_assert(sizeof(_SL_LIB_CMD_PARAM_T) == 32 + sizeof(void*));

/// Frame of a command that is passed through to the firmware.
struct __attribute__((packed)) SL_DCMD_FRAME_T {
    std::uint32_t outputSize;
    std::uint32_t opcode;
    std::uint8_t reserved8[4];
    std::uint8_t direction;  ///< 2: from the controller to the host
    std::uint8_t reserved13[3];
    std::uint8_t mailbox;
    std::uint8_t reserved17[11];
    void* output;
};
static_assert(offsetof(SL_DCMD_FRAME_T, direction) == 12);
static_assert(offsetof(SL_DCMD_FRAME_T, mailbox) == 16);
static_assert(offsetof(SL_DCMD_FRAME_T, output) == 28);
static_assert(sizeof(SL_DCMD_FRAME_T) == 28 + sizeof(void*));

struct __attribute__((packed)) SL_CTRL_LIST_T {
    std::uint16_t count;
    std::uint8_t isSimulation;  ///< 1: the library runs without hardware
    std::uint8_t reserved3;
    std::uint32_t controllerIds[64];  ///< the top byte is 0 for a MegaRAID controller
};
static_assert(offsetof(SL_CTRL_LIST_T, controllerIds) == 4);
static_assert(sizeof(SL_CTRL_LIST_T) == 260);

struct __attribute__((packed)) SL_REG_AEN_CONTROLLER_T {
    std::uint32_t controllerId;
    std::uint16_t locale;
    std::uint8_t reserved6;
    std::int8_t eventClass;  ///< the lowest one to be told
    std::uint32_t sequenceNumber;
};
static_assert(sizeof(SL_REG_AEN_CONTROLLER_T) == 12);

struct _SL_EVENT_DETAIL_T;

struct __attribute__((packed)) _SL_REG_AEN_INPUT_T {
    std::uint32_t controllerCount;
    SL_REG_AEN_CONTROLLER_T controllers[64];
    void (*callback)(_SL_EVENT_DETAIL_T* event);
};
static_assert(offsetof(_SL_REG_AEN_INPUT_T, controllers) == 4);
static_assert(offsetof(_SL_REG_AEN_INPUT_T, callback) == 772);
static_assert(sizeof(_SL_REG_AEN_INPUT_T) == 772 + sizeof(void*));

struct __attribute__((packed)) _SL_REG_AEN_OUTPUT_T {
    std::uint8_t reserved0[260];
    std::uint32_t uniqueId;  ///< of the registration
};
static_assert(sizeof(_SL_REG_AEN_OUTPUT_T) == 264);

/// A notification; tav::decodeRaidEvent() knows its layout.
struct __attribute__((packed)) _SL_EVENT_DETAIL_T {
    std::uint32_t controllerId;
    std::uint8_t record[256];
};
static_assert(sizeof(_SL_EVENT_DETAIL_T) == 260);

struct __attribute__((packed)) _MR_EVT_LOG_INFO {
    std::uint32_t newestSequence;
    std::uint32_t oldestSequence;
    std::uint8_t reserved8[12];
};
static_assert(sizeof(_MR_EVT_LOG_INFO) == 20);

struct __attribute__((packed)) _MR_CTRL_INFO {
    std::uint16_t vendorId, pciDeviceId, subVendorId, subDeviceId;
    std::uint8_t reserved8[1592];
    char packageVersion[96];  ///< NUL-terminated
    std::uint8_t reserved1696[688];
};
static_assert(offsetof(_MR_CTRL_INFO, packageVersion) == 1600);
static_assert(sizeof(_MR_CTRL_INFO) == 2384);

struct __attribute__((packed)) SL_PCI_INFO_T {
    std::uint32_t bus;
    std::uint8_t device;
    std::uint8_t function;
    std::uint8_t reserved6[74];
    std::uint32_t domain;
    std::uint8_t reserved84[28];
};
static_assert(offsetof(SL_PCI_INFO_T, domain) == 80);
static_assert(sizeof(SL_PCI_INFO_T) == 112);

struct __attribute__((packed)) _MR_MFC_MFG {
    std::uint8_t reserved0[2];
    char serialNumber[30];  ///< NUL-terminated
};
static_assert(sizeof(_MR_MFC_MFG) == 32);

struct __attribute__((packed)) _MR_PD_LIST {
    std::uint8_t reserved0[4];
    std::uint32_t count;
    struct __attribute__((packed)) {
        std::uint16_t deviceId;
        std::uint8_t reserved2[22];
    } entries[256];
};
static_assert(offsetof(_MR_PD_LIST, entries) == 8);
static_assert(sizeof(_MR_PD_LIST) == 6152);

struct __attribute__((packed)) _MR_PD_INFO {
    std::uint8_t reserved0[20];
    char productId[16];  ///< the fields of standard INQUIRY data (SPC-4), which begins at 4
    char revision[4];
    char vendorSpecific[32];  ///< the serial number
    std::uint8_t reserved72[93];
    std::uint8_t scsiDeviceType;  ///< 0: a disk
    std::uint8_t reserved166[18];
    std::uint16_t firmwareState;
    std::uint8_t reserved186[3];
    std::uint8_t interfaceType;  ///< in the upper four bits
    std::uint8_t reserved190[42];
    std::uint64_t rawSize;  ///< in blocks
    std::uint8_t reserved240[19];
    std::uint8_t slotNumber;
    std::uint8_t reserved260[110];
    std::uint8_t mediaType;  ///< 0: rotating
    std::uint8_t reserved371[33];
    std::uint16_t userDataBlockSize;  ///< bytes
    std::uint8_t reserved406[106];
};
static_assert(offsetof(_MR_PD_INFO, revision) == 36);
static_assert(offsetof(_MR_PD_INFO, vendorSpecific) == 40);
static_assert(offsetof(_MR_PD_INFO, scsiDeviceType) == 165);
static_assert(offsetof(_MR_PD_INFO, firmwareState) == 184);
static_assert(offsetof(_MR_PD_INFO, interfaceType) == 189);
static_assert(offsetof(_MR_PD_INFO, rawSize) == 232);
static_assert(offsetof(_MR_PD_INFO, slotNumber) == 259);
static_assert(offsetof(_MR_PD_INFO, mediaType) == 370);
static_assert(offsetof(_MR_PD_INFO, userDataBlockSize) == 404);
static_assert(sizeof(_MR_PD_INFO) == 512);

struct __attribute__((packed)) _MR_LD_LIST {
    std::uint32_t count;
    std::uint8_t reserved4[4];
    struct __attribute__((packed)) {
        std::uint8_t targetId;
        std::uint8_t reserved1[15];
    } entries[256];
};
static_assert(offsetof(_MR_LD_LIST, entries) == 8);
static_assert(sizeof(_MR_LD_LIST) == 4104);

struct __attribute__((packed)) _MR_LD_INFO {
    std::uint8_t targetId;
    std::uint8_t reserved1[31];
    std::uint8_t primaryRaidLevel;
    std::uint8_t raidLevelQualifier;
    std::uint8_t secondaryRaidLevel;
    std::uint8_t reserved35[2];
    std::uint8_t spanDepth;
    std::uint8_t state;
    std::uint8_t reserved39[217];
    std::uint64_t size;  ///< in blocks
    std::uint8_t reserved264[48];
    std::uint8_t identifier[16];
    std::uint8_t reserved328[56];
};
static_assert(offsetof(_MR_LD_INFO, primaryRaidLevel) == 32);
static_assert(offsetof(_MR_LD_INFO, spanDepth) == 37);
static_assert(offsetof(_MR_LD_INFO, state) == 38);
static_assert(offsetof(_MR_LD_INFO, size) == 256);
static_assert(offsetof(_MR_LD_INFO, identifier) == 312);
static_assert(sizeof(_MR_LD_INFO) == 384);

/// The drives of one volume.
struct __attribute__((packed)) SL_PD_IN_LD_LIST_T {
    std::uint32_t count;
    std::uint16_t deviceIds[256];
};
static_assert(offsetof(SL_PD_IN_LD_LIST_T, deviceIds) == 4);
static_assert(sizeof(SL_PD_IN_LD_LIST_T) == 516);

struct __attribute__((packed)) _MR_ENCL_LIST {
    std::uint8_t reserved0[4616];
};
static_assert(sizeof(_MR_ENCL_LIST) == 4616);
