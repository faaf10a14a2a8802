#include "moxdev/parameter_file.h"

#include "moxdev/hps/moxdev_parameter_container.h"
#include "moxdev/internal/moxdev_file_store.h"

#include "host/fio.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace moxdev {

using namespace detail;

namespace {

// A name beside `path` that says the file was damaged, unused so far.
std::string damaged_name(const std::string& path)
{
    const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    localtime_r(&now, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y%m%d-%H%M%S", &local);
    std::string name = path + ".damaged-" + stamp;
    for (int n = 2; FIO_FILE_SYSTEM::exists(name.c_str()); ++n)
        name = path + ".damaged-" + stamp + "-" + std::to_string(n);
    return name;
}

} // namespace

std::string parameter_file_path()
{
    return detail::parameter_file_path();
}

PARAMETER_FILE_STATE parameter_file_state()
{
    std::vector<BYTE> file;
    std::string error;
    const READ_RESULT read = read_parameter_file(detail::parameter_file_path(), file, error);
    if (read == READ_RESULT::MISSING)
        return PARAMETER_FILE_STATE::MISSING;
    std::vector<std::pair<DWORD, DWORD>> entries;
    return read == READ_RESULT::READ && parse_parameter_container(file, entries, true) ? PARAMETER_FILE_STATE::VALID
                                                                                       : PARAMETER_FILE_STATE::DAMAGED;
}

bool update_parameter_set(MOXDEV_FLASH_INI_ENUM set,
                          const std::function<bool(std::vector<BYTE>&, std::string&)>& change, std::string& error,
                          std::string* moved_aside, DWORD lock_timeout_ms)
{
    error.clear();
    if (moved_aside != nullptr)
        moved_aside->clear();
    if (DWORD(set) >= PARAMETER_SET_COUNT) {
        error = "no data set " + std::to_string(DWORD(set));
        return false;
    }
    const std::string path = detail::parameter_file_path();
    const MOXDEV_FILE_LOCK lock(path + ".lock", lock_timeout_ms);
    if (!lock.held()) {
        error = lock.error();
        return false;
    }
    moxdev_remove_stale_temporaries(path);

    // Read under the lock, so that no other writer's change is between this
    // read and the replacement.
    std::vector<std::vector<BYTE>> sets(PARAMETER_SET_COUNT);
    std::vector<BYTE> file;
    std::string problem;
    const READ_RESULT read = read_parameter_file(path, file, problem);
    std::vector<std::pair<DWORD, DWORD>> entries;
    if (read == READ_RESULT::NOT_A_FILE || read == READ_RESULT::FAILED) {
        // Not a file of the user's (a directory, FIFO or device, a link loop),
        // or one the system does not let us read: nothing to keep aside, and
        // nothing to replace.
        error = problem;
        return false;
    }
    if (read == READ_RESULT::READ && parse_parameter_container(file, entries, true)) {
        for (DWORD i = 0; i < PARAMETER_SET_COUNT && i < entries.size(); ++i)
            sets[i].assign(file.begin() + entries[i].first, file.begin() + entries[i].first + entries[i].second);
    } else if (read != READ_RESULT::MISSING) {
        // Nothing the user had is thrown away: a file that does not read as a
        // container (or is larger than one can be) is kept under a name that
        // says so before a new one takes its place.
        const std::string aside = damaged_name(path);
        if (std::rename(path.c_str(), aside.c_str()) != 0) {
            error = "cannot move the damaged " + path + " aside: " + std::strerror(errno);
            return false;
        }
        if (moved_aside != nullptr)
            *moved_aside = aside;
    }
    if (!change(sets[DWORD(set)], error))
        return false;
    return moxdev_replace_file(path, parameter_container_bytes(sets), error);
}

} // namespace moxdev
