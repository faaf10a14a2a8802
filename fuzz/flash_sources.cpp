// Where the flash records' maxima come from (programmer/mox_flash_sources.txt),
// read by moxdev::FLASH_SOURCES: a file it takes must give back, for every
// line, the line itself when asked by the line's name and ID.
//
// Input: the file.
#include "fuzz_support.h"

using namespace moxdev_fuzz;

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string path = scratch_path("mox_flash_sources.txt");
    write_file(path, data, size);
    moxdev::FLASH_SOURCES sources;
    std::string error;
    if (!sources.load(path, error)) {
        require(!error.empty() && sources.entries().empty(), "a refused file says why and keeps nothing");
        return 0;
    }
    for (const moxdev::FLASH_SOURCES::ENTRY& entry : sources.entries()) {
        require(entry.source.kind == "datasheet" || entry.source.kind == "sibling" || entry.source.kind == "envelope",
                "a kind the file may hold");
        // An alias finds its record's name.
        for (const std::string& alias : entry.aliases)
            require(!sources.name_for(alias).empty(), "an alias is found");
        // A record whose ID text is the entry's finds an entry of that name
        // and ID (the first such line).
        MOXDEV_SFL_FLASH_INFO record;
        record.device_name = entry.name;
        record.silicon_id = false;
        record.memory_type_index = 1;
        unsigned mfc = 0, type = 0, capacity = 0;
        char tail = 0;
        if (std::sscanf(entry.id.c_str(), "%2X %2X %2X%c", &mfc, &type, &capacity, &tail) != 3)
            continue;
        record.mfc_id = BYTE(mfc);
        record.memory_type = BYTE(type);
        record.memory_id = BYTE(capacity);
        if (moxdev::flash_id_text(record) != entry.id)
            continue;
        const moxdev::MAXIMA_SOURCE* found = sources.find(record);
        require(found != nullptr, "a line is found by its name and ID");
    }
    return 0;
}
