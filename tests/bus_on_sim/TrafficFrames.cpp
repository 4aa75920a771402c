#include "TrafficFrames.h"

#include <cstring>

namespace nxbus_on_sim {

namespace {

const int kFdLengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

template <class Frame>
void FillArbitrationFrame(Frame& frame, const FrameSpec& spec)
{
    std::memset(static_cast<void*>(&frame), 0, sizeof frame);
    if (spec.extended)
        frame.SetExtendedId(spec.id);
    else
        frame.SetStandardId(spec.id);
    frame.SetDataLength(static_cast<std::size_t>(spec.length));
    for (int i = 0; i < spec.length && i < static_cast<int>(sizeof frame.data); ++i)
        frame.data[i] = static_cast<VELDUInt8>(spec.seed + i);
    frame.SetTimestamp(spec.ts);
}

}  // namespace

VELDCANFrame ClassicRecord(const FrameSpec& spec)
{
    VELDCANFrame frame;
    FillArbitrationFrame(frame, spec);
    return frame;
}

VELDCANFDFrame FdRecord(const FrameSpec& spec)
{
    VELDCANFDFrame frame;
    FillArbitrationFrame(frame, spec);
    return frame;
}

VELDCANUniFrame UniversalRecord(const FrameSpec& spec)
{
    VELDCANUniFrame frame;
    if (spec.extended)
        frame.SetExtendedId(spec.id);
    else
        frame.SetStandardId(spec.id);
    frame.SetFD(spec.fd);
    frame.SetFlag<VELDCANUniFrame::Flag_BRS>(spec.brs);
    frame.SetFlag<VELDCANUniFrame::Flag_TX>(true);
    frame.SetDataLength(static_cast<std::size_t>(spec.length));
    for (int i = 0; i < spec.length; ++i)
        frame.data[i] = static_cast<VELDUInt8>(spec.seed + i);
    frame.SetTimestamp(spec.ts);
    return frame;
}

std::vector<FrameSpec> MixedTraffic()
{
    std::vector<FrameSpec> specs;
    auto add = [&specs](Record record, std::uint32_t id, bool extended, int length, bool fd, bool brs) {
        specs.push_back({record, id, extended, length, fd, brs, static_cast<std::uint8_t>(specs.size() * 7), 0});
    };
    for (int length = 0; length <= 8; ++length) {
        add(Record::Classic, 0x100 + length, false, length, false, false);
        add(Record::Classic, length == 8 ? 0x1FFFFFFF : 0x1ABC000 + length, true, length, false, false);
        add(Record::Universal, 0x7F7 + length, false, length, false, false);
    }
    int n = 0;
    for (int length : kFdLengths) {
        ++n;
        add(Record::Fd, n % 2 ? 0x200 + n : 0x0BCD0000 + n, n % 2 == 0, length, true, true);
        add(Record::Universal, n % 2 ? 0x0DEF0000 + n : 0x300 + n, n % 2 == 1, length, true, false);
    }
    add(Record::Universal, 0x7FF, false, 64, true, true);
    add(Record::Universal, 0x1FFFFFFF, true, 12, true, true);
    return specs;
}

NXSCanMessage ToMessage(const FrameSpec& spec)
{
    NXSCanMessage message;
    std::memset(&message, 0, sizeof message);
    switch (spec.record) {
    case Record::Classic:
        NxCanApiWrapper::CopyFrame(message, ClassicRecord(spec));
        break;
    case Record::Fd:
        NxCanApiWrapper::CopyFrame(message, FdRecord(spec));
        break;
    case Record::Universal:
        NxCanApiWrapper::CopyFrame(message, UniversalRecord(spec));
        break;
    }
    return message;
}

std::vector<NXSCanMessage> ToMessages(const std::vector<FrameSpec>& specs)
{
    std::vector<NXSCanMessage> messages;
    for (const FrameSpec& spec : specs)
        messages.push_back(ToMessage(spec));
    return messages;
}

NxBusError Stage(NxCanApiWrapper& wrapper, const FrameSpec& spec)
{
    switch (spec.record) {
    case Record::Classic:
        return wrapper.CopyFrame2(ClassicRecord(spec));
    case Record::Fd:
        return wrapper.CopyFrame2(FdRecord(spec));
    case Record::Universal:
        break;
    }
    return wrapper.CopyFrame2(UniversalRecord(spec));
}

}  // namespace nxbus_on_sim
