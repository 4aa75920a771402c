#include "sim_config.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>

#include "operation_names.h"

namespace nxsim {

namespace {

std::string Trim(const std::string& s)
{
    const auto begin = s.find_first_not_of(" \t\r");
    if (begin == std::string::npos)
        return {};
    const auto end = s.find_last_not_of(" \t\r");
    return s.substr(begin, end - begin + 1);
}

bool ParseUnsigned(const std::string& text, uint64_t max, uint64_t& out)
{
    if (text.empty() || text[0] == '-')
        return false;
    errno = 0;
    char* end = nullptr;
    const unsigned long long v = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || v > max)
        return false;
    out = v;
    return true;
}

bool ParseSigned(const std::string& text, int64_t& out)
{
    if (text.empty())
        return false;
    errno = 0;
    char* end = nullptr;
    const long long v = std::strtoll(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0')
        return false;
    out = v;
    return true;
}

bool ParseAddress(const std::string& text, uint32_t& out)
{
    in_addr addr{};
    if (inet_pton(AF_INET, text.c_str(), &addr) != 1)
        return false;
    out = addr.s_addr;
    return true;
}

bool ParseMac(const std::string& text, uint8_t* mac)
{
    unsigned v[6];
    char tail = 0;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &tail) != 6)
        return false;
    for (int i = 0; i < 6; ++i)
        mac[i] = static_cast<uint8_t>(v[i]);
    return true;
}

bool ParseBool(const std::string& text, bool& out)
{
    if (text == "true" || text == "yes" || text == "1") {
        out = true;
        return true;
    }
    if (text == "false" || text == "no" || text == "0") {
        out = false;
        return true;
    }
    return false;
}

bool ParseAddresses(const std::string& value, std::vector<uint32_t>& out, std::string& bad)
{
    std::istringstream is(value);
    std::string item;
    while (std::getline(is, item, ',')) {
        uint32_t addr = 0;
        if (!ParseAddress(Trim(item), addr)) {
            bad = Trim(item);
            return false;
        }
        out.push_back(addr);
    }
    return true;
}

struct Parser {
    Parser(Config& c, const std::string& s, std::string& e, BitRateCheck check)
        : cfg(c), source(s), error(e), rateCheck(check)
    {
    }

    Config& cfg;
    const std::string& source;
    std::string& error;
    BitRateCheck rateCheck;
    int line = 0;
    enum class Section { Global, Bus, Channel, Interface, Fault } section = Section::Global;
    std::vector<std::string> channelBusNames;  // per channel in cfg.channels, as written
    bool topologyGiven = false;
    bool interfacesGiven = false;

    bool Reachable(uint32_t clock, uint32_t rate) const { return rateCheck == nullptr || rateCheck(clock, rate); }

    bool Fail(const std::string& why)
    {
        std::ostringstream os;
        os << source << ":" << line << ": " << why;
        error = os.str();
        return false;
    }

    bool Number(const std::string& key, const std::string& value, uint64_t min, uint64_t max, uint64_t& out)
    {
        if (!ParseUnsigned(value, max, out) || out < min)
            return Fail("'" + key + "' needs a number from " + std::to_string(min) + " to " + std::to_string(max));
        return true;
    }

    bool Header(const std::string& text)
    {
        std::istringstream is(text);
        std::string kind, name, extra;
        is >> kind >> name >> extra;
        if (!extra.empty() || name.empty())
            return Fail("a section reads [bus NAME], [channel IDENTIFIER], [interface IDENTIFIER] or [fault OPERATION]");
        if (kind == "bus") {
            if (!IsValidName(name))
                return Fail("bus name '" + name + "' may hold letters, digits, '.', '_' and '-' only");
            if (!topologyGiven) {
                cfg.buses.clear();
                cfg.channels.clear();
                topologyGiven = true;
            }
            for (const auto& b : cfg.buses)
                if (b.name == name)
                    return Fail("bus '" + name + "' is defined twice");
            cfg.buses.emplace_back();
            cfg.buses.back().name = name;
            section = Section::Bus;
        } else if (kind == "channel") {
            if (name.size() > 255)
                return Fail("channel identifier longer than 255 characters");
            if (!topologyGiven) {
                cfg.buses.clear();
                cfg.channels.clear();
                topologyGiven = true;
            }
            for (const auto& c : cfg.channels)
                if (c.id == name)
                    return Fail("channel '" + name + "' is defined twice");
            cfg.channels.emplace_back();
            cfg.channels.back().id = name;
            channelBusNames.emplace_back();
            section = Section::Channel;
        } else if (kind == "interface") {
            if (name.size() > 255)
                return Fail("interface identifier longer than 255 characters");
            if (!interfacesGiven) {
                cfg.interfaces.clear();
                interfacesGiven = true;
            }
            for (const auto& i : cfg.interfaces)
                if (i.id == name)
                    return Fail("interface '" + name + "' is defined twice");
            cfg.interfaces.emplace_back();
            cfg.interfaces.back().id = name;
            section = Section::Interface;
        } else if (kind == "fault") {
            if (!IsOperationName(name))
                return Fail("'" + name + "' is not an operation of the library");
            cfg.faults.emplace_back();
            cfg.faults.back().operation = name;
            section = Section::Fault;
        } else {
            return Fail("unknown section kind '" + kind + "'");
        }
        return true;
    }

    bool Global(const std::string& key, const std::string& value)
    {
        uint64_t u = 0;
        if (key == "namespace") {
            if (!IsValidName(value))
                return Fail("namespace may hold letters, digits, '.', '_' and '-' only");
            cfg.nameSpace = value;
        } else if (key == "clock_resolution_hz") {
            if (!Number(key, value, 1000000, 1000000000, u))
                return false;
            if (u % 1000000 != 0)
                return Fail("clock_resolution_hz must be a multiple of 1000000");
            cfg.clockResolutionHz = u;
        } else if (key == "clock_offset_ns") {
            int64_t s = 0;
            if (!ParseSigned(value, s))
                return Fail("clock_offset_ns needs a whole number of nanoseconds");
            cfg.clockOffsetNs = s;
        } else if (key == "replay_late_threshold_us") {
            if (!Number(key, value, 0, 60000000, u))
                return false;
            cfg.lateThresholdUs = static_cast<uint32_t>(u);
        } else if (key == "replay_realtime_priority") {
            if (!Number(key, value, 0, 99, u))
                return false;
            cfg.replayRealtimePriority = static_cast<int>(u);
        } else {
            return Fail("unknown key '" + key + "'");
        }
        return true;
    }

    bool Bus(const std::string& key, const std::string& value)
    {
        BusConfig& bus = cfg.buses.back();
        uint64_t u = 0;
        std::string bad;
        if (key == "address") {
            if (!ParseAddresses(value, bus.addresses, bad))
                return Fail("'" + bad + "' is not an IPv4 address");
        } else if (key == "bitrate") {
            if (!Number(key, value, 1000, 1000000, u))
                return false;
            if (!Reachable(8000000, static_cast<uint32_t>(u)) || !Reachable(80000000, static_cast<uint32_t>(u)))
                return Fail("bitrate " + value + " cannot be timed exactly from 8 MHz and 80 MHz");
            bus.bitrate = static_cast<uint32_t>(u);
        } else if (key == "data_bitrate") {
            if (!Number(key, value, 1000, 16000000, u))
                return false;
            if (!Reachable(80000000, static_cast<uint32_t>(u)))
                return Fail("data_bitrate " + value + " cannot be timed exactly from 80 MHz");
            bus.dataBitrate = static_cast<uint32_t>(u);
        } else if (key == "tx_queue_limit") {
            if (!Number(key, value, 1, 65536, u))
                return false;
            bus.txQueueLimit = static_cast<uint32_t>(u);
        } else if (key == "replay_queue_limit") {
            if (!Number(key, value, 1, 1u << 20, u))
                return false;
            bus.replayQueueLimit = static_cast<uint32_t>(u);
        } else if (key == "delivery_interval_us") {
            if (!Number(key, value, 0, 1000000, u))
                return false;
            bus.deliveryIntervalUs = static_cast<uint32_t>(u);
        } else {
            return Fail("unknown key '" + key + "' in a bus section");
        }
        return true;
    }

    bool Channel(const std::string& key, const std::string& value)
    {
        ChannelConfig& ch = cfg.channels.back();
        if (value.size() > 255)
            return Fail("'" + key + "' is longer than 255 characters");
        uint64_t u = 0;
        if (key == "bus")
            channelBusNames.back() = value;
        else if (key == "vendor")
            ch.vendor = value;
        else if (key == "interface")
            ch.interfaceName = value;
        else if (key == "serial")
            ch.serial = value;
        else if (key == "capabilities") {
            if (!Number(key, value, 0, std::numeric_limits<uint32_t>::max(), u))
                return false;
            ch.capabilities = static_cast<uint32_t>(u);
        } else
            return Fail("unknown key '" + key + "' in a channel section");
        return true;
    }

    bool Interface(const std::string& key, const std::string& value)
    {
        EthInterfaceConfig& in = cfg.interfaces.back();
        if (value.size() > 255)
            return Fail("'" + key + "' is longer than 255 characters");
        uint64_t u = 0;
        std::string bad;
        if (key == "vendor") {
            in.vendor = value;
        } else if (key == "interface") {
            in.interfaceName = value;
        } else if (key == "serial") {
            in.serial = value;
        } else if (key == "mac") {
            if (!ParseMac(value, in.mac))
                return Fail("'mac' needs six hexadecimal bytes such as 02:4e:58:00:00:01");
            in.hasMac = true;
        } else if (key == "capabilities") {
            if (!Number(key, value, 0, std::numeric_limits<uint32_t>::max(), u))
                return false;
            in.capabilities = static_cast<uint32_t>(u);
        } else if (key == "device") {
            if (value.empty() || value.size() > 15 || value.find_first_of("/ \t") != std::string::npos)
                return Fail("'device' needs the name of a network device (at most 15 characters)");
            in.device = value;
        } else if (key == "address") {
            if (!ParseAddresses(value, in.addresses, bad))
                return Fail("'" + bad + "' is not an IPv4 address");
        } else if (key == "line_rate") {
            if (!ParseBitRate(value, u) || u < 1000000 || u > 100000000000ull)
                return Fail("'line_rate' needs a rate from 1M to 100G, such as 100M or 1G");
            in.lineRate = u;
        } else if (key == "fcs") {
            if (!ParseBool(value, in.fcs))
                return Fail("'fcs' is true or false");
        } else if (key == "rx_ring_kib") {
            if (!Number(key, value, 64, 1u << 20, u))
                return false;
            in.rxRingBytes = static_cast<uint32_t>(u * 1024);
        } else if (key == "replay_queue_kib") {
            if (!Number(key, value, 64, 1u << 20, u))
                return false;
            in.replayQueueBytes = static_cast<uint32_t>(u * 1024);
        } else {
            return Fail("unknown key '" + key + "' in an interface section");
        }
        return true;
    }

    bool Fault(const std::string& key, const std::string& value)
    {
        FaultConfig& f = cfg.faults.back();
        uint64_t u = 0;
        int64_t s = 0;
        if (key == "code") {
            if (!ParseSigned(value, s) || s < std::numeric_limits<int32_t>::min() ||
                s > std::numeric_limits<int32_t>::max())
                return Fail("'code' needs a 32-bit number");
            f.code = static_cast<int32_t>(s);
            f.hasCode = true;
        } else if (key == "vendor_code") {
            if (!ParseSigned(value, s) || s < std::numeric_limits<int32_t>::min() ||
                s > std::numeric_limits<int32_t>::max())
                return Fail("'vendor_code' needs a 32-bit number");
            f.vendorCode = static_cast<int32_t>(s);
        } else if (key == "text") {
            f.text = value;
        } else if (key == "after") {
            if (!Number(key, value, 0, std::numeric_limits<uint64_t>::max(), u))
                return false;
            f.after = u;
        } else if (key == "times") {
            if (!Number(key, value, 0, std::numeric_limits<uint64_t>::max(), u))
                return false;
            f.times = u;
        } else if (key == "channel") {
            f.channel = value;
        } else if (key == "consume_records") {
            if (f.operation != "NXCAN_ReplayStreamData" && f.operation != "NXETH_ReplayStreamData")
                return Fail("consume_records applies to NXCAN_ReplayStreamData and NXETH_ReplayStreamData only");
            if (!Number(key, value, 1, std::numeric_limits<uint32_t>::max(), u))
                return false;
            f.consumeRecords = static_cast<uint32_t>(u);
        } else {
            return Fail("unknown key '" + key + "' in a fault section");
        }
        return true;
    }

    bool Line(const std::string& raw)
    {
        const std::string text = Trim(raw);
        if (text.empty() || text[0] == '#' || text[0] == ';')
            return true;
        if (text[0] == '[') {
            if (text.back() != ']')
                return Fail("section header without ']'");
            return Header(Trim(text.substr(1, text.size() - 2)));
        }
        const auto eq = text.find('=');
        if (eq == std::string::npos)
            return Fail("expected 'key = value'");
        const std::string key = Trim(text.substr(0, eq));
        std::string value = text.substr(eq + 1);
        // A comment may follow a value after white space.
        for (size_t i = 1; i < value.size(); ++i) {
            if (value[i] == '#' && (value[i - 1] == ' ' || value[i - 1] == '\t')) {
                value.resize(i);
                break;
            }
        }
        value = Trim(value);
        switch (section) {
        case Section::Global: return Global(key, value);
        case Section::Bus: return Bus(key, value);
        case Section::Channel: return Channel(key, value);
        case Section::Interface: return Interface(key, value);
        case Section::Fault: return Fault(key, value);
        }
        return false;
    }

    // Cross-checks once the whole text has been read.
    bool Finish()
    {
        line = 0;
        if (topologyGiven) {
            if (cfg.buses.empty())
                return Fail("channels are defined but no [bus] section");
            for (size_t i = 0; i < cfg.channels.size(); ++i) {
                ChannelConfig& ch = cfg.channels[i];
                const std::string& busName = channelBusNames[i];
                if (busName.empty() && cfg.buses.size() > 1)
                    return Fail("channel '" + ch.id + "' must name its bus");
                size_t b = 0;
                if (!busName.empty()) {
                    for (b = 0; b < cfg.buses.size() && cfg.buses[b].name != busName; ++b) {
                    }
                    if (b == cfg.buses.size())
                        return Fail("channel '" + ch.id + "' names unknown bus '" + busName + "'");
                }
                if (ch.vendor.empty() || ch.interfaceName.empty())
                    return Fail("channel '" + ch.id + "' needs 'vendor' and 'interface'");
                ch.bus = b;
            }
        }
        for (auto& bus : cfg.buses)
            bus.channels.clear();
        for (size_t i = 0; i < cfg.channels.size(); ++i) {
            BusConfig& bus = cfg.buses[cfg.channels[i].bus];
            cfg.channels[i].indexInBus = bus.channels.size();
            bus.channels.push_back(i);
            if (bus.channels.size() > 32)
                return Fail("bus '" + bus.name + "' has more than 32 channels");
        }
        if (cfg.buses.size() > 16)
            return Fail("more than 16 buses");
        for (const auto& in : cfg.interfaces)
            if (in.vendor.empty() || in.interfaceName.empty() || in.device.empty())
                return Fail("interface '" + in.id + "' needs 'vendor', 'interface' and 'device'");
        if (cfg.interfaces.size() > 32)
            return Fail("more than 32 interfaces");
        for (const auto& f : cfg.faults)
            if (!f.hasCode && f.consumeRecords == 0)
                return Fail("fault on " + f.operation + " needs 'code' (or 'consume_records')");
        return true;
    }
};

}  // namespace

bool IsOperationName(const std::string& name)
{
    for (const char* op : kCanOperationNames)
        if (name == op)
            return true;
    for (const char* op : kEthOperationNames)
        if (name == op)
            return true;
    return false;
}

bool ParseBitRate(const std::string& text, uint64_t& out)
{
    if (text.empty() || !(text[0] >= '0' && text[0] <= '9'))
        return false;
    char* end = nullptr;
    const double v = std::strtod(text.c_str(), &end);
    double scale = 1;
    const std::string unit = Trim(end);
    if (unit == "k" || unit == "K")
        scale = 1e3;
    else if (unit == "M")
        scale = 1e6;
    else if (unit == "G")
        scale = 1e9;
    else if (!unit.empty())
        return false;
    const double rate = v * scale;
    if (rate < 1 || rate > 1e12 || rate != static_cast<double>(static_cast<uint64_t>(rate)))
        return false;
    out = static_cast<uint64_t>(rate);
    return true;
}

bool IsValidName(const std::string& name)
{
    if (name.empty() || name.size() > 64)
        return false;
    for (char c : name) {
        const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                        c == '_' || c == '-';
        if (!ok)
            return false;
    }
    return true;
}

Config DefaultConfig()
{
    Config cfg;
    cfg.nameSpace = "u" + std::to_string(getuid());
    BusConfig bus;
    bus.name = "CAN1";
    uint32_t loopback = 0;
    ParseAddress("127.0.0.1", loopback);
    bus.addresses.push_back(loopback);
    cfg.buses.push_back(bus);

    auto add = [&cfg](const char* id, const char* vendor, const char* iface, const char* serial, uint32_t caps) {
        ChannelConfig ch;
        ch.id = id;
        ch.vendor = vendor;
        ch.interfaceName = iface;
        ch.serial = serial;
        ch.capabilities = caps;
        ch.bus = 0;
        ch.indexInBus = cfg.channels.size();
        cfg.buses[0].channels.push_back(cfg.channels.size());
        cfg.channels.push_back(ch);
    };
    add("NVX-CAN-1", "Norvex", "NVX CAN FD Interface 4", "NVX4-000117", kHighSpeedReplayCapability);
    add("NVX-CAN-2", "Norvex", "NVX CAN FD Interface 4", "NVX4-000117", 0);
    add("NVX-VIRT-1", "Norvex", "Virtual", "", 0);
    add("ORV-CAN-1", "Orvik Labs", "OL-CAN USB", "OL-5521", 0);
    add("NVX-ZIRA-1", "Norvex", "NVX ZIRA Replay Unit", "NZR-000042", 0);

    // The two ends of the veth pair that tools/with-sim-bus makes in its
    // network namespace.
    for (int port = 1; port <= 2; ++port) {
        EthInterfaceConfig in;
        in.id = "NVX-ETH-" + std::to_string(port);
        in.vendor = "Norvex";
        in.interfaceName = "NVX Automotive Ethernet Interface";
        in.serial = "NVXE-000205";
        in.capabilities = port == 1 ? kHighSpeedReplayCapability : 0u;
        in.device = "nvxeth" + std::to_string(port);
        in.addresses.push_back(loopback);
        cfg.interfaces.push_back(in);
    }
    return cfg;
}

bool ParseConfig(const std::string& text, const std::string& sourceName, Config& out, std::string& error,
                 BitRateCheck check)
{
    Config cfg = out;
    Parser parser(cfg, sourceName, error, check);
    std::istringstream is(text);
    std::string raw;
    while (std::getline(is, raw)) {
        ++parser.line;
        if (!parser.Line(raw))
            return false;
    }
    if (!parser.Finish())
        return false;
    out = std::move(cfg);
    return true;
}

bool LoadConfig(Config& out, std::string& error, BitRateCheck check)
{
    Config cfg = DefaultConfig();
    if (const char* path = std::getenv("NXBUSAPI_SIM_CONFIG"); path != nullptr && *path != '\0') {
        std::ifstream in(path);
        if (!in) {
            error = std::string(path) + ": cannot be read (NXBUSAPI_SIM_CONFIG)";
            return false;
        }
        std::ostringstream text;
        text << in.rdbuf();
        if (!ParseConfig(text.str(), path, cfg, error, check))
            return false;
    }
    if (const char* ns = std::getenv("NXBUSAPI_SIM_NAMESPACE"); ns != nullptr && *ns != '\0') {
        if (!IsValidName(ns)) {
            error = std::string("NXBUSAPI_SIM_NAMESPACE '") + ns +
                    "' may hold letters, digits, '.', '_' and '-' only (at most 64)";
            return false;
        }
        cfg.nameSpace = ns;
    }
    out = std::move(cfg);
    return true;
}

}  // namespace nxsim
