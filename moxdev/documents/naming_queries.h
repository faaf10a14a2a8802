// The device and naming queries behind `moxdev device show`, `name` and
// `opn`: what a typed name stands for, every form of it, the record that
// serves it, and OPN conversion. NAMING_DOCUMENTS turns the answers into
// documents; the command prints them as text. Not installed: the library's
// and the command's own.
#pragma once

#include "moxdev/documents.h"
#include "moxdev/moxdev_ddb_mgr.h"
#include "moxdev/moxdev_dev_info_manager.h"

#include "host/dev_catalogue.h"
#include "host/host_types.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace moxdev {

// A text that may be empty as a document value: null when empty.
inline DOCUMENT null_if_empty(const std::string& text)
{
    return text.empty() ? DOCUMENT() : DOCUMENT(text);
}

// A typed name, trimmed and upper-cased.
std::string normalised_name(std::string name);

// "Generic" for the generic family or device, else the catalogue's user name.
std::string family_display_name(DEV_FAMILY_ENUM family);
std::string device_display_name(DEV_DEVICE_ENUM device);

// A device record's fields under their names; catalogue and option values
// with their identifiers beside them.
DOCUMENT device_record_json(const MOXDEV_DEVICE_INFO& record);

// Refuses (UNAVAILABLE) a device database file that is missing or cannot be
// read, naming the file: the manager would take it for a damaged
// installation.
void require_device_database();

// The devices or families a name form of the naming grammar stands for.
struct NAME_TARGETS {
    std::string form;                      // what kind of name it is, "" when none of these
    std::vector<DEV_FAMILY_ENUM> families; // a family-level form stands for these
    std::vector<DEV_DEVICE_ENUM> devices;  // a device-level form stands for these
};

// Every name form of one name, "" where none is known.
struct NAME_FORMS {
    std::string full, package, device, family, programmer_part, programmer_family, configuration, catalogue_family;
    bool empty() const
    {
        return full.empty() && package.empty() && device.empty() && programmer_part.empty() && family.empty();
    }
};

// `name NAME`: the forms of the name and, for a form that stands for
// several devices or families, those (targets.form is "" otherwise).
struct NAME_ANSWER {
    std::string name; // trimmed and upper-cased
    NAME_FORMS forms;
    NAME_TARGETS targets;
    bool use_full_name = false;
    bool use_package_name = false;
};

// A family or device that a group form given to `device show` stands for,
// and the record that serves it.
struct SERVED_VALUE {
    const char* kind; // "family" or "device"
    int value;
    std::string identifier;
    std::string display_name;
    bool served; // whether a record serves it: then index and pcf are its
    DWORD index;
    std::string pcf;
};

// `device show NAME`: either the one part, device or family the name stands
// for (its device and family filled in) with the record that serves it, or,
// for a form that stands for several, each of them.
struct DEVICE_ANSWER {
    std::string name; // trimmed and upper-cased
    int part = DEV_PART_INVALID;
    DEV_DEVICE_ENUM device = DEV_DEVICE_INVALID;
    DEV_FAMILY_ENUM family = DEV_FAMILY_INVALID;
    std::string form; // the name form it was given in, "" for the catalogue's own name
    DWORD index = INVALID_DWORD;
    std::unique_ptr<MOXDEV_DEVICE_INFO> record; // null when no record serves it

    // A group form: its targets, each with its record.
    NAME_TARGETS targets;
    std::vector<SERVED_VALUE> served;
    bool several() const { return !served.empty(); }
};

// `opn OPN`: an ordering part number with its OPN enum and hash.
struct OPN_ANSWER {
    std::string opn;
    DWORD opn_enum; // 0xFFFFFFFF when the OPN has none
    QWORD hash;
    bool has_enum() const { return opn_enum != 0xFFFFFFFFu; }
};

// NOT_FOUND: `message`, then the known names closest to `typed` offered
// ("did you mean ...") and given as the error's suggestions.
QUERY_ERROR name_not_found(const std::string& message, const std::string& typed, const std::vector<std::string>& known);

// The OPN that `text` names: an OPN enum (decimal), an OPN hash (0x...) or
// an ordering name. INVALID_INPUT for a hash that is not hex, NOT_FOUND for
// an enum, hash or name that no OPN has.
OPN_ANSWER resolve_opn(const std::string& text);

// The queries over the naming grammar image and the device database, each
// read on first use and kept. Not for use from several threads at once.
class NAMING_QUERIES {
public:
    // The devices or families a grammar form stands for: a name without
    // speed grade, a catalogue configuration, a programmer part, a programmer
    // or catalogue family key, a family name or a family configuration.
    NAME_TARGETS resolve_name_form(const std::string& name);
    // Every name a device, part or family question may be answered for:
    // the catalogue's names and the grammar's name forms, shorter forms first.
    const std::vector<std::string>& known_device_names();
    // NOT_FOUND, with the closest known names, when no form is known.
    NAME_ANSWER name(const std::string& typed);
    // UNAVAILABLE without a readable device database; NOT_FOUND, with the
    // closest known names, for a name that stands for nothing.
    DEVICE_ANSWER device(const std::string& typed);

private:
    const std::vector<std::string>* entry(MOXDEV_DDB_GRAMMAR_ENUM which, const std::string& key);
    const std::map<std::string, std::vector<std::string>>& table(MOXDEV_DDB_GRAMMAR_ENUM which);
    std::vector<DEV_DEVICE_ENUM> devices_of_programmer_part(const std::string& part);
    NAME_FORMS group_forms(const std::string& name, const NAME_TARGETS& targets);
    MOXDEV_DEV_INFO_MANAGER& devices();
    bool resolve_shown_name(const std::string& typed, DEVICE_ANSWER& answer);
    void serve_targets(DEVICE_ANSWER& answer);

    std::optional<MOXDEV_GRAMMAR_TABLES> m_tables;
    std::vector<std::string> m_known_names;
    std::optional<MOXDEV_DEV_INFO_MANAGER> m_devices;
};

} // namespace moxdev
