#include "moxdev/internal/moxdev_file_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace moxdev::detail {

namespace {

std::string reason(int error)
{
    return std::strerror(error);
}

// What a file that is not a regular file is, for messages.
const char* kind_of(mode_t mode)
{
    if (S_ISDIR(mode))
        return "a directory";
    if (S_ISFIFO(mode))
        return "a FIFO";
    if (S_ISCHR(mode) || S_ISBLK(mode))
        return "a device";
    if (S_ISSOCK(mode))
        return "a socket";
    return "no regular file";
}

// Reads up to `count` bytes, retrying when interrupted; -1 on an error.
ssize_t read_some(int fd, char* data, std::size_t count)
{
    for (;;) {
        const ssize_t got = ::read(fd, data, count);
        if (got >= 0 || errno != EINTR)
            return got;
    }
}

} // namespace

int open_regular_file(const std::string& path, READ_RESULT& result, std::string& error, bool no_follow)
{
    // O_NONBLOCK: opening a FIFO must not wait for a writer. It does not
    // change how a regular file reads.
    const int flags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | (no_follow ? O_NOFOLLOW : 0);
    const int fd = ::open(path.c_str(), flags);
    if (fd < 0) {
        const int failure = errno;
        if (failure == ENOENT || failure == ENOTDIR) {
            result = READ_RESULT::MISSING;
            error = "no such file";
        } else if (failure == ELOOP) {
            result = READ_RESULT::NOT_A_FILE;
            error = no_follow ? "it is a symbolic link" : "it is a symbolic link loop";
        } else {
            result = READ_RESULT::FAILED;
            error = reason(failure);
        }
        return -1;
    }
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        const int failure = errno;
        result = READ_RESULT::NOT_A_FILE;
        error = S_ISREG(status.st_mode) ? reason(failure) : "it is " + std::string(kind_of(status.st_mode));
        ::close(fd);
        return -1;
    }
    result = READ_RESULT::READ;
    return fd;
}

READ_RESULT read_file(const std::string& path, std::vector<BYTE>& bytes, std::string& error,
                      const READ_OPTIONS& options)
{
    bytes.clear();
    READ_RESULT result = READ_RESULT::READ;
    const int fd = open_regular_file(path, result, error, options.no_follow);
    if (fd < 0)
        return result;
    struct stat status {};
    ::fstat(fd, &status);
    // A file larger than the cap is refused before anything is read (a
    // sparse file of gigabytes costs nothing); one that grows while it is
    // read is refused when it passes the cap.
    if (std::size_t(status.st_size) > options.cap) {
        ::close(fd);
        error = "it has " + std::to_string(status.st_size) + " bytes, more than the " + std::to_string(options.cap) +
                " it can hold";
        return READ_RESULT::TOO_LARGE;
    }
    bytes.resize(std::size_t(status.st_size) + 1);
    std::size_t total = 0;
    for (;;) {
        if (total == bytes.size()) {
            if (bytes.size() > options.cap) {
                ::close(fd);
                bytes.clear();
                error = "it grew past the " + std::to_string(options.cap) + " bytes it can hold";
                return READ_RESULT::TOO_LARGE;
            }
            bytes.resize(std::min(options.cap + 1, bytes.size() * 2));
        }
        const ssize_t got = read_some(fd, reinterpret_cast<char*>(bytes.data()) + total, bytes.size() - total);
        if (got < 0) {
            const int failure = errno;
            ::close(fd);
            bytes.clear();
            error = reason(failure);
            return READ_RESULT::FAILED;
        }
        if (got == 0)
            break;
        total += std::size_t(got);
    }
    ::close(fd);
    bytes.resize(total);
    return READ_RESULT::READ;
}

// ---------------------------------------------------------------- lines

LINE_READER::LINE_READER(const std::string& path, std::size_t line_cap) : m_line_cap(line_cap)
{
    m_fd = open_regular_file(path, m_result, m_error);
    m_owned = true;
}

LINE_READER::LINE_READER(int fd, std::size_t line_cap) : m_fd(fd), m_line_cap(line_cap) {}

LINE_READER::~LINE_READER()
{
    if (m_owned && m_fd >= 0)
        ::close(m_fd);
}

bool LINE_READER::fill()
{
    if (m_begin > 0) {
        std::memmove(m_buffer.data(), m_buffer.data() + m_begin, m_end - m_begin);
        m_end -= m_begin;
        m_begin = 0;
    }
    if (m_buffer.size() < m_line_cap + 2)
        m_buffer.resize(std::min<std::size_t>(m_line_cap + 2, std::max<std::size_t>(m_buffer.size() * 2, 65536)));
    const ssize_t got = read_some(m_fd, m_buffer.data() + m_end, m_buffer.size() - m_end);
    if (got < 0) {
        // A non-blocking standard input with nothing yet: wait for it.
        if (errno == EAGAIN) {
            const int flags = ::fcntl(m_fd, F_GETFL);
            ::fcntl(m_fd, F_SETFL, flags & ~O_NONBLOCK);
            return fill();
        }
        m_error = std::string("reading failed: ") + reason(errno);
        return false;
    }
    m_eof = got == 0;
    m_end += std::size_t(got);
    return got > 0;
}

bool LINE_READER::next(std::string& line)
{
    if (!good())
        return false;
    for (std::size_t scanned = m_begin;;) {
        // A '\n' right after a line that ended in '\r' ends nothing.
        if (m_after_cr && scanned < m_end) {
            m_after_cr = false;
            if (m_buffer[scanned] == '\n')
                scanned = ++m_begin;
        }
        for (; scanned < m_end; ++scanned) {
            const char c = m_buffer[scanned];
            if (c != '\n' && c != '\r')
                continue;
            if (scanned - m_begin > m_line_cap)
                break;
            line.assign(m_buffer.data() + m_begin, scanned - m_begin);
            m_after_cr = c == '\r';
            m_begin = scanned + 1;
            ++m_line_number;
            return true;
        }
        if (scanned - m_begin > m_line_cap) {
            m_error = "line " + std::to_string(m_line_number + 1) + " is longer than " + std::to_string(m_line_cap) +
                      " characters";
            return false;
        }
        const std::size_t offset = scanned - m_begin;
        if (m_eof || !fill()) {
            if (!m_error.empty() || m_begin == m_end)
                return false;
            // The last line has no line end.
            line.assign(m_buffer.data() + m_begin, m_end - m_begin);
            m_begin = m_end;
            ++m_line_number;
            return true;
        }
        scanned = m_begin + offset;
    }
}

} // namespace moxdev::detail
