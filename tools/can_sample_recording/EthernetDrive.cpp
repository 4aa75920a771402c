#include "EthernetDrive.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <memory>
#include <string>

#include "pcap_log/PacketWriter.h"

namespace veldor::sample {

namespace {

using Bytes = std::vector<std::uint8_t>;
using Mac = std::array<std::uint8_t, 6>;

constexpr std::int64_t kNsPerUs = 1000;
constexpr std::int64_t kMs = 1000;
// A frame's bytes besides its own on the wire: check sequence, preamble
// with start delimiter, interframe gap.
constexpr std::int64_t kFcs = 4;
constexpr std::int64_t kPreamble = 8;
constexpr std::int64_t kGap = 12;
constexpr std::size_t kMinFrame = 60;      // without the check sequence
constexpr std::size_t kIpPayload = 1480;   // of a 1500-byte IPv4 packet
constexpr std::size_t kTpSegment = 1392;   // a multiple of 16 that fits one datagram
constexpr std::uint16_t kSdPort = 30490;
constexpr std::uint32_t kSdGroup = 0xE0F4E0F5;  // 224.244.224.245

struct Ecu {
    const char* name;
    std::uint8_t host;  // 10.0.1.<host>, MAC 02:4e:56:00:01:<host>
    std::uint16_t port;
};
const Ecu kGateway{"gateway", 1, 30501};
const Ecu kAdas{"adas", 2, 30502};
const Ecu kCamera{"camera", 3, 30503};
const Ecu kHeadUnit{"head unit", 4, 30504};

std::uint32_t IpOf(const Ecu& e) { return 0x0A000100u | e.host; }
Mac MacOf(const Ecu& e) { return {0x02, 0x4E, 0x56, 0x00, 0x01, e.host}; }
Mac MulticastMac(std::uint32_t group)
{
    return {0x01, 0x00, 0x5E, static_cast<std::uint8_t>((group >> 16) & 0x7F), static_cast<std::uint8_t>(group >> 8),
            static_cast<std::uint8_t>(group)};
}

void Be16(Bytes& b, std::size_t at, std::uint32_t v)
{
    b[at] = static_cast<std::uint8_t>(v >> 8);
    b[at + 1] = static_cast<std::uint8_t>(v);
}
void Be32(Bytes& b, std::size_t at, std::uint32_t v)
{
    Be16(b, at, v >> 16);
    Be16(b, at + 2, v & 0xFFFF);
}
void Append16(Bytes& b, std::uint32_t v)
{
    b.resize(b.size() + 2);
    Be16(b, b.size() - 2, v);
}
void Append32(Bytes& b, std::uint32_t v)
{
    b.resize(b.size() + 4);
    Be32(b, b.size() - 4, v);
}
// A signal scaled to a 16-bit field, two's complement when negative.
void AppendSignal(Bytes& b, double value, double scale) { Append16(b, static_cast<std::uint32_t>(std::lround(value * scale)) & 0xFFFF); }

// The ones' complement sum of the Internet checksum, not yet folded.
std::uint32_t SumOf(const std::uint8_t* data, std::size_t size, std::uint32_t sum = 0)
{
    for (std::size_t i = 0; i + 1 < size; i += 2) sum += static_cast<std::uint32_t>(data[i] << 8 | data[i + 1]);
    if (size % 2) sum += static_cast<std::uint32_t>(data[size - 1] << 8);
    return sum;
}
std::uint16_t Fold(std::uint32_t sum)
{
    while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<std::uint16_t>(~sum & 0xFFFF);
}

// A UDP datagram, header and checksum included.
Bytes Datagram(std::uint32_t src, std::uint32_t dst, std::uint16_t srcPort, std::uint16_t dstPort, const Bytes& payload)
{
    Bytes d(8);
    Be16(d, 0, srcPort);
    Be16(d, 2, dstPort);
    Be16(d, 4, static_cast<std::uint32_t>(8 + payload.size()));
    d.insert(d.end(), payload.begin(), payload.end());
    std::uint32_t sum = (src >> 16) + (src & 0xFFFF) + (dst >> 16) + (dst & 0xFFFF) + 17 + static_cast<std::uint32_t>(d.size());
    std::uint16_t check = Fold(SumOf(d.data(), d.size(), sum));
    Be16(d, 6, check == 0 ? 0xFFFF : check);
    return d;
}

// Ethernet and IPv4 headers before `data`, a piece of a datagram at
// `offset` bytes; padded to the shortest frame.
Bytes Frame(const Mac& dst, const Ecu& from, std::uint32_t dstIp, std::uint16_t ipId, const std::uint8_t* data,
            std::size_t size, std::size_t offset, bool more)
{
    Bytes f(14 + 20);
    std::copy(dst.begin(), dst.end(), f.begin());
    const Mac src = MacOf(from);
    std::copy(src.begin(), src.end(), f.begin() + 6);
    Be16(f, 12, 0x0800);
    f[14] = 0x45;
    Be16(f, 16, static_cast<std::uint32_t>(20 + size));
    Be16(f, 18, ipId);
    Be16(f, 20, static_cast<std::uint32_t>((more ? 0x2000 : 0) | offset / 8));
    f[22] = 64;
    f[23] = 17;
    Be32(f, 26, IpOf(from));
    Be32(f, 30, dstIp);
    Be16(f, 24, Fold(SumOf(f.data() + 14, 20)));
    f.resize(std::max(kMinFrame, f.size() + size), 0);
    std::copy(data, data + size, f.begin() + 34);
    return f;
}

// The SOME/IP header of a message of `payload` bytes (TP: with its own
// 4-byte TP header counted).
Bytes SomeIpHeader(std::uint16_t service, std::uint16_t method, std::uint16_t session, std::uint8_t type,
                   std::size_t payload)
{
    Bytes h;
    Append16(h, service);
    Append16(h, method);
    Append32(h, static_cast<std::uint32_t>(8 + payload));
    Append16(h, 0x0000);  // client: a notification's
    Append16(h, session);
    h.push_back(0x01);  // protocol version
    h.push_back(0x01);  // interface version
    h.push_back(type);
    h.push_back(0x00);  // return code
    return h;
}

// What is ready to leave an ECU at one moment: frames that go back to back
// (fragments), or `spacing` apart (TP segments).
struct Burst {
    std::int64_t ready = 0;  // nanoseconds from the start
    std::int64_t spacing = 0;
    std::vector<Bytes> frames;
};

using Encoder = std::function<void(const Vehicle&, Bytes&, Random&)>;

struct Sender {
    enum Kind { Event, TpEvent, Offer, FragmentedFlow } kind;
    const Ecu* from;
    std::uint16_t service;
    std::uint16_t method;  // the event, or the eventgroup offered
    std::int64_t period;   // microseconds
    Encoder encode;        // the payload at that moment
    const Ecu* to = nullptr;  // unicast receiver; null: the SOME/IP-SD group or the subscribers' group
    // Sending state.
    double driftPpm = 0;
    std::int64_t due = 0;  // nanoseconds from the start
    std::uint16_t session = 0;
    std::uint16_t ipId = 0;
};

// The events' group: subscribers get the notifications by multicast.
constexpr std::uint32_t kEventGroup = 0xEF000101;  // 239.0.1.1

std::vector<Sender> Senders()
{
    return {
        {Sender::Event, &kGateway, 0x0101, 0x8001, 20 * kMs,
         [](const Vehicle& v, Bytes& p, Random& r) {
             AppendSignal(p, v.speed, 100);
             AppendSignal(p, v.acceleration, 1000);
             AppendSignal(p, v.steering, 10);
             AppendSignal(p, v.steering * v.speed * 0.009 + static_cast<double>(r.Between(-2, 2)) / 100, 100);
             AppendSignal(p, v.brake, 100);
             p.push_back(static_cast<std::uint8_t>(v.gear));
             p.push_back(v.speed < 0.5 ? 1 : 0);
             Append32(p, static_cast<std::uint32_t>(std::lround(v.seconds * 1000)));
             Append32(p, 0);
             Append16(p, 0xFFFF);
         }},
        {Sender::Event, &kAdas, 0x0201, 0x8001, 50 * kMs,
         [](const Vehicle& v, Bytes& p, Random& r) {
             const int objects = v.speed > 5 ? 6 : 2;
             p.push_back(static_cast<std::uint8_t>(objects));
             p.push_back(0);
             for (int o = 0; o < 8; ++o) {
                 const bool on = o < objects;
                 Append16(p, on ? static_cast<std::uint32_t>(100 + o) : 0);                           // track
                 AppendSignal(p, on ? 20 + 9 * o + 2 * std::sin(v.seconds + o) : 0, 100);             // x, cm
                 AppendSignal(p, on ? (o % 3 - 1) * 3.5 + static_cast<double>(r.Between(-5, 5)) / 100 : 0, 100);  // y
                 AppendSignal(p, on ? -v.acceleration * 0.5 : 0, 100);                                // relative speed
                 p.push_back(on ? static_cast<std::uint8_t>(1 + o % 3) : 0);                           // class
                 p.push_back(on ? static_cast<std::uint8_t>(95 - 4 * o) : 0);                          // confidence
             }
         }},
        {Sender::Event, &kCamera, 0x0202, 0x8002, 100 * kMs,
         [](const Vehicle& v, Bytes& p, Random& r) {
             AppendSignal(p, -1.75 + std::sin(v.seconds * 0.7) * 0.2, 1000);  // left line offset, mm
             AppendSignal(p, 1.75 + std::sin(v.seconds * 0.7) * 0.2, 1000);   // right
             AppendSignal(p, v.steering * 0.0001, 100000);                       // curvature
             p.push_back(3);   // lanes
             p.push_back(1);   // own lane
             p.push_back(static_cast<std::uint8_t>(90 + r.Between(0, 5)));  // quality
             p.push_back(0);
             for (int i = 0; i < 20; ++i) p.push_back(static_cast<std::uint8_t>(0x10 + i));  // marking types
         }},
        {Sender::Event, &kGateway, 0x0102, 0x8001, 100 * kMs,
         [](const Vehicle& v, Bytes& p, Random&) {
             AppendSignal(p, v.rpm, 4);
             p.push_back(static_cast<std::uint8_t>(std::lround(v.pedal * 2.5)));
             p.push_back(static_cast<std::uint8_t>(v.gear));
             AppendSignal(p, 85 + v.seconds * 0.2, 10);  // oil temperature
             AppendSignal(p, 14.1, 100);                  // voltage
             Append32(p, static_cast<std::uint32_t>(std::lround(v.odometer * 10)));
             Append16(p, 0);
         }},
        {Sender::Event, &kGateway, 0x0401, 0x8001, 200 * kMs,
         [](const Vehicle& v, Bytes& p, Random&) {
             p.push_back(0x00);                           // doors closed
             p.push_back(v.speed > 15 ? 0x0F : 0x00);     // locked when driving
             p.push_back(0x01);                           // low beam
             p.push_back(v.brake > 0 ? 0x04 : 0x00);      // brake lights
             AppendSignal(p, 21.5, 10);                   // cabin set point
             AppendSignal(p, 17.0, 10);                   // outside
             Append32(p, 0);
         }},
        // The camera's object list, larger than a datagram: SOME/IP-TP.
        {Sender::TpEvent, &kCamera, 0x0301, 0x8010, 500 * kMs,
         [](const Vehicle& v, Bytes& p, Random& r) {
             Append32(p, static_cast<std::uint32_t>(std::lround(v.seconds * 1000)));
             Append16(p, 48);  // objects
             Append16(p, 0);
             for (int o = 0; o < 48; ++o) {
                 Append16(p, static_cast<std::uint32_t>(o));
                 AppendSignal(p, 5 + o * 1.7 + std::sin(v.seconds * 0.3 + o), 100);
                 AppendSignal(p, (o % 5 - 2) * 2.1, 100);
                 AppendSignal(p, -v.speed / 3.6 + static_cast<double>(r.Between(-20, 20)) / 100, 100);
                 for (int i = 0; i < 54; ++i) p.push_back(static_cast<std::uint8_t>((o * 7 + i) & 0xFF));  // shape
             }
         }},
        // Map tiles for the head unit, one datagram of 4000 bytes.
        {Sender::FragmentedFlow, &kGateway, 0, 0, 500 * kMs,
         [](const Vehicle& v, Bytes& p, Random& r) {
             Append32(p, static_cast<std::uint32_t>(std::lround(v.odometer * 1000)));
             Append32(p, static_cast<std::uint32_t>(r.Between(0, 0xFFFF)));
             for (std::size_t i = 0; p.size() < 4000; ++i) p.push_back(static_cast<std::uint8_t>((i * 31 + 7) & 0xFF));
         },
         &kHeadUnit},
        {Sender::Offer, &kGateway, 0x0101, 0x0001, 1000 * kMs, nullptr},
        {Sender::Offer, &kAdas, 0x0201, 0x0001, 1000 * kMs, nullptr},
        {Sender::Offer, &kCamera, 0x0202, 0x0001, 1000 * kMs, nullptr},
    };
}

// A SOME/IP-SD message offering the sender's service, with its endpoint.
Bytes Offer(const Sender& s)
{
    Bytes p;
    p.push_back(0xC0);  // reboot, unicast
    p.push_back(0);
    p.push_back(0);
    p.push_back(0);
    Append32(p, 16);  // entries
    p.push_back(0x01);  // offer service
    p.push_back(0);     // first option
    p.push_back(0);
    p.push_back(0x10);  // one option in the first run
    Append16(p, s.service);
    Append16(p, 0x0001);  // instance
    Append32(p, 0x01000003);  // major version 1, lifetime 3 s
    Append32(p, 0);           // minor version
    Append32(p, 12);          // options
    Append16(p, 9);
    p.push_back(0x04);  // IPv4 endpoint
    p.push_back(0);
    Append32(p, IpOf(*s.from));
    p.push_back(0);
    p.push_back(0x11);  // UDP
    Append16(p, s.from->port);
    return p;
}

// The frames of one message of a sender.
Burst Message(Sender& s, const Vehicle& v, Random& random, EthernetStats& stats)
{
    Burst burst;
    s.session = static_cast<std::uint16_t>(s.session == 0xFFFF ? 1 : s.session + 1);  // 0 is never used
    Bytes payload;
    if (s.encode) s.encode(v, payload, random);
    const std::uint32_t src = IpOf(*s.from);
    const std::uint32_t dst = s.kind == Sender::Offer ? kSdGroup : s.to ? IpOf(*s.to) : kEventGroup;
    const Mac dstMac = s.to ? MacOf(*s.to) : MulticastMac(dst);
    const std::uint16_t srcPort = s.kind == Sender::Offer ? kSdPort : s.from->port;
    const std::uint16_t dstPort = s.kind == Sender::Offer ? kSdPort : s.to ? s.to->port : s.from->port;
    auto whole = [&](const Bytes& message) {
        const Bytes d = Datagram(src, dst, srcPort, dstPort, message);
        return Frame(dstMac, *s.from, dst, s.ipId++, d.data(), d.size(), 0, false);
    };
    switch (s.kind) {
    case Sender::Event: {
        Bytes m = SomeIpHeader(s.service, s.method, s.session, 0x02, payload.size());
        m.insert(m.end(), payload.begin(), payload.end());
        burst.frames.push_back(whole(m));
        ++stats.events;
        break;
    }
    case Sender::Offer: {
        const Bytes offer = Offer(s);
        Bytes m = SomeIpHeader(0xFFFF, 0x8100, s.session, 0x02, offer.size());
        m.insert(m.end(), offer.begin(), offer.end());
        burst.frames.push_back(whole(m));
        ++stats.offers;
        break;
    }
    case Sender::TpEvent:
        // Segments of a multiple of 16 bytes, the last one the rest; the
        // receiver's buffer needs them apart.
        burst.spacing = 250 * kNsPerUs;
        for (std::size_t offset = 0; offset < payload.size(); offset += kTpSegment) {
            const std::size_t size = std::min(kTpSegment, payload.size() - offset);
            const bool more = offset + size < payload.size();
            Bytes m = SomeIpHeader(s.service, s.method, s.session, 0x22, size + 4);
            Append32(m, static_cast<std::uint32_t>(offset) | (more ? 1u : 0u));
            m.insert(m.end(), payload.begin() + static_cast<std::ptrdiff_t>(offset),
                     payload.begin() + static_cast<std::ptrdiff_t>(offset + size));
            burst.frames.push_back(whole(m));
            ++stats.tpSegments;
        }
        ++stats.tpMessages;
        break;
    case Sender::FragmentedFlow: {
        const Bytes d = Datagram(src, dst, srcPort, dstPort, payload);
        const std::uint16_t id = s.ipId++;
        for (std::size_t offset = 0; offset < d.size(); offset += kIpPayload) {
            const std::size_t size = std::min(kIpPayload, d.size() - offset);
            burst.frames.push_back(Frame(dstMac, *s.from, dst, id, d.data() + offset, size, offset, offset + size < d.size()));
            ++stats.fragments;
        }
        ++stats.datagrams;
        break;
    }
    }
    return burst;
}

std::int64_t WireNanoseconds(std::size_t bytes)
{
    return (static_cast<std::int64_t>(bytes) + kFcs + kPreamble + kGap) * 8 * 1000000000 / kEthernetBitRate;
}

}  // namespace

std::vector<EthernetFrame> SimulateEthernet(const DriveSettings& settings, EthernetStats& stats)
{
    // Numbers of their own: the CAN bus's stay as they were.
    Random random(settings.seed * 0x9E3779B97F4A7C15ull + 0xE7);
    std::vector<Sender> senders = Senders();
    constexpr std::int64_t kJitterNs = 200 * 1000;
    for (Sender& s : senders) {
        s.driftPpm = static_cast<double>(random.Between(-50, 50));
        s.due = random.Between(0, s.period - 1) * kNsPerUs;
        s.session = static_cast<std::uint16_t>(random.Between(0, 0x7FFF));
        s.ipId = static_cast<std::uint16_t>(random.Between(0, 0xFFFF));
    }
    const std::int64_t end = settings.duration * kNsPerUs;

    // Each frame with the moment it is ready; the switch port sends them
    // in that order, one at a time.
    struct Ready {
        std::int64_t at;
        std::size_t order;
        Bytes bytes;
    };
    std::vector<Ready> ready;
    for (Sender& s : senders) {
        // The last messages leave well before the end.
        while (s.due < end - 10 * kMs * kNsPerUs) {
            const std::int64_t at = s.due + random.Between(0, kJitterNs);
            Burst burst = Message(s, VehicleAt(static_cast<double>(at) / 1e9), random, stats);
            for (std::size_t i = 0; i < burst.frames.size(); ++i)
                ready.push_back(Ready{at + static_cast<std::int64_t>(i) * burst.spacing, ready.size(), std::move(burst.frames[i])});
            s.due += static_cast<std::int64_t>(static_cast<double>(s.period * kNsPerUs) * (1 + s.driftPpm * 1e-6));
        }
    }
    std::sort(ready.begin(), ready.end(),
              [](const Ready& a, const Ready& b) { return a.at != b.at ? a.at < b.at : a.order < b.order; });

    std::vector<EthernetFrame> frames;
    std::int64_t linkFree = 0;
    std::int64_t busy = 0;
    for (Ready& r : ready) {
        const std::int64_t start = std::max(r.at, linkFree);
        if (start >= end) break;
        const std::int64_t onWire = WireNanoseconds(r.bytes.size());
        linkFree = start + onWire;
        busy += onWire;
        EthernetFrame frame;
        // Stamped when the last byte is in, before the gap.
        frame.time = settings.start * kNsPerUs + linkFree - kGap * 8 * 1000000000 / kEthernetBitRate;
        frame.bytes = std::move(r.bytes);
        frames.push_back(std::move(frame));
    }
    stats.frames = frames.size();
    stats.meanLoad = static_cast<double>(busy) / static_cast<double>(end);
    return frames;
}

std::vector<EthernetFrame> LoadedLink(std::size_t count, double framesPerSecond, std::int64_t start,
                                      std::uint64_t seed)
{
    Random random(seed);
    const std::int64_t mean = static_cast<std::int64_t>(1e9 / framesPerSecond);
    std::vector<EthernetFrame> frames(count);
    std::int64_t time = start;
    for (std::size_t k = 0; k < count; ++k) {
        EthernetFrame& f = frames[k];
        f.time = time;
        f.bytes.resize(static_cast<std::size_t>(random.Between(60, 1514)));
        const std::uint8_t header[14] = {0x02, 0x4E, 0x58, 0x45, 0x00, 0x02, 0x02, 0x4E, 0x58, 0x45, 0x00, 0x01, 0x88, 0xB5};
        std::copy(header, header + 14, f.bytes.begin());
        for (std::size_t i = 0; i < 4; ++i) f.bytes[14 + i] = static_cast<std::uint8_t>(k >> (8 * i));
        for (std::size_t i = 18; i < f.bytes.size(); ++i) f.bytes[i] = static_cast<std::uint8_t>(k + i);
        time += random.Between(mean / 4, mean * 7 / 4);
    }
    return frames;
}

bool WriteCapture(const std::string& path, const std::vector<canlog::CanFrame>& can,
                  const std::vector<EthernetFrame>& ethernet, std::string& error)
{
    std::vector<pcaplog::Interface> interfaces;
    if (!can.empty()) {
        pcaplog::Interface bus;
        bus.name = "can0";
        bus.linkType = pcaplog::kLinkTypeSocketCan;
        interfaces.push_back(bus);
    }
    const std::uint32_t canInterface = 0;
    const std::uint32_t ethInterface = static_cast<std::uint32_t>(interfaces.size());
    if (!ethernet.empty()) {
        pcaplog::Interface link;
        link.name = "eth0";
        interfaces.push_back(link);
    }
    std::unique_ptr<pcaplog::PacketWriter> writer = pcaplog::OpenPacketWriter(path, interfaces, error);
    if (!writer) return false;
    std::size_t c = 0;
    std::size_t e = 0;
    bool written = true;
    while (written && (c < can.size() || e < ethernet.size())) {
        if (e == ethernet.size() || (c < can.size() && can[c].timestamp * 1000 <= ethernet[e].time)) {
            written = writer->Write(canInterface, can[c++]) == canlog::WriteResult::Written;
            continue;
        }
        pcaplog::Packet packet;
        packet.interface = ethInterface;
        packet.time = ethernet[e].time;
        packet.data = ethernet[e].bytes.data();
        packet.capturedLength = packet.originalLength = static_cast<std::uint32_t>(ethernet[e].bytes.size());
        written = writer->Write(packet) == canlog::WriteResult::Written;
        ++e;
    }
    if (written && writer->Close()) return true;
    error = path + ": " + writer->Error();
    return false;
}

}  // namespace veldor::sample
