#include "test_support.h"
#include "moxdev/internal/moxdev_bytes.h"

#include <zlib.h>

#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iterator>

namespace moxdev_test {

BYTES read_bytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    if (!in)
        throw std::runtime_error("cannot read " + path);
    return BYTES(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void write_bytes(const std::string& path, const BYTES& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

std::string read_text(const std::string& path)
{
    const BYTES bytes = read_bytes(path);
    return std::string(bytes.begin(), bytes.end());
}

void write_text(const std::string& path, const std::string& text)
{
    write_bytes(path, BYTES(text.begin(), text.end()));
}

void append_dword(BYTES& bytes, DWORD value)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes.push_back(BYTE(value >> shift));
}

BYTES make_database_file(const std::string& magic, const std::string& identifier, const BYTES& payload,
                         DWORD announced_size)
{
    BYTES file(magic.begin(), magic.end());
    file.insert(file.end(), identifier.begin(), identifier.end());
    append_dword(file, announced_size);
    uLongf length = ::compressBound(uLong(payload.size()));
    BYTES compressed(length);
    if (::compress(compressed.data(), &length, payload.data(), uLong(payload.size())) != Z_OK)
        throw std::runtime_error("compress failed");
    file.insert(file.end(), compressed.begin(), compressed.begin() + long(length));
    file.push_back(0);
    file.push_back(0);
    return file;
}

BYTES payload_of(const BYTES& file)
{
    const DWORD size = moxdev::bytes::load_le32(&file.at(40));
    BYTES payload(size);
    uLongf length = size;
    if (::uncompress(payload.data(), &length, &file[44], uLong(file.size() - 46)) != Z_OK || length != size)
        throw std::runtime_error("not a database file");
    return payload;
}

std::string source_path(const std::string& relative)
{
    return std::string(MOXDEV_SOURCE_DIR) + "/" + relative;
}

std::string data_path(const std::string& relative)
{
    return std::string(MOXDEV_DATA_DIR) + "/" + relative;
}

int run_command(const std::string& command, std::string& output, bool merge_stderr)
{
    const std::string full = merge_stderr ? command + " 2>&1" : command;
    std::FILE* pipe = ::popen(full.c_str(), "r");
    if (pipe == nullptr)
        throw std::runtime_error("cannot run " + command);
    output.clear();
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0)
        output.append(buffer, n);
    const int status = ::pclose(pipe);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace moxdev_test
