// The user's HPS parts, written and read back: what the packing takes must
// come back field for field, from the bytes and from the parameter file
// (the round trip the file-reading targets cannot see).
//
// Input: a mode byte (bit 0: SPI parts, else NAND parts; bit 1: also through
// the file), then the parts' fields in order: a text as a length byte and its
// bytes (control characters and NULs included), a flag as one byte, a number
// as its bytes, low byte first.
#include "fuzz_support.h"

#include <memory>

using namespace moxdev_fuzz;

namespace {

// The next `count` bytes of the input, zeros past its end.
struct INPUT {
    const uint8_t* data;
    size_t size;
    size_t at = 0;

    QWORD number(unsigned width)
    {
        QWORD value = 0;
        for (unsigned i = 0; i < width; ++i, ++at)
            value |= QWORD(at < size ? data[at] : 0) << (8 * i);
        return value;
    }
    std::string text()
    {
        const size_t length = size_t(number(1)) % 40;
        std::string value;
        for (size_t i = 0; i < length; ++i, ++at)
            value += char(at < size ? data[at] : 0);
        return value;
    }
};

template <class RECORD>
RECORD next_record(INPUT& in)
{
    RECORD record;
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        switch (RECORD::TYPES[p]) {
        case MOXDEV_PARAM_STRING: *static_cast<std::string*>(record.param[p]) = in.text(); break;
        case MOXDEV_PARAM_BOOL: *static_cast<bool*>(record.param[p]) = in.number(1) & 1; break;
        case MOXDEV_PARAM_DWORD: *static_cast<DWORD*>(record.param[p]) = DWORD(in.number(4)); break;
        case MOXDEV_PARAM_QWORD: *static_cast<QWORD*>(record.param[p]) = in.number(8); break;
        default: require(false, "a field type of the records");
        }
    }
    return record;
}

template <class RECORD>
bool same(const RECORD& a, const RECORD& b)
{
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const MOXDEV_PARAM_TYPE type = RECORD::TYPES[p];
        const bool equal =
            type == MOXDEV_PARAM_STRING
                ? *static_cast<const std::string*>(a.param[p]) == *static_cast<const std::string*>(b.param[p])
            : type == MOXDEV_PARAM_BOOL ? *static_cast<const bool*>(a.param[p]) == *static_cast<const bool*>(b.param[p])
            : type == MOXDEV_PARAM_DWORD
                ? *static_cast<const DWORD*>(a.param[p]) == *static_cast<const DWORD*>(b.param[p])
                : *static_cast<const QWORD*>(a.param[p]) == *static_cast<const QWORD*>(b.param[p]);
        if (!equal)
            return false;
    }
    return true;
}

template <class RECORD>
void check_round_trip(INPUT& in, bool through_file)
{
    std::vector<RECORD> records;
    while (in.at < in.size && records.size() < 8)
        records.push_back(next_record<RECORD>(in));
    std::vector<BYTE> packed;
    std::string error;
    if (!moxdev::pack_hps_user_set(records, packed, error)) {
        require(!error.empty(), "a refused set says why");
        return;
    }
    std::vector<RECORD> back = moxdev::unpack_hps_user_set<RECORD>(packed);
    require(back.size() == records.size(), "every packed part reads back");
    for (size_t i = 0; i < back.size(); ++i)
        require(same(back[i], records[i]), "a part reads back as it was packed");
    if (!through_file)
        return;
    require(moxdev::update_parameter_set(
                moxdev::HPS_KIND<RECORD>::set, [&](std::vector<BYTE>& set, std::string&) { return set = packed, true; },
                error),
            "the parameter file takes the set");
    DWORD size = 0;
    const std::unique_ptr<BYTE[]> data(MOXDEV_FLASH_INI::read_flash_ini_data(moxdev::HPS_KIND<RECORD>::set, size));
    require((data != nullptr) == !packed.empty(), "a written set is read");
    back = moxdev::unpack_hps_user_set<RECORD>(data ? std::vector<BYTE>(data.get(), data.get() + size)
                                                    : std::vector<BYTE>());
    require(back.size() == records.size(), "every part written reads back from the file");
    for (size_t i = 0; i < back.size(); ++i)
        require(same(back[i], records[i]), "a part reads back from the file as it was written");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    BYTE mode = 0;
    if (!take_mode(data, size, mode))
        return 0;
    INPUT in{data, size};
    if (mode & 1)
        check_round_trip<MOXDEV_HPS_SPI_STRUCTURE>(in, mode & 2);
    else
        check_round_trip<MOXDEV_HPS_NAND_STRUCTURE>(in, mode & 2);
    return 0;
}
