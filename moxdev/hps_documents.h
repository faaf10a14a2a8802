// The HPS verbs' answers as documents (see moxdev/documents.h): what
// `moxdev hps list KIND --json` prints.
#pragma once

#include "moxdev/documents.h"

#include <string>

namespace moxdev {

// `hps list KIND`: the flash parts of `kind` ("nand" or "spi", letter case
// ignored), the user's first. INVALID_INPUT for another kind.
DOCUMENT hps_list_document(const std::string& kind, const NOTE_SINK& notes = {});

} // namespace moxdev
