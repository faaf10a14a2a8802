#include "host/mox_common.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>

#ifndef MOXDEV_DEFAULT_NOTICES_FILE
#define MOXDEV_DEFAULT_NOTICES_FILE "moxdev-notices.txt"
#endif

bool MOX_COMMON::convert_string_to_dword(const std::string& text, DWORD& value)
{
    std::size_t pos = 0;
    unsigned base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        pos = 2;
    }
    if (pos >= text.size())
        return false;
    QWORD result = 0;
    for (; pos < text.size(); ++pos) {
        const char c = text[pos];
        unsigned digit;
        if (c >= '0' && c <= '9')
            digit = static_cast<unsigned>(c - '0');
        else if (base == 16 && c >= 'a' && c <= 'f')
            digit = static_cast<unsigned>(c - 'a' + 10);
        else if (base == 16 && c >= 'A' && c <= 'F')
            digit = static_cast<unsigned>(c - 'A' + 10);
        else
            return false;
        result = result * base + digit;
        if (result > 0xFFFFFFFFull)
            return false;
    }
    value = static_cast<DWORD>(result);
    return true;
}

bool MOX_COMMON::send_auto_email_file(const std::string& recipients, const std::string& subject,
                                      const std::string& body)
{
    std::fprintf(stderr, "notice: %s\n%s", subject.c_str(), body.c_str());
    const char* configured = std::getenv("MOXDEV_NOTICES_FILE");
    const std::string path =
        configured != nullptr && *configured != '\0' ? configured : MOXDEV_DEFAULT_NOTICES_FILE;
    std::ofstream out(path, std::ios::app);
    if (!out)
        return false;
    out << "To: " << recipients << "\nSubject: " << subject << "\n\n" << body << "\n";
    return static_cast<bool>(out.flush());
}
