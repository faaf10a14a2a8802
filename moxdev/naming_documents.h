// The naming and device verbs' answers as documents (see
// moxdev/documents.h): what `moxdev device show`, `name` and `opn` print
// with --json.
#pragma once

#include "moxdev/documents.h"

#include <string>

namespace moxdev {

// `device show NAME`: the record that serves a family, device or part.
DOCUMENT device_show_document(const std::string& name, const NOTE_SINK& notes = {});

// `name NAME`: every form of a device name.
DOCUMENT name_document(const std::string& name, const NOTE_SINK& notes = {});

// `opn OPN`: an ordering part number, its OPN enum and its OPN hash.
DOCUMENT opn_document(const std::string& opn, const NOTE_SINK& notes = {});

} // namespace moxdev
