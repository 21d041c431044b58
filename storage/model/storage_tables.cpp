#include "storage/model/storage_tables.h"

#include "storage/model/tavStorageControllerFamily.h"

constinit const std::array<tavStorageHba, MAX_STORAGE_HBA_LIST> gStorageHbaList{{
    {0x28268086, 0, "", TAV_FAMILY_INTEL_SATA_RAID,
     "Intel C600/X79 series chipset SATA RAID Controller"},
    {0x005D1000, 0, "9380-8e", TAV_FAMILY_MEGARAID,
     "9361-4i LSI00415 (SGL) LP MD2 4 1 x SFF-8643 PCIe 3.0 x8 LSI SAS3108 1GB LSICVM02 "
     "Controller"},
}};

// The part number is the number under which the drive's maker sells it.
constinit const std::array<tavStorageDrive, MAX_STORAGE_DRIVE_LIST> gStorageDriveList{{
    {"ST9500620NS", "ST9500620NS", "Seagate Constellation.2 500 GB 7.2K SATA 2.5-inch"},
    {"ST91000640NS", "ST91000640NS", "Seagate Constellation.2 1 TB 7.2K SATA 2.5-inch"},
    {"ST91000640SS", "ST91000640SS", "Seagate Constellation.2 1 TB 7.2K SAS 2.5-inch"},
    {"ST1000NX0313", "ST1000NX0313", "Seagate Enterprise Capacity 1 TB 7.2K SATA 2.5-inch"},
    {"ST2000NX0253", "ST2000NX0253", "Seagate Enterprise Capacity 2 TB 7.2K SATA 2.5-inch"},
    {"ST600MM0006", "ST600MM0006", "Seagate Enterprise Performance 600 GB 10K SAS 2.5-inch"},
    {"ST900MM0006", "ST900MM0006", "Seagate Enterprise Performance 900 GB 10K SAS 2.5-inch"},
    {"ST1200MM0007", "ST1200MM0007", "Seagate Enterprise Performance 1.2 TB 10K SAS 2.5-inch"},
    {"INTEL SSDSC2BB480G4", "SSDSC2BB480G401", "Intel SSD DC S3500 480 GB SATA 2.5-inch"},
    {"INTEL SSDSC2BX480G4", "SSDSC2BX480G401", "Intel SSD DC S3610 480 GB SATA 2.5-inch"},
    {"INTEL SSDSC2BA400G3", "SSDSC2BA400G301", "Intel SSD DC S3700 400 GB SATA 2.5-inch"},
    {"INTEL SSDSC2BA400G4", "SSDSC2BA400G401", "Intel SSD DC S3710 400 GB SATA 2.5-inch"},
    {"INTEL SSDSC2KB480G7", "SSDSC2KB480G701", "Intel SSD DC S4500 480 GB SATA 2.5-inch"},
    {"INTEL SSDSC2KB480G8", "SSDSC2KB480G801", "Intel SSD D3-S4510 480 GB SATA 2.5-inch"},
    {"SAMSUNG MZ7LM480HMHQ-00005", "MZ7LM480HMHQ-00005", "Samsung PM863a 480 GB SATA 2.5-inch"},
    {"SAMSUNG MZ7KM480HMHQ-00005", "MZ7KM480HMHQ-00005", "Samsung SM863a 480 GB SATA 2.5-inch"},
    {"SAMSUNG MZ7LH480HAHQ-00005", "MZ7LH480HAHQ-00005", "Samsung PM883 480 GB SATA 2.5-inch"},
}};

constinit const std::array<tavStorageDrive, 4> gNVMeDriveList{{
    {"INTEL SSDPE2KX010T8", "SSDPE2KX010T801", "Intel SSD DC P4510 1 TB NVMe U.2"},
    {"INTEL SSDPE2KE016T7", "SSDPE2KE016T701", "Intel SSD DC P4600 1.6 TB NVMe U.2"},
    {"SAMSUNG MZQLB960HAJR-00007", "MZQLB960HAJR-00007", "Samsung PM983 960 GB NVMe U.2"},
    {"SAMSUNG MZQL2960HCJR-00A07", "MZQL2960HCJR-00A07", "Samsung PM9A3 960 GB NVMe U.2"},
}};
