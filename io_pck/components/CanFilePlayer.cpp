// CanFilePlayer: plays a CAN log file (.asc, .log or .blf, by its extension)
// onto oCAN, in any of the three frame records, paced by the engine's clock,
// and gives a synchronised replay its four times (oLogStartTime,
// oReplayStartTime, oReplayStopTime, oReplayEofTime).
//
// The pacing, the times, max_gap, on_error and the figures are those every
// file player shares (FilePlayerModel.h): a frame recorded at t is handed on
// at S + (t - L) - send_ahead on the engine's clock; the element's timestamp
// is the due time of its first frame, and vectorize_frames puts up to 256
// frames due together into one element.
//
// A line that can't be read is reported with its line number and skipped,
// or stops the player with on_error "Stop". What the reader decided about
// the file as a whole is told once. A file that can't be opened, or holds
// no frame, fails the player's birth with one message. Frames a record
// can't carry (FD frames in the classic record, remote frames in the FD
// record) are passed over, counted as unfit and told once.
//
// Figures of its own: bus_time (how long the frames handed on hold the bus
// at bit_rate and data_bit_rate; 0 without rates), other_objects (objects
// of a BLF file that carry no frame).
#include <memory>
#include <string>

#include "FilePlayerModel.h"
#include "LogFrames.h"
#include "ModelTables.h"
#include "can_log/LogFiles.h"
#include "veld_dynamic_io_models.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

using veldor::canlog::CanFrame;
using veldor::canlog::FrameReader;
using veldor::canlog::IssueKind;
using veldor::canlog::ReadResult;

const int kMaxVector = 256;

class CanFilePlayer : public FilePlayerModel<CanFilePlayer> {
public:
    using FilePlayerModel::FilePlayerModel;

    void Dynamic() override
    {
        m_outputs.Reset();
        const int kind = static_cast<int>(GetIntegerProperty("output_type"));
        m_outputs.NewOutput(*this, "oCAN", TypeOf(kind) | VELD::VectorFlag, "");
    }

    void Birth() override
    {
        m_kind = static_cast<int>(GetIntegerProperty("output_type"));
        m_vector = GetBoolProperty("vectorize_frames") ? kMaxVector : 1;
        m_busTime.SetRates(GetIntegerProperty("bit_rate"), GetIntegerProperty("data_bit_rate"));
        m_busTime.Reset();
        for (const char* figure : {"bus_time", "other_objects"}) DirectSet(Property(figure), VELDInt64(0));
        Output("oCAN").AllocOutputBuffer(m_vector, true);
        StartReplay();
    }

private:
    void Rewind() override
    {
        std::string error;
        m_reader = veldor::canlog::OpenFrameReader(m_path, error);
        if (!m_reader) Error(error.c_str(), 1, ErrorGeneric);
        m_noticesTold = 0;
        if (!Next()) StopOnRecord(m_path + " holds no CAN frame");
    }

    // The next frame into m_frame. Lines that can't be read are told and
    // counted unless `quiet`.
    bool Advance(bool quiet) override
    {
        for (;;) {
            const ReadResult result = m_reader->Next(m_frame);
            TellNotices(quiet);
            switch (result) {
            case ReadResult::Frame: Arrived(m_frame.timestamp, quiet); return true;
            case ReadResult::End: return false;
            case ReadResult::Issue: break;
            }
            const veldor::canlog::ReadIssue& issue = m_reader->Issue();
            if (!Unreadable(m_path + ": " + issue.Describe(),
                            issue.kind == IssueKind::Truncated ? "; the frames before it are played"
                                                               : "; the line is skipped",
                            quiet))
                return false;
        }
    }

    bool Play(VELDTimestamp now) override
    {
        VELDIOElt* element = StartWriting(Output("oCAN"));
        if (!element) return true;
        element->Timestamp() = Due(m_time);
        int n = 0;
        bool more = true;
        while (more && n < m_vector && IsDue(now)) {
            if (const char* why = UnfitFor(m_frame, m_kind)) {
                CountUnfit(m_path + ": " + why + "; such frames are passed over");
            } else {
                WriteFrame(*element, m_kind, n++, FieldsOf(m_frame), m_frame.data.data());
                Handed(m_frame.timestamp, now);
                m_busTime.Add(m_frame);
            }
            more = Next();
        }
        element->VectorSize() = n;
        StopWriting(element, n == 0);
        return more;
    }

    std::string Place() override { return m_reader->FramePlace().Describe(); }

    void PublishOwn() override
    {
        DirectSet(Property("bus_time"), m_busTime.Total());
        DirectSet(Property("other_objects"), static_cast<VELDInt64>(m_reader ? m_reader->OtherObjects() : 0));
    }

    // What the reader decided about the file as a whole, told once.
    void TellNotices(bool quiet)
    {
        const std::vector<std::string>& notices = m_reader->Notices();
        for (; m_noticesTold < notices.size(); ++m_noticesTold) {
            if (!quiet) ReportWarning((m_path + ": " + notices[m_noticesTold]).c_str(), 0);
        }
    }

    VELD::DynamicOutputModelSet m_outputs;
    std::unique_ptr<FrameReader> m_reader;
    CanFrame m_frame;
    int m_kind = 0;
    int m_vector = 1;
    std::size_t m_noticesTold = 0;
    BusTime m_busTime;
};

std::vector<VELDPropertyDefinition> g_properties = PacedPlayerProperties(
    {Setting("file", new VELDPropertyValue("")),
     Setting("output_type", new VELDPropertyValue(kRecordKinds, VELDInt32(UniversalRecord))),
     Setting("vectorize_frames", new VELDPropertyValue(false)),
     Setting("bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s"),
     Setting("data_bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s")},
    {Figure("other_objects"), Figure("bus_time", "us")});

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanFilePlayerDefinition =
    veldor_io::Define<veldor_io::CanFilePlayer>("CanFilePlayer", "1.0.0", nullptr, veldor_io::ReplayTimeOutputs(),
                                                veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::CanFilePlayer, CanFilePlayerDefinition, "CanFilePlayer", "1.0.0");
