#include "moxdev/files.h"

#include "moxdev/internal/moxdev_file_reader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <istream>

namespace moxdev {

std::string absolute_path(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    return error ? path : absolute.lexically_normal().string();
}

std::string unreadable_reason(const std::string& path)
{
    detail::READ_RESULT result = detail::READ_RESULT::READ;
    std::string error;
    const int fd = detail::open_regular_file(path, result, error);
    if (fd >= 0)
        ::close(fd);
    return error;
}

bool read_input_file(const std::string& path, std::size_t cap, std::vector<BYTE>& bytes, std::string& error)
{
    return detail::read_file(path, bytes, error, {cap, false}) == detail::READ_RESULT::READ;
}

bool read_input_stream(int fd, std::size_t cap, std::vector<BYTE>& bytes, std::string& error)
{
    bytes.clear();
    std::vector<BYTE> chunk(65536);
    for (;;) {
        const ssize_t got = ::read(fd, chunk.data(), chunk.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0) {
            error = std::strerror(errno);
            return false;
        }
        if (got == 0)
            return true;
        if (bytes.size() + std::size_t(got) > cap) {
            error = "it gives more than the " + std::to_string(cap) + " bytes it can hold";
            bytes.clear();
            return false;
        }
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + got);
    }
}

LINE_READ read_answer_line(std::istream& in, std::string& line, std::size_t cap)
{
    line.clear();
    std::istream::sentry ok(in, true);
    if (!ok)
        return LINE_READ::END;
    std::streambuf* buffer = in.rdbuf();
    for (;;) {
        const int c = buffer->sbumpc();
        if (c == std::char_traits<char>::eof()) {
            in.setstate(std::ios::eofbit);
            if (line.empty())
                in.setstate(std::ios::failbit);
            return line.empty() ? LINE_READ::END : LINE_READ::LINE;
        }
        if (c == '\n')
            break;
        if (line.size() == cap) {
            line.clear();
            in.setstate(std::ios::failbit);
            return LINE_READ::TOO_LONG;
        }
        line += char(c);
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return LINE_READ::LINE;
}

} // namespace moxdev
