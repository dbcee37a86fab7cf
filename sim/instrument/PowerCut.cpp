#include "PowerCut.h"

#include "ControlText.h"

#include <cerrno>

namespace sim {

bool PowerCut::lineChange()
{
    if (!m_off && m_after && m_changes >= *m_after)
        m_off = true;
    if (m_off)
        return false;
    ++m_changes;
    return true;
}

std::string PowerCut::text() const
{
    std::string text = "changes " + std::to_string(m_changes) + "\n";
    if (m_after)
        text += (m_off ? "cut " : "armed ") + std::to_string(*m_after) + "\n";
    return text;
}

int PowerCut::write(std::string_view text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.remove_suffix(1);
    if (text == "off") {
        m_after.reset();
        return 0;
    }
    constexpr std::string_view after = "after ";
    if (text.substr(0, after.size()) != after)
        return -EINVAL;
    const auto n = parseNumber(text.substr(after.size()));
    if (!n)
        return -EINVAL;
    m_after = *n;
    return 0;
}

void PowerCut::reset()
{
    *this = PowerCut();
}

} // namespace sim
