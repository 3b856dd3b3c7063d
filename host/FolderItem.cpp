#include "host/FolderItem.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

namespace host {

namespace {

bool hasStatus(const String& path, struct stat& status) {
    return ::stat(path.bytes().c_str(), &status) == 0;
}

}  // namespace

FolderItem::FolderItem(const String& path) {
    std::error_code ignored;
    std::filesystem::path absolute = std::filesystem::absolute(path.bytes(), ignored);
    std::string normal = absolute.lexically_normal().string();
    if (normal.size() > 1 && normal.back() == '/') {
        normal.pop_back();
    }
    path_ = String(std::move(normal), path.encoding());
}

bool FolderItem::Exists() const {
    struct stat status {};
    return hasStatus(path_, status);
}

bool FolderItem::Directory() const {
    struct stat status {};
    return hasStatus(path_, status) && S_ISDIR(status.st_mode);
}

String FolderItem::Name() const {
    return String(path_.bytes().substr(path_.bytes().rfind('/') + 1), path_.encoding());
}

Ref<FolderItem> FolderItem::Parent() const {
    if (path_.bytes() == "/") {
        return nullptr;
    }
    std::size_t slash = path_.bytes().rfind('/');
    return New<FolderItem>(
        String(path_.bytes().substr(0, slash == 0 ? 1 : slash), path_.encoding()));
}

Ref<FolderItem> FolderItem::Child(const String& name) const {
    return New<FolderItem>(path_ + String("/") + name);
}

bool FolderItem::Delete() const {
    return std::remove(path_.bytes().c_str()) == 0;
}

std::int64_t FolderItem::ExchangeWith(const FolderItem& other) const {
    if (Directory() || other.Directory()) {
        return EISDIR;
    }
    if (::renameat2(AT_FDCWD, path_.bytes().c_str(), AT_FDCWD, other.path_.bytes().c_str(),
                    RENAME_EXCHANGE) != 0) {
        return errno;
    }
    return 0;
}

Ref<FolderItem> GetFolderItem(const String& saveInfo) {
    if (saveInfo.empty() || saveInfo.view().find('\0') != std::string_view::npos) {
        return nullptr;
    }
    return New<FolderItem>(saveInfo);
}

}  // namespace host
