#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "base/Answer.h"
#include "base/Export.h"

/// Names that the mirror that made this keeps for as long as its elements: nobody else can make
/// one, so that no element can look at a text that its caller lets go.
class SysFsKeptNames {
    friend class SysFs;
    friend class SysFsElement;
    SysFsKeptNames(std::string_view directory, std::string_view name)
        : directory_(directory), name_(name) {}
    std::string_view directory_;
    std::string_view name_;
};

/// One entry of a mirrored sysfs tree, and something that is neither file, link nor directory.
///
/// An element is used by one thread at a time.
class TAV_API SysFsElement {
 public:
    /// `directory` is the path of the directory that the entry is in.
    SysFsElement(std::string directory, std::string name);
    /// One whose names a mirror keeps.
    explicit SysFsElement(SysFsKeptNames names)
        : directory_(names.directory_), name_(names.name_) {}
    SysFsElement(const SysFsElement&) = delete;
    SysFsElement& operator=(const SysFsElement&) = delete;
    virtual ~SysFsElement() = default;

    virtual std::string getName() const;
    virtual std::string getPath() const;
    /// What stands between path and value in a listing.
    virtual std::string getValueSeparator() const;
    virtual std::string getValue() const;
    /// The value, read now, or why there is none; of what has no value it is absent.
    virtual tav::Answer<std::string> readValue() const;

    /// Reads the stat data of the entry itself, not of what a link points to. False, and the
    /// earlier data kept, when the entry is gone.
    bool loadStatData();
    /// Null before the first successful loadStatData().
    const struct stat* getStat() const;
    /// The permissions as "rwxr-xr-x"; empty before the first successful loadStatData().
    std::string getPermissions() const;

    std::string_view name() const noexcept { return name_; }
    std::string_view directory() const noexcept { return directory_; }

 private:
    /// What only few elements have.
    struct Own {
        std::string directory;
        std::string name;
        std::optional<struct stat> stat;
    };

    std::unique_ptr<Own> own_;
    std::string_view directory_;
    std::string_view name_;
};

/// A regular file. Its value is read whenever it is asked for: at most 4,096 bytes, as one line.
class TAV_API SysFsAttrib final : public SysFsElement {
 public:
    using SysFsElement::SysFsElement;
    std::string getValueSeparator() const override;
    std::string getValue() const override;
    tav::Answer<std::string> readValue() const override;

 private:
    tav::Answer<std::string> readData() const;
};

/// A symbolic link. Its value is the link's target as it is now; empty when the link is gone.
class TAV_API SysFsLink final : public SysFsElement {
 public:
    using SysFsElement::SysFsElement;
    std::string getValueSeparator() const override;
    std::string getValue() const override;
    tav::Answer<std::string> readValue() const override;
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
