#include "TrafficFrames.h"

#include <cstring>

namespace nxbus_on_sim {

namespace {

const int kFdLengths[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

template <class Frame>
void FillArbitrationFrame(Frame& frame, const FrameFields& fields)
{
    std::memset(static_cast<void*>(&frame), 0, sizeof frame);
    if (fields.extended)
        frame.SetExtendedId(fields.id);
    else
        frame.SetStandardId(fields.id);
    frame.SetDataLength(static_cast<std::size_t>(fields.length));
    for (int i = 0; i < fields.length && i < static_cast<int>(sizeof frame.data); ++i)
        frame.data[i] = static_cast<VELDUInt8>(fields.seed + i);
    frame.SetTimestamp(fields.ts);
}

}  // namespace

VELDCANFrame ClassicRecord(const FrameFields& fields)
{
    VELDCANFrame frame;
    FillArbitrationFrame(frame, fields);
    return frame;
}

VELDCANFDFrame FdRecord(const FrameFields& fields)
{
    VELDCANFDFrame frame;
    FillArbitrationFrame(frame, fields);
    return frame;
}

VELDCANUniFrame UniversalRecord(const FrameFields& fields)
{
    VELDCANUniFrame frame;
    if (fields.extended)
        frame.SetExtendedId(fields.id);
    else
        frame.SetStandardId(fields.id);
    frame.SetFD(fields.fd);
    frame.SetFlag<VELDCANUniFrame::Flag_BRS>(fields.brs);
    frame.SetFlag<VELDCANUniFrame::Flag_TX>(true);
    frame.SetDataLength(static_cast<std::size_t>(fields.length));
    for (int i = 0; i < fields.length; ++i)
        frame.data[i] = static_cast<VELDUInt8>(fields.seed + i);
    frame.SetTimestamp(fields.ts);
    return frame;
}

std::vector<FrameFields> MixedTraffic()
{
    std::vector<FrameFields> fieldSets;
    auto add = [&fieldSets](Record record, std::uint32_t id, bool extended, int length, bool fd, bool brs) {
        fieldSets.push_back({record, id, extended, length, fd, brs, static_cast<std::uint8_t>(fieldSets.size() * 7), 0});
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
    return fieldSets;
}

NXSCanMessage ToMessage(const FrameFields& fields)
{
    NXSCanMessage message;
    std::memset(&message, 0, sizeof message);
    switch (fields.record) {
    case Record::Classic:
        NxCanApiWrapper::CopyFrame(message, ClassicRecord(fields));
        break;
    case Record::Fd:
        NxCanApiWrapper::CopyFrame(message, FdRecord(fields));
        break;
    case Record::Universal:
        NxCanApiWrapper::CopyFrame(message, UniversalRecord(fields));
        break;
    }
    return message;
}

std::vector<NXSCanMessage> ToMessages(const std::vector<FrameFields>& fieldSets)
{
    std::vector<NXSCanMessage> messages;
    for (const FrameFields& fields : fieldSets)
        messages.push_back(ToMessage(fields));
    return messages;
}

NxBusError Stage(NxCanApiWrapper& wrapper, const FrameFields& fields)
{
    switch (fields.record) {
    case Record::Classic:
        return wrapper.CopyFrame2(ClassicRecord(fields));
    case Record::Fd:
        return wrapper.CopyFrame2(FdRecord(fields));
    case Record::Universal:
        break;
    }
    return wrapper.CopyFrame2(UniversalRecord(fields));
}

}  // namespace nxbus_on_sim
