// CanFileRecorder: writes the CAN frames that reach iCAN, in any of the three
// frame records, one frame an element or many, into a log file whose format
// follows its extension (.asc, .log or .blf).
//
// Frame times. With time_base "Wall clock" (the default) a frame's time on
// the engine's clock is moved onto the calendar: the offset between the
// system's real-time clock and the engine's time, taken at birth, is added,
// so that the file's dates are those of the recording, as the common tools
// write them. "Engine time" writes the frames' times as they are.
//
// The flush, the close and a failing file are those every file recorder
// shares (FileRecorderModel.h), as are the figures recorded (frames in the
// file), refused, first_time and last_time (the file times of the first and
// last frame) and idle. Its own: bus_time (how long the recorded frames held
// the bus at bit_rate and data_bit_rate; 0 without rates).
#include <memory>
#include <string>

#include "FileRecorderModel.h"
#include "LogFrames.h"
#include "can_log/LogFiles.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

using veldor::canlog::FrameWriter;
using veldor::canlog::WriteResult;

class CanFileRecorder : public FileRecorderModel<CanFileRecorder, FrameWriter> {
public:
    using FileRecorderModel::FileRecorderModel;

    void Birth() override
    {
        const std::string path = GetStringProperty("file").Beginning();
        m_offset = GetIntegerProperty("time_base") == 0 ? WallClockOffset() : 0;
        m_busTime.SetRates(GetIntegerProperty("bit_rate"), GetIntegerProperty("data_bit_rate"));
        m_busTime.Reset();
        DirectSet(Property("bus_time"), VELDInt64(0));
        std::string error;
        m_writer = veldor::canlog::OpenFrameWriter(path, error);
        if (!m_writer) Error(("cannot record into " + path + ": " + error).c_str(), 1, ErrorGeneric);
        StartRecording(path);
    }

    void Core() override
    {
        int input = 0;
        VELDIOElt* element = NextElement(input);
        if (!element) return;
        const int kind = KindOf(*element);
        const int n = kind < 0 ? 0 : element->VectorSize();
        for (int i = 0; i < n; ++i) Record(ToLogFrame(ViewOf(*element, kind, i), kind, m_offset));
        Done(input);
    }

private:
    void Record(const veldor::canlog::CanFrame& frame)
    {
        const WriteResult result = m_writer->Write(frame);
        Took(result, frame.timestamp);
        if (result == WriteResult::Written) m_busTime.Add(frame);
    }

    void PublishOwn() override { DirectSet(Property("bus_time"), m_busTime.Total()); }

    VELDTimestamp m_offset = 0;
    BusTime m_busTime;
};

VELDInputDefinition g_inputs[] = {CanInput("iCAN"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
std::vector<VELDPropertyDefinition> g_properties =
    RecorderProperties({Setting("file", new VELDPropertyValue("")),
                        Setting("time_base", new VELDPropertyValue("Wall clock|Engine time", VELDInt32(0))),
                        Setting("bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s"),
                        Setting("data_bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s")},
                       {Figure("bus_time", "us")});

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanFileRecorderDefinition = veldor_io::Define<veldor_io::CanFileRecorder>(
    "CanFileRecorder", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::CanFileRecorder, CanFileRecorderDefinition, "CanFileRecorder", "1.0.0");
