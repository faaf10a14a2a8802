#include "moxdev/naming_documents.h"

#include "moxdev/documents/naming_queries.h"
#include "moxdev/moxdev_mgr.h"

namespace moxdev {

namespace {

// A catalogue value under `key`, its identifier under "<key>_name".
template <class VALUE>
void add_value(DOCUMENT& document, const std::string& key, VALUE value, const std::string& identifier)
{
    document[key] = int(value);
    document[key + "_name"] = null_if_empty(identifier);
}

// What was asked for: the part, device or family with its names.
void add_shown(DOCUMENT& document, const DEVICE_ANSWER& answer)
{
    if (answer.part != DEV_PART_INVALID) {
        document.update({{"kind", "part"},
                         {"value", answer.part},
                         {"name", dstr_get_part_identifier(answer.part)},
                         {"display_name", dstr_get_user_string(answer.part)}});
        add_value(document, "device", answer.device, dstr_get_identifier(answer.device));
        add_value(document, "family", answer.family, dstr_get_identifier(answer.family));
    } else if (answer.device != DEV_DEVICE_INVALID) {
        document.update({{"kind", "device"},
                         {"value", int(answer.device)},
                         {"name", dstr_get_identifier(answer.device)},
                         {"display_name", dstr_get_user_string(answer.device)}});
        add_value(document, "family", answer.family, dstr_get_identifier(answer.family));
    } else {
        document.update({{"kind", "family"},
                         {"value", int(answer.family)},
                         {"name", dstr_get_identifier(answer.family)},
                         {"display_name", dstr_get_user_string(answer.family)}});
    }
}

// A group form: each family or device it stands for, with its record.
DOCUMENT targets_document(const std::string& typed, const DEVICE_ANSWER& answer)
{
    DOCUMENT entries = DOCUMENT::array();
    for (const SERVED_VALUE& value : answer.served)
        entries.push_back({{"kind", value.kind},
                           {"value", value.value},
                           {"name", value.identifier},
                           {"display_name", value.display_name},
                           {"record_index", value.served ? DOCUMENT(value.index) : DOCUMENT()},
                           {"record_pcf", value.served ? DOCUMENT(value.pcf) : DOCUMENT()}});
    return {{"query", typed},
            {"form", answer.targets.form},
            {"kind", answer.targets.devices.empty() ? "families" : "devices"},
            {"stands_for", entries}};
}

} // namespace

struct NAMING_DOCUMENTS::STATE {
    NAMING_QUERIES queries;
};

NAMING_DOCUMENTS::NAMING_DOCUMENTS(NOTE_SINK notes) : m_notes(std::move(notes)) {}

NAMING_DOCUMENTS::~NAMING_DOCUMENTS() = default;

DOCUMENT NAMING_DOCUMENTS::device_show(const std::string& typed)
{
    if (!m_state)
        m_state = std::make_unique<STATE>();
    const DEVICE_ANSWER answer = m_state->queries.device(typed);
    if (answer.several())
        return targets_document(typed, answer);
    DOCUMENT document = {{"query", typed}};
    add_shown(document, answer);
    if (!answer.form.empty())
        document["form"] = answer.form;
    document["record_index"] = answer.record ? DOCUMENT(answer.index) : DOCUMENT();
    document["record"] = answer.record ? device_record_json(*answer.record) : DOCUMENT();
    return document;
}

DOCUMENT NAMING_DOCUMENTS::name(const std::string& typed)
{
    if (!m_state)
        m_state = std::make_unique<STATE>();
    const NAME_ANSWER answer = m_state->queries.name(typed);
    const NAME_FORMS& forms = answer.forms;
    const std::string& full = forms.full;
    DOCUMENT document = {{"name", answer.name},
                         {"full_ordering_name", null_if_empty(full)},
                         {"name_without_speed_grade", null_if_empty(forms.package)},
                         {"device_name", null_if_empty(forms.device)},
                         {"family", null_if_empty(forms.family)},
                         {"programmer_part", null_if_empty(forms.programmer_part)},
                         {"programmer_family", null_if_empty(forms.programmer_family)},
                         {"catalogue_configuration", null_if_empty(forms.configuration)},
                         {"catalogue_family", null_if_empty(forms.catalogue_family)},
                         {"opn_enum", full.empty() ? DOCUMENT() : DOCUMENT(MOXDEV_MGR::get_opn_enum(full))},
                         {"opn_hash", full.empty() ? DOCUMENT() : DOCUMENT(MOXDEV_MGR::get_opn_hash(full))},
                         {"use_full_name", answer.use_full_name},
                         {"use_package_name", answer.use_package_name}};
    if (!answer.targets.form.empty()) {
        DOCUMENT devices = DOCUMENT::array(), families = DOCUMENT::array();
        for (const DEV_DEVICE_ENUM device : answer.targets.devices)
            devices.push_back(dstr_get_identifier(device));
        for (const DEV_FAMILY_ENUM family : answer.targets.families)
            families.push_back(dstr_get_identifier(family));
        document["form"] = answer.targets.form;
        document["stands_for"] = {{"devices", devices}, {"families", families}};
    }
    return document;
}

DOCUMENT NAMING_DOCUMENTS::opn(const std::string& opn)
{
    const OPN_ANSWER answer = resolve_opn(opn);
    return {{"opn", answer.opn},
            {"enum", answer.has_enum() ? DOCUMENT(answer.opn_enum) : DOCUMENT()},
            {"hash", answer.hash}};
}

} // namespace moxdev
