// The two kinds of HPS flash part as people name them, and the warning the
// listings share. Not installed: the library's and the command's own.
#pragma once

#include "moxdev/documents.h"
#include "moxdev/hps.h"

#include "host/gen_string.h"

#include <string>

namespace moxdev {

// Runs `action` with the HPS_KIND that `name` names: "nand" or "spi",
// letter case ignored. INVALID_INPUT for another name.
template <class ACTION>
void with_hps_kind(const std::string& name, ACTION action)
{
    if (gen_stricmp(name, "nand") == 0)
        action(HPS_KIND<MOXDEV_HPS_NAND_STRUCTURE>{});
    else if (gen_stricmp(name, "spi") == 0)
        action(HPS_KIND<MOXDEV_HPS_SPI_STRUCTURE>{});
    else
        throw QUERY_ERROR(QUERY_FAILURE::INVALID_INPUT, "unknown flash kind '" + name + "' (nand or spi)");
}

// Warns on `notes` when the parameter file is there but cannot be read:
// its user parts are then not listed, and the next change keeps it under
// another name.
void warn_if_parameter_file_damaged(const NOTE_SINK& notes);

} // namespace moxdev
