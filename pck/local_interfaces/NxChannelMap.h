// Which blocks of the process have selected which bus channel, so that a
// component can tell its user at once that a channel is taken. Names only,
// in memory; no hardware is touched.
//
// A key is "<first>::<second>::<third>": the component's model name, the
// address and the channel text. CAN and Ethernet entries share the map. An
// entry exists only while its list holds a name. There is no lock: property
// changes and component destruction reach the map from the engine's threads
// one at a time.
#ifndef NX_CHANNEL_MAP_H
#define NX_CHANNEL_MAP_H

#include <map>
#include <string>
#include <vector>

#include "veld_string.h"

typedef std::map<std::string, std::vector<VELDStackedString<40>>> t_NxChannelMapType;

class NxChannelMap {
public:
    // A channel typed in by hand ("Custom channel") is not tracked.
    static void InsertBlockName(const VELDString& blockName, const std::string& first, const std::string& second,
                                const std::string& third);
    static void RemoveBlockName(const VELDString& blockName, const std::string& first, const std::string& second,
                                const std::string& third);
    // The blocks in order of insertion; empty when there is no entry.
    static std::vector<VELDString> GetBlockNames(const VELDString& first, const VELDString& second,
                                                 const VELDString& third);
    // The names joined by ",", without blanks.
    static std::string ToString(std::vector<VELDString> names);

private:
    static std::string Key(const std::string& first, const std::string& second, const std::string& third);

    static t_NxChannelMapType m_nxCanChannelMap;
};

#endif
