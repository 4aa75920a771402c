#include "SampleDrive.h"

#include <algorithm>
#include <cmath>
#include <functional>

namespace veldor::sample {

namespace {

using canlog::CanFrame;
using canlog::Direction;

double SpeedAt(double t)
{
    if (t < 3) return 0;
    if (t < 10) return 80 * std::sin((t - 3) / 7 * M_PI / 2);
    if (t < 15) return 80 + 0.8 * std::sin(t * 1.3);
    if (t < 19) return 80 - 60 * (t - 15) / 4;
    return 20 - 5 * (t - 19);
}

}  // namespace

Vehicle VehicleAt(double t)
{
    static constexpr double kRatios[] = {0, 120, 70, 48, 37, 30, 26};  // rpm per km/h
    Vehicle v;
    v.seconds = t;
    v.speed = std::max(0.0, SpeedAt(t));
    v.acceleration = (SpeedAt(t + 0.05) - SpeedAt(t - 0.05)) / 0.1 / 3.6;
    v.gear = v.speed < 1 ? 0 : v.speed < 15 ? 1 : v.speed < 30 ? 2 : v.speed < 45 ? 3 : v.speed < 60 ? 4 : v.speed < 75 ? 5 : 6;
    v.rpm = v.gear == 0 ? 780 + 15 * std::sin(t * 9) : std::max(900.0, v.speed * kRatios[v.gear]);
    v.pedal = v.acceleration > 0.2 ? 20 + 12 * v.acceleration : (v.acceleration < -0.2 ? 0 : 17);
    v.brake = v.acceleration < -0.5 ? -6 * v.acceleration : 0;
    v.steering = 4 * std::sin(t * 0.7) + (t > 11 && t < 13 ? 25 * std::sin((t - 11) * M_PI) : 0);
    v.odometer += v.speed * t / 3600 / 2;
    return v;
}

namespace {

std::uint8_t Crc8(const std::uint8_t* data, std::size_t size, std::uint8_t dataId)
{
    // SAE J1850: polynomial 0x1D, start and final XOR 0xFF; the message's
    // data id goes in first, as end-to-end protection does it.
    std::uint8_t crc = 0xFF;
    auto feed = [&crc](std::uint8_t byte) {
        crc ^= byte;
        for (int i = 0; i < 8; ++i) crc = static_cast<std::uint8_t>(crc & 0x80 ? (crc << 1) ^ 0x1D : crc << 1);
    };
    feed(dataId);
    for (std::size_t i = 0; i < size; ++i) feed(data[i]);
    return static_cast<std::uint8_t>(crc ^ 0xFF);
}

void Put16(std::uint8_t* at, double value)
{
    const long v = std::lround(std::clamp(value, 0.0, 65535.0));
    at[0] = static_cast<std::uint8_t>(v & 0xFF);
    at[1] = static_cast<std::uint8_t>(v >> 8);
}

void PutSigned16(std::uint8_t* at, double value) { Put16(at, std::clamp(value, -32768.0, 32767.0) + 32768); }

std::uint8_t Byte(double value) { return static_cast<std::uint8_t>(std::lround(std::clamp(value, 0.0, 255.0))); }

using Encoder = std::function<void(const Vehicle&, std::uint8_t*, Random&)>;

struct Message {
    std::uint32_t id;
    bool extended;
    bool fd;
    bool bitRateSwitch;
    std::uint8_t length;
    std::int64_t period;  // microseconds; 0: sent only as an answer
    bool protectedByCrc;  // byte 0 CRC, low nibble of byte 1 a counter
    Direction direction;
    Encoder encode;

    // Sending state.
    double driftPpm = 0;
    std::int64_t due = 0;    // nanoseconds from the start
    std::int64_t ready = 0;  // due plus the sender's jitter
    std::uint8_t counter = 0;
    bool waiting = false;
};

constexpr std::int64_t kMs = 1000;

std::vector<Message> Catalogue()
{
    const Direction rx = Direction::Rx;
    return {
        {0x0C9, false, false, false, 8, 10 * kMs, true, rx,
         [](const Vehicle& v, std::uint8_t* d, Random& r) {
             Put16(d + 2, v.rpm * 4);
             d[4] = Byte(v.pedal * 2.5);
             d[5] = Byte(v.pedal * 1.8 + 20 + static_cast<double>(r.Between(0, 2)));  // torque, %
             d[6] = static_cast<std::uint8_t>(v.gear);
         }},
        {0x1F5, false, true, true, 32, 10 * kMs, true, rx,
         [](const Vehicle& v, std::uint8_t* d, Random& r) {
             for (int wheel = 0; wheel < 4; ++wheel) {
                 Put16(d + 2 + 2 * wheel, v.speed * 100 + static_cast<double>(r.Between(-8, 8)));
             }
             PutSigned16(d + 10, v.steering * v.speed * 0.9);                   // yaw rate, 0.01 deg/s
             PutSigned16(d + 12, v.acceleration * 1000);                          // mm/s^2
             PutSigned16(d + 14, v.steering * v.speed * v.speed * 0.004);         // lateral
             for (int i = 16; i < 32; ++i) d[i] = static_cast<std::uint8_t>(0x40 + (i & 7));  // sensor status
         }},
        {0x0F1, false, false, false, 8, 20 * kMs, true, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             Put16(d + 2, v.brake * 100);
             d[4] = v.brake > 0 ? 1 : 0;
             d[5] = 0x10;  // ABS ready
         }},
        {0x17D, false, false, false, 8, 20 * kMs, true, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             PutSigned16(d + 2, v.steering * 10);
             PutSigned16(d + 4, std::cos(v.seconds * 0.7) * 28);  // steering speed
         }},
        {0x1A0, false, false, false, 8, 50 * kMs, true, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             Put16(d + 2, v.speed * 100);
             d[4] = static_cast<std::uint8_t>(v.gear);
             d[5] = v.speed < 0.5 ? 1 : 0;  // standstill
         }},
        {0x3C1, false, true, false, 12, 50 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random& r) {
             Put16(d + 0, 14100 + static_cast<double>(r.Between(-20, 20)));  // mV
             PutSigned16(d + 2, -(v.rpm / 40) * 10);                           // 0.1 A
             d[4] = 78;                                                        // state of charge, %
             d[5] = 31 + 40;                                                   // degrees C, +40
             for (int i = 6; i < 12; ++i) d[i] = 0xFF;
         }},
        {0x18FEF100, true, false, false, 8, 50 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             d[0] = 0xF3;
             Put16(d + 1, v.speed * 256);
             d[3] = v.brake > 0 ? 0x10 : 0x00;
             d[4] = 0x00;
             d[5] = d[6] = d[7] = 0xFF;
         }},
        {0x2B0, false, false, false, 6, 100 * kMs, false, rx,
         [](const Vehicle&, std::uint8_t* d, Random& r) {
             d[0] = Byte(21.5 * 2);  // cabin set point, 0.5 degrees
             d[1] = Byte(22.0 * 2 + static_cast<double>(r.Between(-1, 1)));
             d[2] = Byte((17 + 40) * 1.0);  // outside, +40
             d[3] = 3;                      // fan stage
             d[4] = 0x21;
             d[5] = 0x00;
         }},
        {0x18FEEE00, true, false, false, 8, 100 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             d[0] = Byte(40 + 70 + v.seconds * 0.3);  // coolant
             d[1] = Byte(40 + 45);                     // fuel
             Put16(d + 2, (273 + 85 + v.seconds * 0.2) * 32);  // oil, 1/32 K
             d[4] = d[5] = 0xFF;
             d[6] = Byte(40 + 60);
             d[7] = 0xFF;
         }},
        {0x3E9, false, true, true, 64, 100 * kMs, true, rx,
         [](const Vehicle& v, std::uint8_t* d, Random& r) {
             const int objects = v.speed > 5 ? 3 : 1;
             d[2] = static_cast<std::uint8_t>(objects);
             for (int o = 0; o < 6; ++o) {
                 std::uint8_t* obj = d + 4 + 10 * o;
                 if (o >= objects) {
                     std::fill(obj, obj + 10, 0);
                     continue;
                 }
                 obj[0] = static_cast<std::uint8_t>(10 + o);                               // track id
                 Put16(obj + 1, (25 + 12 * o + 3 * std::sin(v.seconds + o)) * 100);          // distance, cm
                 PutSigned16(obj + 3, (o - 1) * 350 + static_cast<double>(r.Between(-5, 5)));  // lateral, cm
                 PutSigned16(obj + 5, -v.acceleration * 50);                                // relative speed
                 obj[7] = o == 0 ? 1 : 2;                                                   // car, truck
                 obj[8] = Byte(90 - 5 * o);                                                 // confidence
                 obj[9] = 0;
             }
         }},
        {0x320, false, false, false, 4, 100 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             d[0] = 0x01;                        // low beam
             d[1] = v.brake > 0 ? 0x04 : 0x00;  // brake lights
             d[2] = 0x00;
             d[3] = 0x80;
         }},
        {0x4F0, false, false, false, 8, 500 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             d[0] = 0x00;  // doors closed
             d[1] = v.speed > 15 ? 0x0F : 0x00;  // locked when driving
             d[2] = 0x00;
             d[3] = 0x11;
             d[4] = d[5] = d[6] = d[7] = 0x00;
         }},
        {0x18FECA00, true, false, false, 8, 500 * kMs, false, rx,
         [](const Vehicle&, std::uint8_t* d, Random&) {
             d[0] = 0x00;  // lamps off, no active fault
             d[1] = 0xFF;
             d[2] = d[3] = d[4] = d[5] = 0x00;
             d[6] = d[7] = 0xFF;
         }},
        {0x5A0, false, false, false, 8, 1000 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             const long tenths = std::lround(v.odometer * 10);
             for (int i = 0; i < 4; ++i) d[i] = static_cast<std::uint8_t>(tenths >> (8 * i));
             d[4] = 0x03;
             d[5] = d[6] = d[7] = 0x00;
         }},
        {0x18FEE500, true, false, false, 8, 1000 * kMs, false, rx,
         [](const Vehicle& v, std::uint8_t* d, Random&) {
             const long hours = std::lround((1834.25 + v.seconds / 3600) * 20);  // 0.05 h
             for (int i = 0; i < 4; ++i) d[i] = static_cast<std::uint8_t>(hours >> (8 * i));
             d[4] = d[5] = d[6] = d[7] = 0xFF;
         }},
        // A tester keeps the engine controller's session open; it answers.
        {0x7E0, false, false, false, 8, 1000 * kMs, false, Direction::Tx,
         [](const Vehicle&, std::uint8_t* d, Random&) {
             const std::uint8_t request[8] = {0x02, 0x3E, 0x00, 0x55, 0x55, 0x55, 0x55, 0x55};
             std::copy(request, request + 8, d);
         }},
        {0x7E8, false, false, false, 8, 0, false, rx,
         [](const Vehicle&, std::uint8_t* d, Random&) {
             const std::uint8_t answer[8] = {0x02, 0x7E, 0x00, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
             std::copy(answer, answer + 8, d);
         }},
    };
}

// Lower wins arbitration: the base identifier first, and a standard frame
// before an extended one with the same base.
std::uint32_t Priority(const Message& m) { return m.extended ? ((m.id >> 18) << 1 | 1) : (m.id << 1); }

}  // namespace

std::vector<CanFrame> SimulateDrive(const DriveSettings& settings, DriveStats& stats)
{
    Random random(settings.seed);
    std::vector<Message> messages = Catalogue();
    constexpr std::int64_t kNsPerUs = 1000;
    constexpr std::int64_t kJitterNs = 150 * 1000;
    for (Message& m : messages) {
        if (m.period == 0) continue;
        m.driftPpm = static_cast<double>(random.Between(-80, 80));
        m.due = random.Between(0, m.period - 1) * kNsPerUs;  // each sender has its own phase
        m.ready = m.due + random.Between(0, kJitterNs);
        m.waiting = true;
    }
    Message* answer = &messages.back();

    const std::int64_t end = settings.duration * kNsPerUs;
    std::vector<double> busyPerWindow(static_cast<std::size_t>(settings.duration / (100 * kMs)) + 1, 0.0);
    std::vector<CanFrame> frames;
    std::int64_t busFree = 0;
    std::int64_t busy = 0;
    for (;;) {
        std::int64_t earliest = INT64_MAX;
        for (const Message& m : messages) {
            if (m.waiting) earliest = std::min(earliest, m.ready);
        }
        const std::int64_t now = std::max(busFree, earliest);
        if (now >= end) break;
        Message* next = nullptr;
        for (Message& m : messages) {
            if (m.waiting && m.ready <= now && (next == nullptr || Priority(m) < Priority(*next))) next = &m;
        }

        CanFrame frame;
        frame.id = next->id;
        frame.extended = next->extended;
        frame.fd = next->fd;
        frame.bitRateSwitch = next->bitRateSwitch;
        frame.length = next->length;
        frame.direction = next->direction;
        next->encode(VehicleAt(static_cast<double>(now) / 1e9), frame.data.data(), random);
        if (next->protectedByCrc) {
            frame.data[1] = static_cast<std::uint8_t>((frame.data[1] & 0xF0) | next->counter);
            frame.data[0] = Crc8(frame.data.data() + 1, frame.length - 1u, static_cast<std::uint8_t>(next->id));
        }
        next->counter = static_cast<std::uint8_t>((next->counter + 1) & 0x0F);

        const FrameTime onBus = TimeOnBus(frame, settings.rates);
        busFree = now + onBus.nanoseconds;
        busy += onBus.nanoseconds;
        busyPerWindow[static_cast<std::size_t>(now / (100 * kMs * kNsPerUs))] += static_cast<double>(onBus.nanoseconds);
        // Stamped at its start of frame, as the bus's receivers stamp it.
        frame.timestamp = settings.start + now / kNsPerUs;
        frames.push_back(frame);

        if (next->period > 0) {
            next->due += static_cast<std::int64_t>(static_cast<double>(next->period * kNsPerUs) * (1 + next->driftPpm * 1e-6));
            next->ready = next->due + random.Between(0, kJitterNs);
        } else {
            next->waiting = false;
        }
        if (next->id == 0x7E0) {
            answer->ready = busFree + random.Between(1500, 3000) * kNsPerUs;
            answer->waiting = true;
        }

        ++stats.frames;
        stats.extended += frame.extended;
        stats.fd += frame.fd;
        stats.bitRateSwitch += frame.bitRateSwitch;
        stats.transmitted += frame.direction == Direction::Tx;
    }
    stats.meanLoad = static_cast<double>(busy) / static_cast<double>(end);
    for (double window : busyPerWindow) stats.peakLoad = std::max(stats.peakLoad, window / (100.0 * kMs * kNsPerUs));
    return frames;
}

}  // namespace veldor::sample
