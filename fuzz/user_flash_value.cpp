// The user flash definition in "MOX_SUPPORT_EXT_SPI_DEV", read when a flash
// manager is constructed over the built database, and the decoder itself.
//
// Input: a mode byte, then text. Mode % 3 says what the text is: 0 the value
// itself; 1 the decoded text, which the target encodes; 2 a definition, which
// the target completes with its check value and encodes, so that the fuzzer
// reaches the field checks. Bit 7 turns on the debug output of the reader.
#include "fuzz_support.h"

#include <cstring>

using namespace moxdev_fuzz;

namespace {

// Whether `id` holds each byte the record compares at the place it compares it.
bool answers_with(const MOXDEV_SFL_FLASH_INFO& record, const BYTE* id)
{
    if (id[record.memory_id_index] != record.memory_id)
        return false;
    if (record.silicon_id)
        return true;
    return (record.memory_type_index == 255 || id[record.memory_type_index] == record.memory_type) &&
           id[record.mfc_id_index] == record.mfc_id;
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
    // The environment cannot carry a zero byte; the text ends at the first.
    std::string text(reinterpret_cast<const char*>(data), strnlen(reinterpret_cast<const char*>(data), size));

    const MOXDEV_FLASH_MANAGER codec = moxdev::empty_flash_manager();
    std::string plain; // what the value encodes, when the target encoded it
    std::string value;
    switch ((mode & 0x7F) % 3) {
    case 0: value = text; break;
    case 1: plain = text; break;
    default:
        if (text.empty())
            return 0;
        plain = text + "#" + codec.gen_ini_password(text) + ";";
        break;
    }
    if (value.empty()) {
        value = codec.encode_ini(plain);
        require(!value.empty(), "any text encodes");
        // Within the decoder's 64 KiB bound the round trip is exact, and an
        // encoded value never goes on after its stream.
        if (plain.size() <= 64 * 1024) {
            require(codec.decode_ini(value) == plain, "decode(encode(text)) == text");
            moxdev::USER_FLASH_CONTENT whole;
            std::string why;
            require(moxdev::read_user_flash_value(value, whole, why) || why.find("goes on after") == std::string::npos,
                    "an encoded value ends with its stream");
        }
    }
    const std::string decoded = codec.decode_ini(value);

    ::setenv("MOX_SUPPORT_EXT_SPI_DEV", value.c_str(), 1);
    if (mode & 0x80)
        ::setenv("MOX_SUPPORT_EXT_SPI_DEV_DEBUG", "1", 1);
    else
        ::unsetenv("MOX_SUPPORT_EXT_SPI_DEV_DEBUG");

    // The project's reader says what the loader will do with the value.
    moxdev::USER_FLASH_CONTENT content;
    std::string error;
    const bool readable = moxdev::read_user_flash_value(value, content, error);
    require(readable == !decoded.empty() || !error.empty(), "a refused value says why");

    refused_cleanly([&] {
        MOXDEV_FLASH_MANAGER manager = moxdev::load_flash_database();
        const MOXDEV_SFL_FLASH_INFO* accepted = moxdev::user_flash(manager);
        // The reader also refuses a value that goes on after its compressed
        // text, which the loader takes; otherwise the two agree.
        const bool goes_on = !readable && error.find("goes on after") != std::string::npos;
        require((accepted != nullptr) == (readable && content.accepted()) || (goes_on && accepted != nullptr),
                "the reader agrees with the loader");
        if (accepted == nullptr)
            return;
        const MOXDEV_SFL_FLASH_INFO& user = *accepted;
        require(!decoded.empty(), "an accepted value decodes");
        const MOXDEV_SFL_FLASH_INFO& first = manager.get_flash_database()[0];
        require(first.device_name == user.device_name && first.memory_id == user.memory_id,
                "the user record is record 0");
        moxdev_flash_info_to_text(user);

        // The user record wins whenever the chip answers with its bytes.
        BYTE id[256] = {};
        id[user.mfc_id_index] = user.mfc_id;
        if (user.memory_type_index != 255)
            id[user.memory_type_index] = user.memory_type;
        id[user.memory_id_index] = user.memory_id;
        if (answers_with(user, id)) {
            require(manager.flash_id_database_mapping(user.silicon_id, 0, id), "the user record binds");
            require(manager.get_flash_mapping_index(0, false) == 0, "the user record wins");
            manager.sfl_get_device_bit_size(0);
            manager.sfl_get_asc_voltage(0);
        }
    });
    return 0;
}
