#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "base/Export.h"

/// One entry of a mirrored sysfs tree, and something that is neither file, link nor directory.
///
/// An element keeps views of its names, not the names: whoever creates it (the mirror) keeps the
/// text alive. It is used by one thread at a time.
class TAV_API SysFsElement {
 public:
    /// `directory` is the path of the directory that the entry is in.
    SysFsElement(std::string_view directory, std::string_view name)
        : directory_(directory), name_(name) {}
    SysFsElement(const SysFsElement&) = delete;
    SysFsElement& operator=(const SysFsElement&) = delete;
    virtual ~SysFsElement() = default;

    virtual std::string getName() const;
    virtual std::string getPath() const;
    /// What stands between path and value in a listing.
    virtual std::string getValueSeparator() const;
    virtual std::string getValue() const;

    /// Reads the stat data of the entry itself, not of what a link points to. False, and the
    /// earlier data kept, when the entry is gone.
    bool loadStatData();
    /// Null before the first successful loadStatData().
    const struct stat* getStat() const { return stat_.get(); }
    /// The permissions as "rwxr-xr-x"; empty before the first successful loadStatData().
    std::string getPermissions() const;

    std::string_view name() const noexcept { return name_; }
    std::string_view directory() const noexcept { return directory_; }
    /// Whether getPath() is `path`.
    bool isAt(std::string_view path) const noexcept;

 private:
    std::string_view directory_;
    std::string_view name_;
    std::unique_ptr<struct stat> stat_;
};

/// A regular file. Its value is read whenever it is asked for: at most 4,096 bytes, as one line.
class TAV_API SysFsAttrib final : public SysFsElement {
 public:
    using SysFsElement::SysFsElement;
    std::string getValueSeparator() const override;
    std::string getValue() const override;

 private:
    std::string readData() const;
};

/// A symbolic link. Its value is the link's target as it is now; empty when the link is gone.
class TAV_API SysFsLink final : public SysFsElement {
 public:
    using SysFsElement::SysFsElement;
    std::string getValueSeparator() const override;
    std::string getValue() const override;
};

/// A directory; it has no value.
class TAV_API SysFsDirectory final : public SysFsElement {
 public:
    using SysFsElement::SysFsElement;
};

namespace tav {

/// The text of an attribute as one line: up to the first NUL, every run of blanks and line breaks a
/// single blank, none at the ends.
TAV_API std::string _makePretty(std::string_view text);

}  // namespace tav
