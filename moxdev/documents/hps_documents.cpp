#include "moxdev/hps_documents.h"

#include "moxdev/documents/hps_kinds.h"
#include "moxdev/parameter_file.h"

namespace moxdev {

namespace {

// The parameters of `record` under their names.
template <class RECORD>
DOCUMENT record_json(const HPS_KIND<RECORD>& kind, const RECORD& record)
{
    DOCUMENT fields = DOCUMENT::object();
    for (DWORD p = 0; p < RECORD::PARAMS; ++p) {
        const void* value = record.param[p];
        DOCUMENT& field = fields[kind.parameters()[p].name];
        switch (RECORD::TYPES[p]) {
        case MOXDEV_PARAM_STRING: field = *static_cast<const std::string*>(value); break;
        case MOXDEV_PARAM_BOOL: field = *static_cast<const bool*>(value); break;
        case MOXDEV_PARAM_BYTE: field = unsigned(*static_cast<const BYTE*>(value)); break;
        case MOXDEV_PARAM_WORD: field = *static_cast<const WORD*>(value); break;
        case MOXDEV_PARAM_DWORD: field = *static_cast<const DWORD*>(value); break;
        case MOXDEV_PARAM_QWORD: field = *static_cast<const QWORD*>(value); break;
        }
    }
    return fields;
}

template <class RECORD>
DOCUMENT list_document(const HPS_KIND<RECORD>& kind)
{
    const auto& records = kind.manager()->get_list();
    const std::size_t users = kind.manager()->get_user_list().size();
    DOCUMENT entries = DOCUMENT::array();
    for (std::size_t i = 0; i < records.size(); ++i)
        entries.push_back({{"index", i}, {"user_defined", i < users}, {"record", record_json(kind, *records[i])}});
    return entries;
}

} // namespace

void warn_if_parameter_file_damaged(const NOTE_SINK& notes)
{
    if (parameter_file_state() == PARAMETER_FILE_STATE::DAMAGED && notes)
        notes("warning: " + parameter_file_path() +
              " cannot be read, so no user part of it is listed; the next change keeps it as " + parameter_file_path() +
              ".damaged-<time>");
}

DOCUMENT hps_list_document(const std::string& kind, const NOTE_SINK& notes)
{
    DOCUMENT document;
    with_hps_kind(kind, [&](const auto& flash_kind) {
        warn_if_parameter_file_damaged(notes);
        document = list_document(flash_kind);
    });
    return document;
}

} // namespace moxdev
