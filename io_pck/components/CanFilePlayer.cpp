// CanFilePlayer: plays a CAN log file (.asc, .log or .blf, by its extension)
// onto oCAN, in any of the three frame records, paced by the engine's clock,
// and gives a synchronised replay its four times.
//
// Time. Frames keep their recorded times. The first frame's time is the log
// start L; the run's birth time plus replay_lead is the replay start S, an
// engine time. A frame recorded at t is due at S + (t - L) on the engine's
// clock, the same rule by which an injector in Synchronized mode emits it
// (emission = replay start + (frame time - log start)). The player hands a
// frame on send_ahead before it is due: 0 for a replay that sends frames as
// they come; a synchronised replay gives the hardware a lead instead, which
// must exceed the injector's replay_period. The element's timestamp is the
// due time of its first frame.
//
// The engine's clock rules the pace: a higher speed plays faster, a pause
// holds the frames back, and a jump moves the player to the frame the new
// time asks for (forward: frames on the way are passed over; backward: the
// file is read again from its start). The clock tells of a jump on the
// host's time thread, a moment after the jump; a wait that ended because
// the clock leapt forward must not send the frames that the leap passes
// over in that moment, so the player also watches for a leap itself
// (LeapWatch), and while the clock stands a frame that still came due came
// by a jump. It then holds on until the clock's word arrives.
//
// Outputs, 64-bit microseconds:
//   oLogStartTime     L, at birth
//   oReplayStartTime  S, at birth
//   oReplayStopTime   S + replay_stop, or 0 (no stop), at birth
//   oReplayEofTime    the last frame's time (at least 1, as 0 tells an
//                     injector nothing), once the file is exhausted
//
// A gap of more than max_gap between two frames (a file that mixes times of
// two clocks would wait for decades) is shortened to max_gap, and a leap
// back by more than that is closed: the frame comes right after the one
// before. Frames after it move with it, also their times in the records, so
// that a synchronised replay keeps the same pace. The first gap of each kind
// is told with its place and length; gaps_shortened counts them all.
//
// A line that can't be read is reported with its line number and skipped,
// or stops the player with on_error "Stop". What the reader decided about
// the file as a whole is told once. A file that can't be opened, or holds
// no frame, fails the player's birth with one message.
#include <cstdio>
#include <memory>
#include <string>

#include "EnginePace.h"
#include "LogFrames.h"
#include "ModelTables.h"
#include "can_log/LogFiles.h"
#include "can_log/TimeGaps.h"
#include "veld_clock.h"
#include "veld_dynamic_io_models.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

using veldor::canlog::CanFrame;
using veldor::canlog::FrameReader;
using veldor::canlog::IssueKind;
using veldor::canlog::ReadResult;
using veldor::canlog::TimeGaps;

const int kMaxVector = 256;

// Microseconds as seconds, without trailing zeros: "60", "1700000000.01".
std::string SecondsText(std::int64_t micros)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.6f", static_cast<double>(micros) / 1e6);
    std::string s = text;
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.') s.pop_back();
    return s;
}

class CanFilePlayer : public VELDModel<CanFilePlayer>, public VELDTimeStateListener {
public:
    using VELDModel::VELDModel;
    ~CanFilePlayer() override { Unregister(); }

    void Dynamic() override
    {
        m_outputs.Reset();
        const int kind = static_cast<int>(GetIntegerProperty("output_type"));
        m_outputs.NewOutput(*this, "oCAN", TypeOf(kind) | VELD::VectorFlag, "");
    }

    void Birth() override
    {
        m_path = GetStringProperty("file").Beginning();
        m_kind = static_cast<int>(GetIntegerProperty("output_type"));
        m_vector = GetBoolProperty("vectorize_frames") ? kMaxVector : 1;
        m_stopOnError = GetIntegerProperty("on_error") == 1;
        m_sendAhead = GetIntegerProperty("send_ahead");
        m_lateThreshold = GetIntegerProperty("late_threshold");
        m_busTime.SetRates(GetIntegerProperty("bit_rate"), GetIntegerProperty("data_bit_rate"));
        m_busTime.Reset();
        m_gaps = TimeGaps(GetIntegerProperty("max_gap"));
        m_sent = m_late = m_badLines = m_unfit = m_passedOver = m_jumps = m_gapsShortened = 0;
        m_gapsTold[0] = m_gapsTold[1] = false;
        m_finished = false;
        m_stop.clear();
        m_jumped.Reset();
        m_watch.Restart();
        for (const char* figure : {"sent", "late", "bad_lines", "unfit", "passed_over", "jumps", "finished",
                                   "position", "bus_time", "end_of_data", "gaps_shortened", "other_objects"})
            DirectSet(Property(figure), VELDInt64(0));

        Open();
        if (!Next()) StopOnLine(m_path + " holds no CAN frame");
        m_logStart = m_frame.timestamp;
        m_replayStart = VELD::CurrentTime(true, true) + GetIntegerProperty("replay_lead");
        const VELDInt64 stopAfter = GetIntegerProperty("replay_stop");
        const VELDInt64 stop = stopAfter > 0 ? m_replayStart + stopAfter : 0;
        DirectSet(Property("log_start"), m_logStart);
        DirectSet(Property("replay_start_time"), m_replayStart);
        DirectSet(Property("replay_stop_time"), stop);

        Output("oCAN").AllocOutputBuffer(m_vector, true);
        Put("oLogStartTime", m_logStart);
        Put("oReplayStartTime", m_replayStart);
        Put("oReplayStopTime", stop);
    }

    void Core() override
    {
        if (m_jumped.IsSet()) FollowJump();
        if (m_finished) {
            Rest(10000, &m_jumped);
            return;
        }
        if (!Wait(Due(m_frame) - m_sendAhead, &m_jumped) || m_jumped.IsSet()) return;

        VELDTimestamp now = 0;
        // While the clock stands, a frame comes due only by a jump, whose
        // word is on its way: nothing is sent until it arrives or the clock
        // runs again.
        if (VELD::IsPaused() || m_watch.Leapt(now)) {
            // At worst a false alarm under a preempted reading: a short hold.
            m_jumped.Wait(kJumpWordWait);
            return;
        }
        VELDIOElt* element = StartWriting(Output("oCAN"));
        if (!element) return;
        element->Timestamp() = Due(m_frame);
        int n = 0;
        bool more = true;
        while (more && n < m_vector && Due(m_frame) - m_sendAhead <= now) {
            if (const char* why = UnfitFor(m_frame, m_kind)) {
                if (m_unfit++ == 0) ReportWarning((m_path + ": " + why + "; such frames are passed over").c_str(), 0);
            } else {
                WriteFrame(*element, m_kind, n++, FieldsOf(m_frame), m_frame.data.data());
                if (now - Due(m_frame) > m_lateThreshold) ++m_late;
                m_busTime.Add(m_frame);
                m_position = m_frame.timestamp - m_logStart;
            }
            more = Next();
        }
        element->VectorSize() = n;
        StopWriting(element, n == 0);
        m_sent += n;
        Publish();
        // The frames read before a line that stops the player are out.
        if (!more) StopOnLine("");
        if (!more) Finish();
    }

    void CallbackTimeJumped(VELDTimestamp) override { m_jumped.Set(); }
    void CallbackTimeSpeedChanged(int) override {}
    void CallbackTimePaused(bool) override {}

private:
    VELDTimestamp Due(const CanFrame& frame) const { return m_replayStart + (frame.timestamp - m_logStart); }

    // The file from its start.
    void Open()
    {
        std::string error;
        m_reader = veldor::canlog::OpenFrameReader(m_path, error);
        if (!m_reader) Error(error.c_str(), 1, ErrorGeneric);
        m_gaps.Restart();
        m_noticesTold = 0;
    }

    // What the reader decided about the file, and the first gap of each
    // kind that was changed, told once.
    void Tell(TimeGaps::Change change, bool quiet)
    {
        const std::vector<std::string>& notices = m_reader->Notices();
        for (; m_noticesTold < notices.size(); ++m_noticesTold) {
            if (!quiet) ReportWarning((m_path + ": " + notices[m_noticesTold]).c_str(), 0);
        }
        if (change == TimeGaps::Change::None) return;
        m_gapsShortened = std::max<VELDInt64>(m_gapsShortened, static_cast<VELDInt64>(m_gaps.Changed()));
        bool& told = m_gapsTold[change == TimeGaps::Change::Shortened ? 0 : 1];
        if (quiet || told) return;
        told = true;
        const std::string where = m_path + ": " + m_reader->FramePlace().Describe() + ": ";
        if (change == TimeGaps::Change::Shortened) {
            ReportWarning((where + "the frame comes " + SecondsText(m_gaps.LastGap()) +
                           " s after the one before; the gap is shortened to " + SecondsText(m_gaps.MaxGap()) +
                           " s, as are longer ones after it")
                              .c_str(),
                          0);
        } else {
            ReportWarning((where + "the time goes back " + SecondsText(-m_gaps.LastGap()) +
                           " s; the frame comes right after the one before, as do later such frames")
                              .c_str(),
                          0);
        }
    }

    // The next frame into m_frame; false at the end of the file, or at a
    // line that can't be read when such a line stops the player (its text
    // then waits in m_stop for StopOnLine). Other lines that can't be read
    // are told and counted unless `quiet`.
    bool Next(bool quiet = false)
    {
        for (;;) {
            switch (m_reader->Next(m_frame)) {
            case ReadResult::Frame: Tell(m_gaps.Apply(m_frame), quiet); return true;
            case ReadResult::End: Tell(TimeGaps::Change::None, quiet); return false;
            case ReadResult::Issue: break;
            }
            if (quiet) continue;
            ++m_badLines;
            DirectSet(Property("bad_lines"), m_badLines);
            const veldor::canlog::ReadIssue& issue = m_reader->Issue();
            const std::string text = m_path + ": " + issue.Describe();
            if (m_stopOnError) {
                m_stop = text;
                return false;
            }
            ReportWarning((text + (issue.kind == IssueKind::Truncated ? "; the frames before it are played"
                                                                       : "; the line is skipped"))
                              .c_str(),
                          0);
        }
    }

    // Ends the player with the line that stopped it, or with `otherwise`
    // when that is not empty; else does nothing.
    void StopOnLine(const std::string& otherwise)
    {
        const std::string text = m_stop.empty() ? otherwise : m_stop;
        m_stop.clear();
        if (!text.empty()) Error(text.c_str(), 1, ErrorGeneric);
    }

    // After a jump of the clock: the first frame not yet due at the new time
    // becomes the next one.
    void FollowJump()
    {
        m_jumped.Reset();
        m_watch.Restart();
        ++m_jumps;
        const VELDTimestamp target = m_logStart + (VELD::CurrentTime(true, true) + m_sendAhead - m_replayStart);
        bool more = !m_finished;
        if (m_finished || target < m_frame.timestamp) {
            // Backward: from the start again; the lines were told already.
            Open();
            more = Next(true);
        }
        while (more && m_frame.timestamp < target) {
            ++m_passedOver;
            more = Next(!m_finished);
        }
        StopOnLine("");
        m_finished = !more;
        Publish();
    }

    void Finish()
    {
        m_finished = true;
        const VELDInt64 end = m_frame.timestamp > 0 ? m_frame.timestamp : 1;
        DirectSet(Property("end_of_data"), end);
        DirectSet(Property("finished"), VELDInt64(1));
        Put("oReplayEofTime", end);
    }

    void Publish()
    {
        DirectSet(Property("sent"), m_sent);
        DirectSet(Property("late"), m_late);
        DirectSet(Property("unfit"), m_unfit);
        DirectSet(Property("passed_over"), m_passedOver);
        DirectSet(Property("jumps"), m_jumps);
        DirectSet(Property("position"), m_position);
        DirectSet(Property("bus_time"), m_busTime.Total());
        DirectSet(Property("gaps_shortened"), m_gapsShortened);
        DirectSet(Property("other_objects"), static_cast<VELDInt64>(m_reader->OtherObjects()));
    }

    void Put(const char* output, VELDInt64 value)
    {
        VELDIOElt* element = StartWriting(Output(output));
        if (!element) return;
        *element->Integer64(0) = value;
        StopWriting(element);
    }

    VELD::DynamicOutputModelSet m_outputs;
    std::string m_path;
    std::string m_stop;
    std::unique_ptr<FrameReader> m_reader;
    CanFrame m_frame;
    int m_kind = 0;
    int m_vector = 1;
    bool m_stopOnError = false;
    bool m_finished = false;
    VELDInt64 m_sendAhead = 0;
    VELDInt64 m_lateThreshold = 1000;
    VELDTimestamp m_logStart = 0;
    VELDTimestamp m_replayStart = 0;
    VELDInt64 m_position = 0;
    VELDInt64 m_sent = 0, m_late = 0, m_badLines = 0, m_unfit = 0, m_passedOver = 0, m_jumps = 0;
    VELDInt64 m_gapsShortened = 0;
    TimeGaps m_gaps;
    bool m_gapsTold[2] = {false, false};  // shortened, leapt back
    std::size_t m_noticesTold = 0;
    BusTime m_busTime;
    VELDEvent m_jumped;
    LeapWatch m_watch;
};

VELDOutputDefinition g_outputs[] = {TimeOutput("oLogStartTime"), TimeOutput("oReplayStartTime"),
                                    TimeOutput("oReplayStopTime"), TimeOutput("oReplayEofTime"),
                                    VELDOutputDefinition{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};

VELDPropertyDefinition g_properties[] = {
    Setting("file", new VELDPropertyValue("")),
    Setting("output_type", new VELDPropertyValue(kRecordKinds, VELDInt32(UniversalRecord))),
    Setting("vectorize_frames", new VELDPropertyValue(false)),
    Setting("replay_lead", new VELDPropertyValue(VELDInt64(500000)), "us"),
    Setting("replay_stop", new VELDPropertyValue(VELDInt64(0)), "us"),
    Setting("send_ahead", new VELDPropertyValue(VELDInt64(0)), "us"),
    Setting("late_threshold", new VELDPropertyValue(VELDInt64(1000)), "us"),
    Setting("on_error", new VELDPropertyValue("Skip|Stop", VELDInt32(0))),
    Setting("max_gap", new VELDPropertyValue(VELDInt64(60000000)), "us"),
    Setting("bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s"),
    Setting("data_bit_rate", new VELDPropertyValue(VELDInt64(0)), "bit/s"),
    Figure("sent"),
    Figure("late"),
    Figure("bad_lines"),
    Figure("unfit"),
    Figure("passed_over"),
    Figure("jumps"),
    Figure("gaps_shortened"),
    Figure("other_objects"),
    Figure("position", "us"),
    Figure("bus_time", "us"),
    Figure("log_start", "us"),
    Figure("replay_start_time", "us"),
    Figure("replay_stop_time", "us"),
    Figure("end_of_data", "us"),
    Figure("finished"),
    VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanFilePlayerDefinition =
    veldor_io::Define<veldor_io::CanFilePlayer>("CanFilePlayer", "1.0.0", nullptr, veldor_io::g_outputs,
                                                veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::CanFilePlayer, CanFilePlayerDefinition, "CanFilePlayer", "1.0.0");
