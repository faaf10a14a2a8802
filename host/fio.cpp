#include "host/fio.h"

#include <sys/stat.h>

bool FIO_FILE_SYSTEM::exists(const char* path)
{
    struct stat st;
    return path != nullptr && ::stat(path, &st) == 0;
}

bool FIO_FILE_SYSTEM::status(const char* path, FIO_STAT* info)
{
    struct stat st;
    if (path == nullptr || info == nullptr || ::stat(path, &st) != 0)
        return false;
    info->size = static_cast<QWORD>(st.st_size);
    info->is_regular_file = S_ISREG(st.st_mode);
    return true;
}
