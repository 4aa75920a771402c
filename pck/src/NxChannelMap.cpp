#include "NxChannelMap.h"

#include <algorithm>
#include <sstream>

t_NxChannelMapType NxChannelMap::m_nxCanChannelMap;

std::string NxChannelMap::Key(const std::string& first, const std::string& second, const std::string& third)
{
    return first + "::" + second + "::" + third;
}

void NxChannelMap::InsertBlockName(const VELDString& blockName, const std::string& first, const std::string& second,
                                   const std::string& third)
{
    if (third == "Custom channel") return;
    std::string key = Key(first, second, third);
    auto entry = m_nxCanChannelMap.lower_bound(key);
    if (entry == m_nxCanChannelMap.end() || entry->first != key) {
        m_nxCanChannelMap.emplace_hint(entry, key, std::vector<VELDString>{blockName});
        return;
    }
    std::vector<VELDString>& names = entry->second;
    if (std::find(names.begin(), names.end(), blockName) == names.end()) names.push_back(blockName);
}

void NxChannelMap::RemoveBlockName(const VELDString& blockName, const std::string& first, const std::string& second,
                                   const std::string& third)
{
    auto entry = m_nxCanChannelMap.find(Key(first, second, third));
    if (entry == m_nxCanChannelMap.end()) return;
    std::vector<VELDString>& names = entry->second;
    auto name = std::find(names.begin(), names.end(), blockName);
    if (name == names.end()) return;
    names.erase(name);
    if (names.empty()) m_nxCanChannelMap.erase(entry);
}

std::vector<VELDString> NxChannelMap::GetBlockNames(const VELDString& first, const VELDString& second,
                                                    const VELDString& third)
{
    auto entry = m_nxCanChannelMap.find(Key(first.Beginning(), second.Beginning(), third.Beginning()));
    if (entry == m_nxCanChannelMap.end()) return {};
    return entry->second;
}

std::string NxChannelMap::ToString(std::vector<VELDString> names)
{
    std::ostringstream text;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (i > 0) text << ",";
        text << names[i].Beginning();
    }
    return text.str();
}
