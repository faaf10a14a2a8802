// The verbs' documents (moxdev/documents.h) on what a person or a script
// types: ID bytes, chip and device names, list filters, OPNs and HPS kinds.
// Each query answers a document or refuses with a QUERY_ERROR whose message
// is a sentence; a refused name offers only names the table knows.
//
// Input: the first byte picks the query, the rest is the text given.
#include "fuzz_support.h"

#include "moxdev/flash_documents.h"
#include "moxdev/hps_documents.h"
#include "moxdev/naming_documents.h"

#include <memory>

using namespace moxdev_fuzz;

namespace {

// Made once: the point is the queries, not loading the databases again.
std::unique_ptr<moxdev::FLASH_DOCUMENTS> flash;
std::unique_ptr<moxdev::NAMING_DOCUMENTS> naming;

moxdev::DOCUMENT ask(std::uint8_t which, const std::string& text)
{
    switch (which % 9) {
    case 0: return flash->identify(moxdev::parse_id_bytes({text}));
    case 1: return flash->identify(moxdev::parse_id_bytes({text}), true);
    case 2: return flash->show(text);
    case 3: {
        moxdev::FLASH_LIST_FILTER filter;
        filter.pattern = text;
        filter.maker = text.substr(0, text.size() / 2);
        return flash->list(filter);
    }
    case 4: {
        moxdev::FLASH_LIST_FILTER filter;
        filter.size = text;
        filter.voltage = text.substr(text.size() / 2);
        filter.every_record = true;
        return flash->list(filter);
    }
    case 5: return naming->device_show(text);
    case 6: return naming->name(text);
    case 7: return naming->opn(text);
    default: return moxdev::hps_list_document(text);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    common_environment();
    flash = std::make_unique<moxdev::FLASH_DOCUMENTS>();
    naming = std::make_unique<moxdev::NAMING_DOCUMENTS>();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
    try {
        const moxdev::DOCUMENT document = ask(data[0], text);
        require(document.is_object() || document.is_array(), "an answer is an object or a list");
    } catch (const moxdev::QUERY_ERROR& error) {
        const std::string message = error.what();
        require(!message.empty() && message.find('\n') != 0, "a refusal says why");
        for (const std::string& name : error.suggestions())
            require(!name.empty() && message.find(name) != std::string::npos, "a suggestion is one the message offers");
    }
    return 0;
}
