// The flash verbs' documents, built from the answers of the flash queries
// (flash_queries.h) over the tables one FLASH_DOCUMENTS keeps.
#include "moxdev/flash_documents.h"

#include "moxdev/documents/flash_queries.h"
#include "moxdev/dump_text.h"
#include "moxdev/files.h"
#include "moxdev/text.h"

#include <absl/strings/str_split.h>
#include <fmt/format.h>

#include <optional>
#include <string_view>

namespace moxdev {

std::vector<BYTE> parse_id_bytes(const std::vector<std::string>& words)
{
    // A group of one or two digits is one byte, a longer group of an even
    // count is read two digits a byte.
    std::vector<BYTE> bytes;
    for (const std::string& word : words) {
        for (const absl::string_view group : absl::StrSplit(word, absl::ByAnyChar(" \t,:;"), absl::SkipEmpty())) {
            absl::string_view digits = group;
            if (digits.size() > 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X'))
                digits.remove_prefix(2);
            const bool hex = !digits.empty() && digits.find_first_not_of("0123456789abcdefABCDEF") == digits.npos;
            if (!hex || (digits.size() > 2 && digits.size() % 2 != 0))
                throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT,
                                  moxdev::quoted(std::string_view(group.data(), group.size())) +
                                      " is not a hex byte or a run of hex bytes (e.g. EF 40 18, EF4018 or "
                                      "0xEF,0x40,0x18)");
            const std::size_t step = digits.size() <= 2 ? digits.size() : 2;
            for (std::size_t i = 0; i < digits.size(); i += step)
                bytes.push_back(BYTE(std::stoul(std::string(digits.substr(i, step)), nullptr, 16)));
        }
    }
    if (bytes.empty() && !words.empty())
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, "no ID bytes were given (e.g. EF 40 18)");
    return bytes;
}

std::vector<BYTE> read_sfdp_dump(const std::string& content, const std::string& source)
{
    std::vector<BYTE> bytes;
    std::string error;
    if (!read_dump(content, "SFDP", MOXDEV_SFDP_MAX_BYTES, bytes, error))
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, source + ": " + error);
    return bytes;
}

std::vector<BYTE> read_sfdp_file(const std::string& path)
{
    constexpr std::size_t MAX_DUMP_TEXT = 16 * MOXDEV_SFDP_MAX_BYTES;
    std::vector<BYTE> content;
    std::string error;
    const bool read = path == "-" ? read_input_stream(0, MAX_DUMP_TEXT, content, error)
                                  : read_input_file(path, MAX_DUMP_TEXT, content, error);
    if (!read)
        throw QUERY_ERROR(QUERY_FAILURE::UNAVAILABLE,
                          "cannot read " + (path == "-" ? std::string("standard input") : "'" + path + "'") + ": " +
                              error);
    return read_sfdp_dump(std::string(content.begin(), content.end()), path);
}

namespace {

// A text that may be empty: null when it is.
DOCUMENT text_or_null(const std::string& text)
{
    return text.empty() ? DOCUMENT() : DOCUMENT(text);
}

// One record of a list or of a chip's records, under the index the text
// form shows for it.
DOCUMENT entry_json(FLASH_TABLES& tables, const MOXDEV_FLASH_MANAGER& manager, DWORD index, const DOCUMENT& shown_index)
{
    const FLASH_RECORD_STATE state = flash_record_state(manager, index);
    return {{"index", shown_index},
            {"user_defined", state.user},
            {"switch", text_or_null(state.switch_name)},
            {"usable", state.usable},
            {"record", flash_record_json(manager.get_flash_database()[index])},
            {"units", flash_units_json()},
            {"maxima_source", maxima_source_json(tables.record_source(manager, index))}};
}

template <class T>
DOCUMENT optional_json(const std::optional<T>& value)
{
    return value ? DOCUMENT(*value) : DOCUMENT();
}

// The facts of a decoded read.
DOCUMENT sfdp_json(const MOXDEV_SFDP& sfdp)
{
    DOCUMENT tables = DOCUMENT::array();
    for (const MOXDEV_SFDP_PARAMETER_HEADER& t : sfdp.tables)
        tables.push_back(fmt::format("{:04X}", t.id));
    DOCUMENT erase = DOCUMENT::array();
    for (const MOXDEV_SFDP_ERASE_TYPE& e : sfdp.erase_types)
        erase.push_back({{"type", e.type},
                         {"size", e.size},
                         {"opcode", e.opcode},
                         {"typical_ms", optional_json(e.typical_ms)},
                         {"max_ms", optional_json(e.max_ms)}});
    return {{"sfdp_revision", fmt::format("{}.{}", sfdp.major, sfdp.minor)},
            {"parameter_tables", tables},
            {"bfpt_dwords", sfdp.bfpt_dwords},
            {"address_bytes", sfdp_address_text(sfdp.address)},
            {"density_bits", sfdp.density_bits},
            {"page_size", optional_json(sfdp.page_size)},
            {"erase_types", erase},
            {"page_program_typical_us", optional_json(sfdp.page_program_typical_us)},
            {"page_program_max_us", optional_json(sfdp.page_program_max_us)},
            {"chip_erase_typical_ms", optional_json(sfdp.chip_erase_typical_ms)},
            {"chip_erase_max_ms", optional_json(sfdp.chip_erase_max_ms)},
            {"quad_enable", optional_json(sfdp.quad_enable)},
            {"read_1_1_4", sfdp.read_1_1_4},
            {"read_1_4_4", sfdp.read_1_4_4}};
}

} // namespace

DOCUMENT sfdp_document(const SFDP_EXAMINATION& examination)
{
    DOCUMENT document = sfdp_json(examination.sfdp);
    document["record"] = flash_record_json(examination.derived.record);
    document["units"] = flash_units_json();
    const MAXIMA_SOURCE source = sfdp_maxima_source(examination.derived.assumed);
    document["maxima_source"] = maxima_source_json(&source);
    document["assumed"] = examination.derived.assumed;
    document["warnings"] = examination.warnings;
    if (examination.known) {
        document["table_record"] = examination.known->device_name;
        DOCUMENT list = DOCUMENT::array();
        for (const SFDP_DIFFERENCE& d : examination.differences)
            list.push_back({{"field", d.field}, {"table", d.table}, {"sfdp", d.sfdp}});
        document["differences"] = list;
    }
    if (examination.definition)
        document["definition"] = *examination.definition;
    return document;
}

// What one FLASH_DOCUMENTS has read: the tables, each on first use.
struct FLASH_DOCUMENTS::STATE {
    explicit STATE(NOTE_SINK notes) : tables(std::move(notes)) {}
    FLASH_TABLES tables;
};

FLASH_DOCUMENTS::FLASH_DOCUMENTS(NOTE_SINK notes) : m_notes(std::move(notes)), m_state(std::make_unique<STATE>(m_notes))
{}

FLASH_DOCUMENTS::~FLASH_DOCUMENTS() = default;

FLASH_TABLES& flash_tables(FLASH_DOCUMENTS& documents)
{
    return documents.m_state->tables;
}

DOCUMENT FLASH_DOCUMENTS::identify(const std::vector<BYTE>& id_bytes, bool silicon_id, const std::vector<BYTE>* sfdp)
{
    const FLASH_IDENTIFICATION found = identify_flash(m_state->tables, id_bytes, silicon_id, sfdp);
    return {{"id_bytes", id_bytes},        {"silicon_id", silicon_id},
            {"record_index", found.index}, {"user_defined", found.user},
            {"from_sfdp", found.derived},  {"record", flash_record_json(found.record)},
            {"units", flash_units_json()}, {"maxima_source", maxima_source_json(found.source_or_null())}};
}

DOCUMENT FLASH_DOCUMENTS::show(const std::string& name)
{
    const FLASH_CHIP chip = find_flash_chip(m_state->tables, name);
    DOCUMENT entries = DOCUMENT::array();
    for (const FLASH_CHIP::RECORD& record : chip.records)
        entries.push_back(entry_json(m_state->tables, *chip.table, record.index, optional_json(record.usable_index)));
    return entries;
}

DOCUMENT FLASH_DOCUMENTS::list(const FLASH_LIST_FILTER& filter)
{
    const FLASH_LISTING listing = list_flash_records(m_state->tables, filter);
    DOCUMENT entries = DOCUMENT::array();
    for (DWORD index : listing.records)
        entries.push_back(entry_json(m_state->tables, *listing.table, index, index));
    return entries;
}

DOCUMENT FLASH_DOCUMENTS::sfdp(const std::vector<BYTE>& sfdp, const std::vector<BYTE>& id_bytes,
                               const std::string& name)
{
    check_derived_record_name(name);
    return sfdp_document(examine_sfdp(m_state->tables, decode_sfdp_read(sfdp), id_bytes, name, false));
}

} // namespace moxdev
