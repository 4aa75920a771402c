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
// The file is written through a buffer, handed to the system each
// flush_period of real time and closed when the component stops: whatever
// reached the recorder before a stop is in the file. A frame the file can't
// hold is counted as refused and told once; a file that can't be written
// stops the recorder with the system's reason.
//
// Figures: recorded (frames in the file), refused, first_time and last_time
// (the file times of the first and last frame), bus_time (how long the
// recorded frames held the bus at bit_rate and data_bit_rate; 0 without
// rates), idle (1 while the recorder waits for frames with nothing left to
// write: what a caller that stopped the sources waits for before stopping
// the recorder).
#include <sys/time.h>

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

VELDTimestamp WallClock()
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<VELDTimestamp>(now.tv_sec) * 1000000 + now.tv_usec;
}

class CanFileRecorder : public FileRecorderModel<CanFileRecorder> {
public:
    using FileRecorderModel::FileRecorderModel;

    void Birth() override
    {
        m_path = GetStringProperty("file").Beginning();
        m_offset = GetIntegerProperty("time_base") == 0 ? WallClock() - VELD::CurrentTime(true, true) : 0;
        m_busTime.SetRates(GetIntegerProperty("bit_rate"), GetIntegerProperty("data_bit_rate"));
        m_busTime.Reset();
        m_recorded = m_refused = 0;
        m_failed = false;
        for (const char* figure : {"recorded", "refused", "first_time", "last_time", "bus_time"})
            DirectSet(Property(figure), VELDInt64(0));
        std::string error;
        m_writer = veldor::canlog::OpenFrameWriter(m_path, error);
        if (!m_writer) Error(("cannot record into " + m_path + ": " + error).c_str(), 1, ErrorGeneric);
        StartRecording();
    }

    void Core() override
    {
        VELDIOElt* element = NextElement();
        if (!element) return;
        const int kind = KindOf(*element);
        const int n = kind < 0 ? 0 : element->VectorSize();
        const VELDInt64 before = m_recorded;
        for (int i = 0; i < n; ++i) Record(ToLogFrame(ViewOf(*element, kind, i), kind, m_offset));
        StopReading(Input(0));
        if (before == 0 && m_recorded > 0) DirectSet(Property("first_time"), m_firstTime);
        DirectSet(Property("last_time"), m_lastTime);
        DirectSet(Property("recorded"), m_recorded);
        DirectSet(Property("bus_time"), m_busTime.Total());
        if (FlushDue() && !m_writer->Flush()) Fail();
    }

    void Death() override
    {
        if (!m_writer) return;
        const bool closed = m_writer->Close();
        DirectSet(Property("recorded"), m_recorded);
        // A file that failed before was told then.
        if (!closed && !m_failed) Fail();
    }

private:
    void Record(const veldor::canlog::CanFrame& frame)
    {
        switch (m_writer->Write(frame)) {
        case WriteResult::Written:
            if (m_recorded++ == 0) m_firstTime = frame.timestamp;
            m_lastTime = frame.timestamp;
            m_busTime.Add(frame);
            break;
        case WriteResult::Refused:
            if (m_refused++ == 0)
                ReportWarning(("a frame can't be written into " + m_path + ": " + m_writer->Error() +
                               "; such frames are counted as refused")
                                  .c_str(),
                              0);
            DirectSet(Property("refused"), m_refused);
            break;
        case WriteResult::Failed: Fail();
        }
    }

    [[noreturn]] void Fail()
    {
        m_failed = true;
        Stop("cannot write " + m_path + ": " + m_writer->Error());
    }

    std::string m_path;
    std::unique_ptr<FrameWriter> m_writer;
    VELDTimestamp m_offset = 0;
    VELDInt64 m_recorded = 0;
    VELDInt64 m_refused = 0;
    VELDTimestamp m_firstTime = 0;
    VELDTimestamp m_lastTime = 0;
    bool m_failed = false;
    BusTime m_busTime;
};

VELDInputDefinition g_inputs[] = {CanInput("iCAN"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_properties[] = {
    Setting("file", new VELDPropertyValue("")),
    Setting("time_base", new VELDPropertyValue("Wall clock|Engine time", VELDInt32(0))),
    Setting("flush_period", new VELDPropertyValue(VELDInt64(1000000)), "us"),
    Setting("bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s"),
    Setting("data_bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s"),
    Figure("recorded"),
    Figure("refused"),
    Figure("first_time", "us"),
    Figure("last_time", "us"),
    Figure("bus_time", "us"),
    Figure("idle"),
    VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanFileRecorderDefinition = veldor_io::Define<veldor_io::CanFileRecorder>(
    "CanFileRecorder", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::CanFileRecorder, CanFileRecorderDefinition, "CanFileRecorder", "1.0.0");
