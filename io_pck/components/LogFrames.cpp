#include "LogFrames.h"

#include <algorithm>
#include <cstring>

#include "BusTiming.h"

namespace veldor_io {

using veldor::canlog::CanFrame;

CanFrame ToLogFrame(const FrameView& view, int kind, std::int64_t offset)
{
    CanFrame frame;
    frame.timestamp = view.ts + offset;
    frame.id = view.id;
    frame.extended = view.extended;
    frame.remote = view.remote;
    // A record that does not say FD (the FD record, or a universal one with
    // the flag unknown, as a bus monitor writes it) is taken by its length:
    // a frame longer than 8 bytes or with a bit rate switch is FD.
    frame.fd = view.fdKnown ? view.fd : view.length > 8 || view.brs;
    frame.bitRateSwitch = frame.fd && view.brs;
    const int length = std::max(0, std::min(view.length, 255));
    frame.length = static_cast<std::uint8_t>(length);
    if (!frame.remote) std::memcpy(frame.data.data(), view.data, std::min(length, view.capacity));
    return frame;
}

const char* UnfitFor(const CanFrame& frame, int kind)
{
    if (kind == ClassicRecord && frame.fd) return "a CAN FD frame does not fit the CAN record";
    if (kind == FdRecord && frame.remote) return "a remote frame does not fit the CAN FD record";
    return nullptr;
}

FrameFields FieldsOf(const CanFrame& frame)
{
    FrameFields fields{};
    fields.id = frame.id;
    fields.extended = frame.extended;
    fields.length = frame.length;
    fields.fd = frame.fd;
    fields.brs = frame.bitRateSwitch;
    fields.ts = frame.timestamp;
    fields.remote = frame.remote;
    return fields;
}

void BusTime::SetRates(std::int64_t arbitration, std::int64_t data)
{
    m_arbitration = arbitration > 0 ? arbitration : 0;
    m_data = data > 0 ? data : m_arbitration;
}

void BusTime::Add(const CanFrame& frame)
{
    if (m_arbitration == 0) return;
    veldor::sample::BusRates rates;
    rates.arbitration = static_cast<std::uint32_t>(m_arbitration);
    rates.data = static_cast<std::uint32_t>(m_data);
    m_nanoseconds += veldor::sample::TimeOnBus(frame, rates).nanoseconds;
}

}  // namespace veldor_io
