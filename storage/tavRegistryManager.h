#pragma once

#include <algorithm>
#include <vector>

/// One process-wide list of things that announce themselves while the library is loaded: a static
/// object of this class in the source file of whatever is to be found. The list is filled before
/// any thread runs and only read afterwards, so it has no lock.
template <typename T>
class tavRegistryManager {
 public:
    /// Appends the entry unless it is in the list already.
    explicit tavRegistryManager(T entry) {
        std::vector<T>& list = entries();
        if (std::find(list.begin(), list.end(), entry) == list.end()) list.push_back(entry);
    }

    /// In the order of their registration.
    static const std::vector<T>& getEntries() { return entries(); }

 private:
    // Created on first use: the order in which static objects of different files are made is open.
    static std::vector<T>& entries() {
        static std::vector<T> list;
        return list;
    }
};
