#include "CanRecords.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "veld_constants.h"
#include "veld_io_elt.h"
#include "veld_object_types.h"

namespace veldor_io {

const char* const kRecordKinds = "CAN|CAN FD|Universal CAN";

int KindOf(VELDIOElt& element)
{
    const VELDTypeInfo& type = element.Type();
    if (VELD::TypeFilter(type, VELD::FilterCANUniFrame)) return UniversalRecord;
    if (VELD::TypeFilter(type, VELD::FilterCANFDFrame)) return FdRecord;
    if (VELD::TypeFilter(type, VELD::FilterCANFrame)) return ClassicRecord;
    return -1;
}

VELDTypeInfoValue TypeOf(int kind)
{
    switch (kind) {
    case FdRecord: return VELD::CANFDFrame;
    case UniversalRecord: return VELD::CANUniFrame;
    default: return VELD::CANFrame;
    }
}

FrameView ViewOf(VELDIOElt& element, int kind, int i)
{
    FrameView view{};
    if (kind == UniversalRecord) {
        const VELDCANUniFrame& f = static_cast<const VELDCANUniFrame*>(element.Data())[i];
        view = {f.GetId(), f.HasExtendedId(), static_cast<int>(f.GetDataLength()), f.data, 64, f.IsFD(),
                f.HasFlag<VELDCANUniFrame::Flag_BRS>() && f.GetFlag<VELDCANUniFrame::Flag_BRS>(),
                f.HasFlag<VELDCANUniFrame::Flag_Remote>() && f.GetFlag<VELDCANUniFrame::Flag_Remote>(), f.ts,
                f.HasFlag<VELDCANUniFrame::Flag_FD>()};
    } else if (kind == FdRecord) {
        const VELDCANFDFrame& f = static_cast<const VELDCANFDFrame*>(element.Data())[i];
        view = {f.GetId(), f.HasExtendedId(), f.dataLength, f.data, 64, false, false, false, f.ts};
    } else {
        const VELDCANFrame& f = static_cast<const VELDCANFrame*>(element.Data())[i];
        view = {f.GetId(), f.HasExtendedId(), f.dataLength, f.data, 8, false, false, f.isRemote, f.ts, true};
    }
    return view;
}

namespace {

template <class Frame>
void FillIdentity(Frame& frame, const FrameFields& fields)
{
    if (fields.extended)
        frame.SetExtendedId(fields.id);
    else
        frame.SetStandardId(fields.id);
    frame.SetDataLength(static_cast<std::size_t>(fields.length));
    frame.SetTimestamp(fields.ts);
}

}  // namespace

void WriteFrame(VELDIOElt& element, int kind, int i, const FrameFields& fields, const std::uint8_t* data)
{
    const std::size_t n = fields.length < 0 ? 0 : static_cast<std::size_t>(fields.length);
    if (kind == UniversalRecord) {
        VELDCANUniFrame& f = static_cast<VELDCANUniFrame*>(element.Data())[i];
        f.Reset();
        FillIdentity(f, fields);
        f.SetFD(fields.fd);
        f.SetFlag<VELDCANUniFrame::Flag_BRS>(fields.brs);
        f.SetFlag<VELDCANUniFrame::Flag_TX>(true);
        f.SetFlag<VELDCANUniFrame::Flag_Remote>(fields.remote);
        f.SetFrameType(fields.remote ? VELDCANUniFrame::Type_Remote : VELDCANUniFrame::Type_Data);
        if (fields.channel >= 0) f.SetChannelId(static_cast<VELDUInt8>(fields.channel < 255 ? fields.channel : 255));
        std::memcpy(f.data, data, n < sizeof f.data ? n : sizeof f.data);
    } else if (kind == FdRecord) {
        VELDCANFDFrame& f = static_cast<VELDCANFDFrame*>(element.Data())[i];
        std::memset(&f, 0, sizeof f);
        FillIdentity(f, fields);
        std::memcpy(f.data, data, n < sizeof f.data ? n : sizeof f.data);
    } else {
        VELDCANFrame& f = static_cast<VELDCANFrame*>(element.Data())[i];
        std::memset(&f, 0, sizeof f);
        FillIdentity(f, fields);
        f.isRemote = fields.remote;
        std::memcpy(f.data, data, n < sizeof f.data ? n : sizeof f.data);
    }
}

std::string FormatFrame(const FrameView& frame)
{
    std::string line = "(" + FormatTime(frame.ts) + ") ";
    char field[16];
    std::snprintf(field, sizeof field, frame.extended ? "%08" PRIX32 : "%03" PRIX32, frame.id);
    line += field;
    std::snprintf(field, sizeof field, " [%d]", frame.length);
    line += field;
    const int shown = frame.length < 0 ? 0 : (frame.length < frame.capacity ? frame.length : frame.capacity);
    for (int i = 0; i < shown; ++i) {
        std::snprintf(field, sizeof field, " %02X", frame.data[i]);
        line += field;
    }
    if (frame.fd || frame.brs || frame.remote) {
        line += " ";
        if (frame.fd) line += " FD";
        if (frame.brs) line += " BRS";
        if (frame.remote) line += " RTR";
    }
    return line;
}

std::uint32_t CounterOf(const FrameView& frame)
{
    std::uint32_t counter = 0;
    const int n = frame.length < 4 ? (frame.length < 0 ? 0 : frame.length) : 4;
    for (int i = 0; i < n; ++i) counter |= static_cast<std::uint32_t>(frame.data[i]) << (8 * i);
    return counter;
}

}  // namespace veldor_io
