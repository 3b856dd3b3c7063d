#pragma once

#include <cstdint>

#include "host/Ref.h"
#include "host/String.h"

namespace host {

// A file or folder named by its path, which need not exist. The path is made absolute when the
// item is made, so it keeps naming the same file if the working directory changes.
class FolderItem {
public:
    explicit FolderItem(const String& path);

    bool Exists() const;
    bool Directory() const;
    // The last component of the path.
    String Name() const;
    // The full path.
    const String& ShellPath() const { return path_; }
    // Nil for the root.
    Ref<FolderItem> Parent() const;
    Ref<FolderItem> Child(const String& name) const;
    // Removes the file, or the folder if it is empty; false when that fails.
    bool Delete() const;

    // A text that GetFolderItem turns back into this item, also in a later run: the full path.
    const String& GetSaveInfo() const { return path_; }

    // Swaps, in one atomic step, what this path and other's refer to. Both must exist on one
    // volume, and neither may be a folder: a database file is never exchanged with one.
    // 0 on success, otherwise an errno value.
    std::int64_t ExchangeWith(const FolderItem& other) const;

private:
    String path_;
};

// The item that a save information names; nil for a text that can name no path.
Ref<FolderItem> GetFolderItem(const String& saveInfo);

}  // namespace host
