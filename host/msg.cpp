#include "host/msg.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

std::string unit_of(const std::string& path)
{
    std::string unit = path;
    const auto slash = unit.find_last_of("/\\");
    if (slash != std::string::npos)
        unit.erase(0, slash + 1);
    const auto dot = unit.find('.');
    if (dot != std::string::npos)
        unit.erase(dot);
    return unit;
}

} // namespace

MSG_INTERNAL_ERROR::MSG_INTERNAL_ERROR(std::string condition, std::string module, std::string unit, int line)
    : m_condition(std::move(condition)), m_module(std::move(module)), m_unit(unit_of(unit)), m_line(line)
{
    m_what = "internal error in " + m_module + " " + m_unit + ":" + std::to_string(m_line) + ": " + m_condition;
}

void MSG_INTERNAL_ERROR::report(const std::string& condition, const std::string& module, const std::string& unit,
                                int line)
{
    throw MSG_INTERNAL_ERROR(condition, module, unit, line);
}

bool msg_local_debug_on(int level)
{
    const char* setting = std::getenv("MOXDEV_DEBUG_LEVEL");
    if (setting == nullptr || *setting == '\0')
        return false;
    char* end = nullptr;
    const long threshold = std::strtol(setting, &end, 10);
    return *end == '\0' && threshold >= level;
}

void msg_local_debug(int level, const std::string& module, const std::string& text)
{
    if (!msg_local_debug_on(level))
        return;
    std::fprintf(stderr, "[%s] %s", module.c_str(), text.c_str());
    if (text.empty() || text.back() != '\n')
        std::fputc('\n', stderr);
}
