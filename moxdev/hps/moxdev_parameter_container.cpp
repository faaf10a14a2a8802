#include "moxdev/hps/moxdev_parameter_container.h"

#include "moxdev/internal/moxdev_bytes.h"

#include "moxdev/internal/moxdev_assert.h"

#include "host/gen_path.h"

#include <cstring>

// The container belongs to the flash parameter class.
static constexpr const char* MOXDEV_UNIT = "moxdev_flash_ini";

namespace moxdev::detail {

namespace {

DWORD dword_at(const BYTE* data)
{
    return bytes::load_le32(data);
}

} // namespace

std::string parameter_file_path()
{
    return gen_get_module_fullpath() + "/mox_flash.ini";
}

READ_RESULT read_parameter_file(const std::string& path, std::vector<BYTE>& bytes, std::string& error)
{
    return read_file(path, bytes, error, {PARAMETER_FILE_CAP, false});
}

bool parse_parameter_container(const std::vector<BYTE>& file, std::vector<std::pair<DWORD, DWORD>>& entries,
                               bool allow_no_data)
{
    entries.clear();
    const QWORD file_size = file.size();
    if (file_size < 17 || std::memcmp(file.data(), PARAMETER_FILE_MAGIC, sizeof PARAMETER_FILE_MAGIC) != 0 ||
        !(PARAMETER_FILE_HEADER < file_size))
        return false;
    const QWORD count = dword_at(&file[16]);
    const QWORD table_end = PARAMETER_FILE_HEADER + 8 * count;
    if (!(table_end < file_size || (allow_no_data && table_end == file_size)))
        return false;
    // Each present set starts where the one before it ended; a running end
    // that leaves the file, or bytes after the last set, make it invalid.
    QWORD end = table_end;
    QWORD total = 0;
    for (QWORD i = 0; i < count; ++i) {
        const DWORD offset = dword_at(&file[PARAMETER_FILE_HEADER + 8 * i]);
        const DWORD length = dword_at(&file[PARAMETER_FILE_HEADER + 8 * i + 4]);
        if (offset == 0) {
            if (length != 0)
                return false;
        } else if (length == 0 || offset != end) {
            return false;
        } else {
            end += length;
            total += length;
            if (end > file_size)
                return false;
        }
        entries.emplace_back(offset, length);
    }
    return end == file_size && table_end + total == file_size;
}

std::vector<BYTE> parameter_container_bytes(const std::vector<std::vector<BYTE>>& sets)
{
    std::vector<BYTE> buffer(PARAMETER_FILE_MAGIC, PARAMETER_FILE_MAGIC + sizeof PARAMETER_FILE_MAGIC);
    auto put_dword = [&](DWORD value) { bytes::append_le(buffer, value, 4); };
    put_dword(PARAMETER_SET_COUNT);
    QWORD offset = PARAMETER_DATA_START;
    for (const std::vector<BYTE>& set : sets) {
        put_dword(set.empty() ? 0 : DWORD(offset));
        put_dword(DWORD(set.size()));
        offset += set.size();
    }
    MOXDEV_ASSERT_MSG(offset <= 0xFFFFFFFFull, "file_size <= 0xFFFFFFFF");
    for (const std::vector<BYTE>& set : sets)
        buffer.insert(buffer.end(), set.begin(), set.end());
    return buffer;
}

} // namespace moxdev::detail
