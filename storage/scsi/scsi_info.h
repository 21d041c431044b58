#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include <scsi/sg.h>

#include "base/Export.h"

/// Questions to one disk: as SCSI commands through an open SCSI generic node (/dev/sgN), or to the
/// kernel's SCSI device class in sysfs.
///
/// All may be called on any thread; none keeps state, takes a lock (but the logger's), throws, or
/// closes or reopens the caller's descriptor. The kernel gives a disk 60 seconds for a command, and
/// may then try for minutes, or for ever, to bring it back. What goes wrong is logged at debug
/// level.
///
/// Unless it says otherwise, a function that sends a command returns a value of 0 or more, or
///   -1  the answer is not the page asked for, or marks the value as not valid
///   -2  the request itself failed
///   -3  the command completed with a check condition
///   -4  fewer bytes came back than it takes
/// and one that returns a buffer returns null in place of these. Every buffer, text or bytes, is a
/// new one that the caller frees with free(): see tav::OwnedText and tav::OwnedBytes. A text ends
/// with NUL and holds whatever bytes the disk sent, blanks included; only where it says "trimmed"
/// are leading blanks and trailing blanks and NULs gone. Pointers must not be null.

/// Checks what a completed SG_IO request left in its header, and sets `*received` to the number of
/// bytes that came (never more than were asked for). With a check condition it logs the sense bytes
/// under `name`, sets `*received` to 0 and returns -3; otherwise it returns 0.
TAV_API int process_scsi_completion(const sg_io_hdr& header, std::size_t* received,
                                    const char* name);

// --- SAS disks: log pages of SPC-4 ------------------------------------------------------------

/// Most recent temperature in degrees Celsius (Informational Exceptions log page, 2Fh).
TAV_API int get_unit_temp(int fd);
/// Failure prediction: additional sense code x 256 + its qualifier (Informational Exceptions log
/// page, 2Fh); 0 when no failure is predicted.
TAV_API int get_sas_health(int fd);
/// The Temperature log page (0Dh): as many bytes as its page length says, and 4. For the parsers.
TAV_API unsigned char* get_sas_temp(int fd);
/// Current temperature in degrees Celsius of a page from get_sas_temp(); 255 when the disk cannot
/// tell, 0 when the page has no such parameter.
TAV_API int sas_parse_current(const unsigned char* page);
/// Reference temperature, which is the highest one that the disk may run at; otherwise the same.
TAV_API int sas_parse_mcot(const unsigned char* page);
/// Percentage used endurance indicator, 0 to 254 (Solid State Media log page, 11h); 255 when the
/// answer is not that page, -2 to -4 when the command fails.
TAV_API int get_sas_ssd_wear(int fd);
/// Hours that the disk has been powered on (Background Scan log page, 15h).
TAV_API std::int64_t get_sas_pwron(int fd);

// --- SATA disks: ATA commands in ATA PASS-THROUGH (16) of SAT -----------------------------------

/// One page of the Device Statistics log (04h, ACS): the bytes that came, and their number in
/// `*length`, which is left alone on failure.
TAV_API unsigned char* get_sata_log(int fd, std::uint8_t page, std::size_t* length);
/// The same for page 1 (General Statistics), 5 (Temperature Statistics) and 7 (Solid State Device
/// Statistics).
TAV_API unsigned char* get_sata_statlog(int fd, std::size_t* length);
TAV_API unsigned char* get_sata_temp(int fd, std::size_t* length);
TAV_API unsigned char* get_sata_ssdlog(int fd, std::size_t* length);
/// Current temperature in degrees Celsius, which may be below 0, of a page from get_sata_temp().
/// False, and `*temperature` left alone, when the page has no valid one.
TAV_API bool sata_parse_current(const unsigned char* page, std::size_t length, int* temperature);
/// The same for the specified maximum operating temperature.
TAV_API bool sata_parse_mcot(const unsigned char* page, std::size_t length, int* temperature);
/// Percentage used endurance indicator, 0 to 254; 255 when there is none.
TAV_API int get_sata_ssd_wear(int fd);
/// Hours that the disk has been powered on; -1 when unavailable.
TAV_API std::int64_t get_sata_pwron(int fd);
/// Number of errors that the disk has logged (log address 03h of the SMART error logs).
TAV_API int get_sata_health(int fd);
/// IDENTIFY DEVICE data (ACS) into `buffer`, which holds `*length` bytes: 512. The buffer is zeroed
/// first; `*length` receives the number of bytes that came, 0 on failure. Returns 0 on success.
TAV_API int get_ata_identify_device_info(int fd, unsigned char* buffer, std::size_t* length);
/// Firmware revision, trimmed, from the IDENTIFY DEVICE data.
TAV_API char* get_sata_DiskRev(int fd);
/// The 512 bytes of the SMART log that holds the SCT status.
TAV_API unsigned char* get_sata_sct_stat(int fd);

// --- Any disk -----------------------------------------------------------------------------------

/// Protocol identifier (SPC-4): 6 is SAS, 8 is ATA. From the Protocol Specific Port mode page.
TAV_API int get_scsi_transport_protocol(int fd);
/// Medium rotation rate in revolutions a minute (SBC-3, VPD page B1h): 0 not reported, 1 none: it
/// does not rotate.
TAV_API int get_scsi_disk_medium_rotation_rate(int fd);
/// Whether the medium does not rotate (1) or does (0), from the same page.
TAV_API int is_unit_ssd(int fd);
/// Medium rotation rate from the Rigid Disk Geometry mode page (04h, SBC), in revolutions a minute.
TAV_API int get_unit_speed(int fd);
/// Whether the disk reports informational exceptions (1) or has them switched off (0): from the
/// Informational Exceptions Control mode page (1Ch, SPC-4).
TAV_API int is_unit_smart(int fd);
/// Number of logical blocks (SBC-3, READ CAPACITY).
TAV_API std::int64_t get_disk_capacity(int fd);
/// Bytes that the descriptors of the primary and the grown defect list take (SBC-3, READ DEFECT
/// DATA (10)), 0 to 65,535.
TAV_API int get_defect_data_size(int fd);

/// Standard INQUIRY data (SPC-4), for the parsers, and the number of bytes that came in `*length`,
/// which is left alone on failure.
TAV_API unsigned char* get_identify_info(int fd, std::size_t* length);
/// Vendor identification (8 characters), product identification (16) and product revision (4) of
/// `length` bytes of standard INQUIRY data, trimmed, and the peripheral device type as a decimal
/// number. Null when the data ends before the field does.
TAV_API char* inq_parse_vendor(const unsigned char* inquiry, std::size_t length);
TAV_API char* inq_parse_prodID(const unsigned char* inquiry, std::size_t length);
TAV_API char* inq_parse_rev(const unsigned char* inquiry, std::size_t length);
TAV_API char* inq_parse_type(const unsigned char* inquiry, std::size_t length);
/// Serial number: the 20 characters from byte 36 on of the standard INQUIRY data.
TAV_API char* get_unit_sn_from_device_inquiry(int fd);
/// Serial number: the Unit Serial Number VPD page (80h).
TAV_API char* get_unit_sn_from_device_vpd_pg80(int fd);

// --- sysfs --------------------------------------------------------------------------------------

/// `link` is the disk's SCSI address as the entry H:C:T:L of /sys/class/scsi_device. Each reads the
/// text of one attribute of the device; null when it is absent or empty.
TAV_API char* get_DiskModel(const char* link);
TAV_API char* get_sas_DiskRev(const char* link);
TAV_API char* get_DiskVendor(const char* link);
TAV_API char* get_DiskState(const char* link);
TAV_API char* get_DiskType(const char* link);
/// Whether the peripheral device type is 0: a direct access block device.
TAV_API bool is_direct_access_block_device(const char* link);
/// Name of the SCSI generic node ("sg3"); null when there is none.
TAV_API char* get_ScsiGeneric(const char* link);
/// The disk's block device: its name ("sda") and its size in sectors of 512 bytes; empty and 0 when
/// there is none.
struct tavBlockDevice {
    std::string name;
    std::uint64_t sectors = 0;
};
TAV_API tavBlockDevice get_BlockDevice(const char* link);
/// The same size alone.
TAV_API std::uint64_t get_BlockSize(const char* link);
/// Serial number from the kernel's copy of VPD page 80h or of the standard INQUIRY data.
TAV_API char* get_unit_sn_from_sysfs_vpd_pg80(const char* link);
TAV_API char* get_unit_sn_from_sysfs_inquiry(const char* link);
/// The world wide name of block device `block` ("sda"), two hexadecimal digits a byte: of the
/// logical unit's binary designators in VPD page 83h (SPC-4) the first NAA one, or else the first
/// EUI-64 one, or else the first of another type. Null when there is none.
TAV_API char* get_durableName_from_block_vpd_pg83(const char* block);

// --- SAS host bus adapters: requests of the Common Storage Management Interface -----------------

/// Size of the buffer that each request returns. The request's header is in its first 20 bytes, the
/// data behind it.
inline constexpr std::size_t csmiBufferSize = 16384;

/// Each opens the device node `device` read-only for one request to controller number `controller`
/// behind it. Null when the node cannot be opened, and when the request fails or says so in its
/// header. `sasAddress` is the 8 bytes of a SAS address as 16 hexadecimal digits; null when it is
/// none.
TAV_API unsigned char* SasGetHbaConfig(const char* device, std::uint32_t controller);
TAV_API unsigned char* SasGetScsiAddress(const char* device, std::uint32_t controller,
                                         const char* sasAddress);
TAV_API unsigned char* SasGetHbaConnector(const char* device, std::uint32_t controller);
TAV_API unsigned char* SasGetLocation(const char* device, std::uint32_t controller);
