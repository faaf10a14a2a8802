// The validating parse of a user's answer
// (MOXDEV_FLASH_INI::convert_string_to_qword, ten arguments) with arbitrary
// arguments, and the plain text-to-number conversion.
//
// Input: the arguments, drawn in order: type (0 to 7, so also the codes that
// are no number), hex, power of two, an optional range list and an optional
// hit list (each a count of 0 to 8, then that many DWORD pairs), shift,
// multiple, and the rest as the answer.
#include "fuzz_support.h"

#include <fuzzer/FuzzedDataProvider.h>

using namespace moxdev_fuzz;

namespace {

// A list as the parse reads it: the pair count, then the pairs.
std::vector<DWORD> pair_list(FuzzedDataProvider& input)
{
    const DWORD pairs = input.ConsumeIntegralInRange<DWORD>(0, 8);
    std::vector<DWORD> list{pairs};
    for (DWORD i = 0; i < 2 * pairs; ++i)
        list.push_back(input.ConsumeIntegral<DWORD>());
    return list;
}

QWORD maximum_of(MOXDEV_PARAM_TYPE type)
{
    switch (type) {
    case MOXDEV_PARAM_BYTE: return 0xFF;
    case MOXDEV_PARAM_WORD: return 0xFFFF;
    case MOXDEV_PARAM_DWORD: return 0xFFFFFFFF;
    default: return ~QWORD(0);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    FuzzedDataProvider input(data, size);
    const auto type = MOXDEV_PARAM_TYPE(input.ConsumeIntegralInRange<DWORD>(0, 7));
    const bool hex = input.ConsumeBool();
    const bool power_of_2 = input.ConsumeBool();
    const bool with_range = input.ConsumeBool();
    const std::vector<DWORD> range_list = pair_list(input);
    const bool with_hits = input.ConsumeBool();
    const std::vector<DWORD> hit_list = pair_list(input);
    const bool shift = input.ConsumeBool();
    const DWORD multiple = input.ConsumeIntegral<DWORD>();
    const std::string answer = input.ConsumeRemainingBytesAsString();

    QWORD value = 12345;
    std::string error = "stale";
    bool accepted = false;
    const bool refused = refused_cleanly([&] {
        accepted = MOXDEV_FLASH_INI::convert_string_to_qword(
            type, value, hex, answer, power_of_2, with_range ? range_list.data() : nullptr,
            with_hits ? hit_list.data() : nullptr, shift, multiple, error);
    });
    if (!refused) {
        require(accepted == error.empty(), "a refusal says why, an acceptance says nothing");
        const bool numeric = type >= MOXDEV_PARAM_BYTE && type <= MOXDEV_PARAM_QWORD;
        if (accepted && numeric)
            require(value <= maximum_of(type), "an accepted value fits its type");
        if (!numeric)
            require(accepted && value == 0, "strings and flags need no number");
    }

    bool ok = false;
    refused_cleanly([&] {
        const QWORD plain = MOXDEV_FLASH_INI::convert_string_to_qword(answer, false, &ok);
        require(ok || plain == 0, "a refused text reads as 0");
    });
    refused_cleanly([&] { MOXDEV_FLASH_INI::convert_string_to_qword(answer, true, nullptr); });
    return 0;
}
