#include "host/BinaryStream.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <utility>

#include "host/ByteOrder.h"
#include "host/IOException.h"
#include "host/Raise.h"

namespace host {

namespace {

// Big enough that the record store writes in few system calls, small enough to stay cheap.
constexpr std::size_t kFlushSize = std::size_t{64} * 1024;

[[noreturn]] void raiseSystemError(const char* call, int error) {
    throw IOException(String(std::string(call) + ": " + std::strerror(error)), error);
}

}  // namespace

BinaryStream::BinaryStream(const String& data)
    : kind_(Kind::Text), writable_(false), text_(data.bytes()) {}

BinaryStream::BinaryStream(Ref<MemoryBlock> block) : kind_(Kind::Block), block_(std::move(block)) {
    if (!block_) {
        raiseNilObject();
    }
}

BinaryStream::BinaryStream(int fd, std::int64_t length, bool writable)
    : kind_(Kind::File), writable_(writable), fd_(fd), fileLength_(length) {}

BinaryStream::~BinaryStream() {
    // Nobody is left to hear about a failed flush.
    try {
        Close();
    } catch (...) {
    }
}

Ref<BinaryStream> BinaryStream::Create(const String& path) {
    return openFile(path, O_RDWR | O_CREAT | O_TRUNC);
}

Ref<BinaryStream> BinaryStream::Open(const String& path, bool readWrite) {
    return openFile(path, readWrite ? O_RDWR : O_RDONLY);
}

Ref<BinaryStream> BinaryStream::openFile(const String& path, int flags) {
    // A path with a NUL in it would name another file.
    if (path.view().find('\0') != std::string_view::npos) {
        return nullptr;
    }
    int fd = ::open(path.bytes().c_str(), flags | O_CLOEXEC, 0644);
    if (fd < 0) {
        return nullptr;
    }
    struct stat status {};
    if (::fstat(fd, &status) != 0 || S_ISDIR(status.st_mode)) {
        ::close(fd);
        return nullptr;
    }
    return Ref<BinaryStream>(std::shared_ptr<BinaryStream>(
        new BinaryStream(fd, status.st_size, (flags & O_ACCMODE) == O_RDWR)));
}

String BinaryStream::Read(std::int64_t count, TextEncoding encoding) {
    return String(readBytes(count), encoding);
}

std::uint8_t BinaryStream::ReadUInt8() {
    return static_cast<std::uint8_t>(readNumber<1>());
}

std::uint16_t BinaryStream::ReadUInt16() {
    return static_cast<std::uint16_t>(readNumber<2>());
}

std::uint32_t BinaryStream::ReadUInt32() {
    return static_cast<std::uint32_t>(readNumber<4>());
}

void BinaryStream::Write(const String& data) {
    writeBytes(data.data(), data.size());
}

void BinaryStream::WriteUInt8(std::uint8_t value) {
    writeNumber<1>(value);
}

void BinaryStream::WriteUInt16(std::uint16_t value) {
    writeNumber<2>(value);
}

void BinaryStream::WriteUInt32(std::uint32_t value) {
    writeNumber<4>(value);
}

bool BinaryStream::Eof() const {
    return position_ >= Length();
}

std::int64_t BinaryStream::Length() const {
    requireOpen();
    return kind_ == Kind::File ? fileLength_ : static_cast<std::int64_t>(memory().size());
}

void BinaryStream::SetPosition(std::int64_t position) {
    requireOpen();
    position = std::max<std::int64_t>(position, 0);
    if (kind_ == Kind::File && position != position_) {
        flushFile();
    }
    position_ = position;
}

void BinaryStream::Close() {
    if (closed_) {
        return;
    }
    closed_ = true;
    if (kind_ != Kind::File) {
        text_ = std::string();
        block_ = nullptr;
        return;
    }
    // The descriptor goes even when the flush fails.
    try {
        flushFile();
    } catch (...) {
        ::close(std::exchange(fd_, -1));
        throw;
    }
    if (::close(std::exchange(fd_, -1)) != 0 && errno != EINTR) {
        raiseSystemError("close", errno);
    }
}

void BinaryStream::requireOpen() const {
    if (closed_) {
        throw IOException(String("stream is closed"));
    }
}

std::string BinaryStream::readBytes(std::int64_t count) {
    auto available = std::max<std::int64_t>(Length() - position_, 0);
    auto size = static_cast<std::size_t>(std::clamp<std::int64_t>(count, 0, available));
    if (size == 0) {
        return {};
    }
    std::string bytes;
    if (kind_ == Kind::File) {
        flushFile();
        bytes.resize(size);
        bytes.resize(readFile(bytes.data(), size));
    } else {
        bytes.assign(memory(), static_cast<std::size_t>(position_), size);
    }
    position_ += static_cast<std::int64_t>(bytes.size());
    return bytes;
}

std::size_t BinaryStream::readFile(char* into, std::size_t size) const {
    std::size_t done = 0;
    while (done < size) {
        ssize_t got = ::pread(fd_, into + done, size - done,
                              static_cast<off_t>(position_ + static_cast<std::int64_t>(done)));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            raiseSystemError("pread", errno);
        }
        if (got == 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

template <int Width>
std::uint64_t BinaryStream::readNumber() {
    std::int64_t length = Length();
    // Also keeps position_ + Width from overflowing.
    if (position_ > length - Width) {
        // Never moves backwards, so a position set past the end stays where it was put.
        position_ = std::max(position_, length);
        return 0;
    }
    std::array<char, Width> buffer{};
    const char* at = buffer.data();
    if (kind_ == Kind::File) {
        flushFile();
        // The file may have been cut by someone else since we measured it.
        if (readFile(buffer.data(), Width) < Width) {
            position_ = std::max(position_, length);
            return 0;
        }
    } else {
        at = memory().data() + position_;
    }
    position_ += Width;
    return byteorder::load<Width>(at, LittleEndian);
}

template <int Width>
void BinaryStream::writeNumber(std::uint64_t value) {
    std::array<char, Width> buffer{};
    byteorder::store<Width>(buffer.data(), value, LittleEndian);
    writeBytes(buffer.data(), Width);
}

void BinaryStream::writeBytes(const char* data, std::size_t size) {
    requireOpen();
    if (!writable_) {
        throw IOException(String("stream is read-only"));
    }
    if (size > static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max() - position_)) {
        raiseSystemError("write", EFBIG);
    }
    if (kind_ == Kind::File) {
        if (pending_.empty()) {
            pendingAt_ = position_;
        }
        pending_.append(data, size);
        position_ += static_cast<std::int64_t>(size);
        fileLength_ = std::max(fileLength_, position_);
        if (pending_.size() > kFlushSize) {
            flushFile();
        }
        return;
    }
    std::string& bytes = block_->bytes();
    auto at = static_cast<std::size_t>(position_);
    if (at > bytes.size()) {
        bytes.resize(at);  // the gap reads as zeros
    }
    if (at == bytes.size()) {
        bytes.append(data, size);
    } else {
        bytes.replace(at, std::min(size, bytes.size() - at), data, size);
    }
    position_ += static_cast<std::int64_t>(size);
}

void BinaryStream::flushFile() {
    std::size_t done = 0;
    while (done < pending_.size()) {
        ssize_t put = ::pwrite(fd_, pending_.data() + done, pending_.size() - done,
                               static_cast<off_t>(pendingAt_ + static_cast<std::int64_t>(done)));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            // Keeping bytes that cannot be written would only raise the same failure again.
            int error = put < 0 ? errno : EIO;
            pending_.clear();
            raiseSystemError("pwrite", error);
        }
        done += static_cast<std::size_t>(put);
    }
    pending_.clear();
}

}  // namespace host
