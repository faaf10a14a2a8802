#include "moxdev/internal/moxdev_file_store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <thread>

namespace {

std::string reason(int error)
{
    return std::strerror(error);
}

std::string directory_of(const std::string& path)
{
    const std::string parent = std::filesystem::path(path).parent_path().string();
    return parent.empty() ? "." : parent;
}

// Writes every byte, whatever the kernel takes at a time.
bool write_all(int fd, const BYTE* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += written;
        size -= std::size_t(written);
    }
    return true;
}

} // namespace

MOXDEV_FILE_LOCK::MOXDEV_FILE_LOCK(const std::string& path, DWORD timeout_ms)
{
    // Never through a symbolic link: a link planted at the lock's name would
    // make the writer create or lock a file elsewhere. A FIFO or a device is
    // no lock either.
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0666);
    if (fd < 0) {
        m_error = "cannot open the lock file " + path + ": " +
                  (errno == ELOOP ? std::string("it is a symbolic link") : reason(errno));
        return;
    }
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        m_error = "cannot use the lock file " + path + ": it is not a regular file";
        ::close(fd);
        return;
    }
    // Polls rather than blocks, so that the wait has a bound; a writer holds
    // the lock for milliseconds.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    for (;;) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) {
            m_fd = fd;
            return;
        }
        if (errno != EWOULDBLOCK && errno != EINTR) {
            m_error = "cannot lock " + path + ": " + reason(errno);
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            m_error = "another writer has held " + path + " for more than " + std::to_string(timeout_ms) + " ms";
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ::close(fd);
}

MOXDEV_FILE_LOCK::~MOXDEV_FILE_LOCK()
{
    if (m_fd >= 0)
        ::close(m_fd); // releases the lock
}

std::string moxdev_temporary_prefix(const std::string& path)
{
    return path + ".tmp-";
}

bool moxdev_replace_file(const std::string& path, const std::vector<BYTE>& bytes, std::string& error, bool* created)
{
    std::string temporary = moxdev_temporary_prefix(path) + "XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (created != nullptr)
        *created = fd >= 0;
    if (fd < 0) {
        error = "cannot create a file in " + directory_of(path) + ": " + reason(errno);
        return false;
    }
    auto fail = [&](const std::string& what) {
        error = what + ": " + reason(errno);
        ::unlink(temporary.c_str());
        return false;
    };
    // mkstemp makes the file private; the data file is not.
    ::fchmod(fd, 0644);
    if (!write_all(fd, bytes.data(), bytes.size()) || ::fsync(fd) != 0) {
        const int saved = errno;
        ::close(fd);
        errno = saved;
        return fail("cannot write " + temporary);
    }
    if (::close(fd) != 0)
        return fail("cannot write " + temporary);
    if (::rename(temporary.c_str(), path.c_str()) != 0)
        return fail("cannot replace " + path);
    const int directory = ::open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

bool moxdev_replace_file_by(const std::string& path, const std::function<void(const std::string&)>& write,
                            std::string& error)
{
    std::string temporary = moxdev_temporary_prefix(path) + "XXXXXX";
    const int created = ::mkstemp(temporary.data());
    if (created < 0) {
        error = "cannot create a file in " + directory_of(path) + ": " + reason(errno);
        return false;
    }
    ::fchmod(created, 0644);
    ::close(created);
    try {
        write(temporary);
    } catch (...) {
        ::unlink(temporary.c_str());
        throw;
    }
    // What `write` wrote reaches the disk before the name points at it.
    const int fd = ::open(temporary.c_str(), O_RDONLY | O_CLOEXEC);
    const bool flushed = fd >= 0 && ::fsync(fd) == 0;
    const int saved = errno;
    if (fd >= 0)
        ::close(fd);
    if (!flushed || ::rename(temporary.c_str(), path.c_str()) != 0) {
        error =
            (flushed ? "cannot replace " + path : "cannot write " + temporary) + ": " + reason(flushed ? errno : saved);
        ::unlink(temporary.c_str());
        return false;
    }
    const int directory = ::open(directory_of(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory >= 0) {
        ::fsync(directory);
        ::close(directory);
    }
    return true;
}

void moxdev_remove_stale_temporaries(const std::string& path)
{
    const std::filesystem::path file(path);
    const std::string prefix = file.filename().string() + ".tmp-";
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(directory_of(path), failure)) {
        const std::string name = entry.path().filename().string();
        if (name.compare(0, prefix.size(), prefix) == 0 && name.size() == prefix.size() + 6)
            std::filesystem::remove(entry.path(), failure);
    }
}
