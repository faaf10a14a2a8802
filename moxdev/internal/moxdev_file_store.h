// Replacing a file so that nothing is lost: one writer at a time, and a crash
// at any moment leaves the old file or the new one, never a mixture.
//
// MOXDEV_FILE_LOCK is an advisory, exclusive lock on a lock file beside the
// data (flock(2)); every writer of that data takes it, readers need not,
// since a replacement is a rename. moxdev_replace_file() writes the new bytes
// to a temporary file of a unique name in the same directory, flushes them to
// the disk, renames the temporary file over the old one and flushes the
// directory, so that the rename itself survives a power loss.
#pragma once

#include "host/host_types.h"

#include <functional>
#include <string>
#include <vector>

class MOXDEV_FILE_LOCK {
public:
    // Waits at most `timeout_ms` for the lock on `path` (created if missing).
    MOXDEV_FILE_LOCK(const std::string& path, DWORD timeout_ms);
    ~MOXDEV_FILE_LOCK();
    MOXDEV_FILE_LOCK(const MOXDEV_FILE_LOCK&) = delete;
    MOXDEV_FILE_LOCK& operator=(const MOXDEV_FILE_LOCK&) = delete;

    bool held() const { return m_fd >= 0; }
    // Why the lock is not held.
    const std::string& error() const { return m_error; }

private:
    int m_fd = -1;
    std::string m_error;
};

// Replaces `path` with `bytes` as described above. On failure returns false
// with a readable `error`, and `path` is as it was (a temporary file is
// removed). `created`, when given, tells whether the temporary file could be
// made at all.
bool moxdev_replace_file(const std::string& path, const std::vector<BYTE>& bytes, std::string& error,
                         bool* created = nullptr);

// Replaces `path` with the file that `write` writes at the name it is given:
// a new, empty temporary file of a unique name beside `path`. The temporary
// file is then flushed to the disk and renamed over `path` as above. If
// `write` throws, the temporary file is removed and the exception goes on.
// False, with `error`, when the temporary file cannot be made, flushed or
// renamed; `path` is then as it was.
bool moxdev_replace_file_by(const std::string& path, const std::function<void(const std::string&)>& write,
                            std::string& error);

// The prefix of the temporary files moxdev_replace_file() makes for `path`.
std::string moxdev_temporary_prefix(const std::string& path);

// Removes the temporary files that writers of `path` left behind when they
// were killed. Only a writer holding the lock may call it.
void moxdev_remove_stale_temporaries(const std::string& path);
