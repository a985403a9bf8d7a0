#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <system_error>

#include "platform/files.h"

namespace hxr::platform {
namespace {

/// An open file descriptor, closed at the end of its life.
class Descriptor {
  public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    bool valid() const { return number_ >= 0; }
    int number() const { return number_; }

    /// @return false if the system reports, at last, that the data could not be kept
    bool close() {
        if (number_ < 0) return true;
        const int result = ::close(number_);
        number_ = -1;
        return result == 0;
    }

  private:
    int number_;
};

/// A plain file that is open to be read from its head.
class PlainFile {
  public:
    // Non-blocking, so that a pipe in the file's place is refused below and not waited for.
    explicit PlainFile(const std::filesystem::path& file)
        : descriptor_(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
        struct stat state {};
        if (descriptor_.valid() && ::fstat(descriptor_.number(), &state) == 0 && S_ISREG(state.st_mode))
            size_ = state.st_size;
    }

    /// Whether it could be opened and is a plain file.
    bool valid() const { return size_ >= 0; }
    std::size_t size() const { return static_cast<std::size_t>(size_); }

    bool read(std::span<std::byte> content) const {
        while (!content.empty()) {
            const ssize_t got = ::read(descriptor_.number(), content.data(), content.size());
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) return false;
            content = content.subspan(static_cast<std::size_t>(got));
        }
        return true;
    }

  private:
    Descriptor descriptor_;
    off_t size_ = -1;
};

bool writeAll(int descriptor, std::span<const std::byte> content) {
    while (!content.empty()) {
        const ssize_t written = ::write(descriptor, content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        content = content.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

void flushFolder(const std::filesystem::path& folder) {
    const Descriptor descriptor(
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor.valid()) ::fsync(descriptor.number());
}

}  // namespace

std::filesystem::path machineDataFolder() { return "/var/lib"; }

bool makeUsableFolder(const std::filesystem::path& folder) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    return std::filesystem::is_directory(folder, error) &&
           ::faccessat(AT_FDCWD, folder.c_str(), R_OK | W_OK | X_OK, AT_EACCESS) == 0;
}

bool readFile(const std::filesystem::path& file, std::span<std::byte> content) noexcept {
    const PlainFile plain(file);
    return plain.valid() && plain.size() >= content.size() && plain.read(content);
}

std::optional<std::vector<std::byte>> readWholeFile(const std::filesystem::path& file, std::size_t most) {
    const PlainFile plain(file);
    if (!plain.valid() || plain.size() > most) return std::nullopt;
    std::vector<std::byte> content(plain.size());
    if (!plain.read(content)) return std::nullopt;
    return content;
}

bool replaceFile(const std::filesystem::path& file, std::span<const std::byte> content) noexcept try {
    std::string beside = file.string() + ".XXXXXX";
    Descriptor descriptor(::mkostemp(beside.data(), O_CLOEXEC));
    if (!descriptor.valid()) return false;

    constexpr mode_t readableByAll = 0644;
    const bool written = ::fchmod(descriptor.number(), readableByAll) == 0 &&
                         writeAll(descriptor.number(), content) && ::fsync(descriptor.number()) == 0 &&
                         descriptor.close();
    if (!written || ::rename(beside.c_str(), file.c_str()) != 0) {
        ::unlink(beside.c_str());
        return false;
    }
    flushFolder(file.parent_path());
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

}  // namespace hxr::platform
