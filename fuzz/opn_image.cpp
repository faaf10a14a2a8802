// The OPN image decoder (moxdev_decode_opn_image). See image_input.h for the
// input.
#include "image_input.h"

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
        const std::vector<DWORD> numbers =
            moxdev_decode_opn_image(image.bytes(), DWORD(image.compressed.size()), image.length);
        // Magic, count and CRC take 18 bytes; every number at least one more.
        require(!numbers.empty() && numbers.size() + 18 <= image.length, "the count fits the image");
    });
    return 0;
}
