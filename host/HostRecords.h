#pragma once

#include <string>
#include <utility>
#include <vector>

#include <json/value.h>

#include "base/Export.h"

/// Memory of the host, in GiB.
class tavHostMemorySummary {
 public:
    double getTotalSystemMemGiB() const { return totalGiB_; }
    void setTotalSystemMemGiB(double total) { totalGiB_ = total; }
    double getTotalFreeSystemMemoryGiB() const { return freeGiB_; }
    void setTotalFreeSystemMemGiB(double free) { freeGiB_ = free; }

 private:
    double totalGiB_ = 0;
    double freeGiB_ = 0;
};

/// Dotted addresses, in the order of the host's interface list.
class tavHostIPv4Addresses {
 public:
    const std::vector<std::string>& getIPv4Address() const { return addresses_; }
    void setIPv4Address(std::vector<std::string> addresses) { addresses_ = std::move(addresses); }

 private:
    std::vector<std::string> addresses_;
};

/// When and how often the inventory is collected.
class tavCollectionInfo {
 public:
    const std::string& getCollectionType() const { return type_; }
    void setCollectionType(std::string type) { type_ = std::move(type); }
    int getCollectionFrequencyMin() const { return frequencyMin_; }
    void setCollectionFrequencyMin(int minutes) { frequencyMin_ = minutes; }
    const std::string& getLastCollection() const { return last_; }
    void setLastCollection(std::string last) { last_ = std::move(last); }

 private:
    std::string type_;
    int frequencyMin_ = 0;
    std::string last_;
};

/// The host and its operating system. Nothing of the crash kernel, the software list and the
/// collector's own version is filled or rendered today.
class tavHostOSInfo {
 public:
    const std::string& getHostName() const { return hostName_; }
    void setHostName(std::string name) { hostName_ = std::move(name); }
    const std::string& getOSName() const { return osName_; }
    void setOSName(std::string name) { osName_ = std::move(name); }
    const std::string& getOSVersion() const { return osVersion_; }
    void setOSVersion(std::string version) { osVersion_ = std::move(version); }
    const std::string& getOSDescription() const { return osDescription_; }
    void setOSDescription(std::string text) { osDescription_ = std::move(text); }
    int getOSType() const { return osType_; }
    void setOSType(int type) { osType_ = type; }
    long getCrashKernelMemBytes() const { return crashKernelMemBytes_; }
    void setCrashKernelMemBytes(long bytes) { crashKernelMemBytes_ = bytes; }
    const std::string& getKernelCmdLine() const { return kernelCmdLine_; }
    void setKernelCmdLine(std::string text) { kernelCmdLine_ = std::move(text); }
    const std::string& getCrashKernelCmd() const { return crashKernelCmd_; }
    void setCrashKernelCmd(std::string text) { crashKernelCmd_ = std::move(text); }
    const std::string& getCrashkernelLoaded() const { return crashKernelLoaded_; }
    void setCrashkernelLoaded(std::string text) { crashKernelLoaded_ = std::move(text); }
    const std::string& getKDumpSvcsEnabled() const { return kdumpEnabled_; }
    void setKDumpSvcsEnabled(std::string text) { kdumpEnabled_ = std::move(text); }
    const std::string& getKDumpSvcsStatus() const { return kdumpStatus_; }
    void setKDumpSvcsStatus(std::string text) { kdumpStatus_ = std::move(text); }
    const std::string& getListOfSoftwaresInstalled() const { return software_; }
    void setListOfSoftwaresInstalled(std::string text) { software_ = std::move(text); }
    const std::string& getTavSwVersion() const { return tavVersion_; }
    void setTavSwVersion(std::string version) { tavVersion_ = std::move(version); }
    const tavHostMemorySummary& getOSMemorySummary() const { return memory_; }
    void setOSMemorySummary(double totalGiB, double freeGiB) {
        memory_.setTotalSystemMemGiB(totalGiB);
        memory_.setTotalFreeSystemMemGiB(freeGiB);
    }
    const tavHostIPv4Addresses& getIPv4Addresses() const { return addresses_; }
    void setIPv4Addresses(std::vector<std::string> addresses) {
        addresses_.setIPv4Address(std::move(addresses));
    }

 private:
    std::string hostName_;
    std::string osName_;
    std::string osVersion_;
    std::string osDescription_;
    int osType_ = 0;
    long crashKernelMemBytes_ = 0;
    std::string kernelCmdLine_;
    std::string crashKernelCmd_;
    std::string crashKernelLoaded_;
    std::string kdumpEnabled_;
    std::string kdumpStatus_;
    std::string software_;
    std::string tavVersion_;
    tavHostMemorySummary memory_;
    tavHostIPv4Addresses addresses_;
};

namespace tav {

/// The inventory record: "HostOSInfo" and "CollectionInfo".
TAV_API Json::Value renderHostInventory(const tavHostOSInfo& host,
                                        const tavCollectionInfo& collection);

}  // namespace tav
