// The naming and device verbs' answers as documents (see
// moxdev/documents.h): what `moxdev device show`, `name` and `opn` print
// with --json.
#pragma once

#include "moxdev/documents.h"

#include <memory>
#include <string>

namespace moxdev {

// The device and naming verbs' documents over the device database and the
// naming images, read on first use and kept with the environment as it is
// then (MOXDEV_DEVICE_DB_DIR, MOXDEV_INSTALL_DIR): the command makes one per
// run, the Python module one per process. Not for use from several threads
// at once.
class NAMING_DOCUMENTS {
public:
    explicit NAMING_DOCUMENTS(NOTE_SINK notes = {});
    ~NAMING_DOCUMENTS();
    NAMING_DOCUMENTS(const NAMING_DOCUMENTS&) = delete;
    NAMING_DOCUMENTS& operator=(const NAMING_DOCUMENTS&) = delete;

    // `device show NAME`: the record that serves a family, device or part.
    DOCUMENT device_show(const std::string& name);
    // `name NAME`: every form of a device name.
    DOCUMENT name(const std::string& name);
    // `opn OPN`: an ordering part number, its OPN enum and its OPN hash.
    DOCUMENT opn(const std::string& opn);

private:
    struct STATE;
    NOTE_SINK m_notes;
    std::unique_ptr<STATE> m_state;
};

} // namespace moxdev
