// The device, naming and HPS documents of the library: each equals what the
// command prints with --json for the same question, and a refusal carries
// the command's message, its kind and the names it offers.
#include "test_support.h"

#include "moxdev/hps_documents.h"
#include "moxdev/naming_documents.h"

#include <functional>

using namespace moxdev_test;
using moxdev::DOCUMENT;
using moxdev::QUERY_ERROR;
using moxdev::QUERY_FAILURE;

namespace {

// The command's document for `arguments` (run with this process's environment).
DOCUMENT command_document(const std::string& arguments)
{
    std::string output;
    EXPECT_EQ(run_command("'" MOXDEV_CLI "' " + arguments + " --json 2>/dev/null", output), 0) << arguments;
    return DOCUMENT::accept(output) ? DOCUMENT::parse(output) : DOCUMENT("not JSON: " + output);
}

// What the command prints on standard error for `arguments`.
std::string command_errors(const std::string& arguments, int status)
{
    std::string output;
    EXPECT_EQ(run_command("'" MOXDEV_CLI "' " + arguments + " 2>&1 >/dev/null", output), status) << arguments;
    return output;
}

QUERY_ERROR refusal(const std::function<void()>& query)
{
    try {
        query();
    } catch (const QUERY_ERROR& error) {
        return error;
    }
    ADD_FAILURE() << "the query was answered";
    return QUERY_ERROR(QUERY_FAILURE::UNAVAILABLE, "");
}

} // namespace

TEST(NamingDocuments, EqualTheCommandsJsonDocuments)
{
    const TEMP_DIR module;
    const SCOPED_ENV module_dir("MOXDEV_MODULE_DIR", module.path().c_str());
    moxdev::NAMING_DOCUMENTS documents;
    // A part, a device, a family by its name, forms for one device, one family and several devices.
    for (const std::string name : {"kxb100f484c6", "KXB100", "kestrel ii", "KXB100F484", "kxfamily2", "KXB100M"})
        EXPECT_EQ(documents.device_show(name), command_document("device show '" + name + "'")) << name;
    EXPECT_EQ(documents.device_show("KXB100M")["stands_for"].size(), 4u);
    for (const std::string name : {"kxb120f484i7", "KXB100M", "kxfamily2"})
        EXPECT_EQ(documents.name(name), command_document("name " + name)) << name;
    const DOCUMENT opn = documents.opn("KXB120F484I7");
    EXPECT_EQ(opn, command_document("opn KXB120F484I7"));
    EXPECT_EQ(documents.name("kxb120f484i7")["opn_enum"], opn["enum"]);
    EXPECT_EQ(documents.opn(std::to_string(opn["enum"].get<unsigned>())), opn);
    for (const std::string kind : {"spi", "NAND"})
        EXPECT_EQ(moxdev::hps_list_document(kind), command_document("hps list " + kind)) << kind;

    // The database stays loaded with the environment of its first use.
    const SCOPED_ENV elsewhere("MOXDEV_DEVICE_DB_DIR", "none");
    EXPECT_EQ(documents.device_show("KXB100")["record"]["pcf"], "kestrel2_kxb100");
    EXPECT_EQ(refusal([] { moxdev::NAMING_DOCUMENTS().device_show("KXB100"); }).kind(), QUERY_FAILURE::UNAVAILABLE);
}

TEST(NamingDocuments, RefusalsCarryTheCommandsMessageAndSuggestions)
{
    moxdev::NAMING_DOCUMENTS documents;
    const QUERY_ERROR unknown = refusal([&] { documents.device_show("kxb100f484c9"); });
    EXPECT_EQ(unknown.kind(), QUERY_FAILURE::NOT_FOUND);
    EXPECT_EQ(unknown.suggestions(),
              (std::vector<std::string>{"KXB10", "KXB100", "KXB100F484", "KXB100F484C6", "KXB100F484C7"}));
    EXPECT_EQ("moxdev: " + std::string(unknown.what()) + "\n", command_errors("device show kxb100f484c9", 1));

    const QUERY_ERROR no_form = refusal([&] { documents.name("NOSUCHTHING"); });
    EXPECT_EQ(no_form.kind(), QUERY_FAILURE::NOT_FOUND);
    EXPECT_TRUE(no_form.suggestions().empty());
    EXPECT_EQ("moxdev: " + std::string(no_form.what()) + "\n", command_errors("name NOSUCHTHING", 1));

    const QUERY_ERROR not_orderable = refusal([&] { documents.opn("kxb100f484c9"); });
    EXPECT_EQ(not_orderable.kind(), QUERY_FAILURE::NOT_FOUND);
    EXPECT_EQ(not_orderable.suggestions().front(), "KXB100F484C6");
    EXPECT_EQ(refusal([&] { documents.opn("0xZZ"); }).kind(), QUERY_FAILURE::INVALID_INPUT);

    const QUERY_ERROR bad_kind = refusal([] { moxdev::hps_list_document("usb"); });
    EXPECT_EQ(bad_kind.kind(), QUERY_FAILURE::INVALID_INPUT);
    EXPECT_STREQ(bad_kind.what(), "unknown flash kind 'usb' (nand or spi)");
}

TEST(NamingDocuments, HpsListWarnsOfADamagedParameterFileAsTheCommandDoes)
{
    const TEMP_DIR module;
    const SCOPED_ENV module_dir("MOXDEV_MODULE_DIR", module.path().c_str());
    write_text(module.file("mox_flash.ini"), "MOXDEV_FLASH_INI and then rubbish\n");
    std::vector<std::string> notes;
    const DOCUMENT parts = moxdev::hps_list_document("spi", [&](const std::string& text) { notes.push_back(text); });
    EXPECT_EQ(parts, command_document("hps list spi"));
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].rfind("warning: " + module.file("mox_flash.ini") + " cannot be read", 0), 0u) << notes[0];
    EXPECT_EQ("moxdev: " + notes[0] + "\n", command_errors("hps list spi --json", 0));
}
