#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Export.h"
#include "hwlib/sysfs/SysFsElement.h"

/// One node of the mirrored tree: an element and, in order, the nodes below it. Neither the element
/// nor the nodes are owned; a node has one parent at most.
class TAV_API SysFsTreeElement {
 public:
    explicit SysFsTreeElement(SysFsElement* element = nullptr) : element_(element) {}

    SysFsElement* getElement() const noexcept { return element_; }
    void setElement(SysFsElement* element) noexcept { element_ = element; }
    void addChildtoBack(SysFsTreeElement* child) noexcept;

    const SysFsTreeElement* firstChild() const noexcept { return firstChild_; }
    const SysFsTreeElement* nextSibling() const noexcept { return nextSibling_; }

 private:
    SysFsElement* element_;
    SysFsTreeElement* firstChild_ = nullptr;
    SysFsTreeElement* lastChild_ = nullptr;
    SysFsTreeElement* nextSibling_ = nullptr;
};

/// A mirror of one sysfs subtree: which entries there are, and of what kind. Values are not
/// mirrored: a value is read from sysfs when it is asked for, so that a caller can wait for it to
/// change. Links are not followed, except that the root itself may be one.
///
/// A mirror belongs to one thread at a time. It speaks in the words of the path that was given to
/// synchronize(), be that a link, relative or "/": paths begin with these, and are told and asked
/// for so. Repeated slashes, "." components and a slash at the end do not matter. What cannot be
/// listed, or vanishes meanwhile, is simply not there.
class TAV_API SysFs {
 public:
    SysFs();
    SysFs(const SysFs&) = delete;
    SysFs& operator=(const SysFs&) = delete;
    ~SysFs();

    /// Discards the tree and mirrors the subtree at `path`. The kernel's debug file system
    /// "/sys/kernel/debug" is never entered, by whatever name: looking at it can change what the
    /// kernel does.
    void synchronize(const std::string& path);
    void deleteAll();

    /// Null when nothing is mirrored. Stands until the next synchronize() or deleteAll().
    const SysFsTreeElement* root() const noexcept;

    /// The value of the entry at `path` as it is now; empty when it has none or is not mirrored.
    std::string getValue(const std::string& path) const;
    /// The same, or why there is none.
    tav::Answer<std::string> readValue(std::string_view path) const;
    bool existsPath(std::string_view path) const;
    /// Whether any mirrored entry has that name, or that name and now that value.
    bool exists(std::string_view name) const;
    bool exists(std::string_view name, std::string_view value) const;
    /// Whether a PCI function of that class (base class and subclass, for example 0x0104) with
    /// programming interface 0 is mirrored.
    bool existsDeviceClass(std::uint16_t deviceClass) const;
    /// The paths of all entries with that name and that value, in the order of the tree: those in a
    /// directory before those below it.
    std::vector<std::string> getPaths(std::string_view name, std::string_view value) const;
    /// Appends the entry names of the mirrored directory at `path`, in the order in which the
    /// kernel lists them. False when there is no such directory.
    bool dirList(std::string_view path, std::list<std::string>& list) const;

    /// Prints the mirrored tree, or what is mirrored at `path` and below, a line an entry, with the
    /// values, to standard output.
    void toCout() const;
    void toCout(std::string_view path) const;
    /// Prints the number of entries of each kind, and the memory that the mirror takes.
    void stats() const;

 private:
    struct Mirror;

    const SysFsTreeElement* find(std::string_view path) const;
    template <class Matches>
    const SysFsElement* findNamed(std::string_view name, Matches matches) const;

    std::unique_ptr<Mirror> mirror_;
};
