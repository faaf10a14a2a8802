// The grammar image decoder (moxdev_decode_grammar_image). See image_input.h
// for the input.
#include "image_input.h"

#include <set>

using namespace moxdev_fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    IMAGE_INPUT image;
    if (!image_input(data, size, image))
        return 0;
    refused_cleanly([&] {
        const MOXDEV_GRAMMAR_TABLES tables =
            moxdev_decode_grammar_image(image.bytes(), DWORD(image.compressed.size()), image.length);
        for (const auto& table : tables) {
            require(!table.empty(), "every table has an entry");
            for (const auto& entry : table) {
                require(!entry.first.empty() && !entry.second.empty(), "keys and contents are not empty");
                const std::set<std::string> names(entry.second.begin(), entry.second.end());
                require(names.size() == entry.second.size() && names.count("") == 0,
                        "the names of an entry are distinct and not empty");
            }
        }
    });
    return 0;
}
