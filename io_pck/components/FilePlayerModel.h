// What the file players share: the replay pacing on the engine's clock.
//
// Time. The first frame's time is the log start L; the run's birth time plus
// replay_lead is the replay start S, an engine time. A frame recorded at t is
// due at S + (t - L) on the engine's clock, the same rule by which an
// injector in Synchronized mode emits it (emission = replay start + (frame
// time - log start)). A player hands a frame on send_ahead before it is due:
// 0 for a replay that sends frames as they come; a synchronised replay gives
// the hardware a lead instead, which must exceed the injector's
// replay_period.
//
// The engine's clock rules the pace: a higher speed plays faster, a pause
// holds the frames back, and a jump moves the player to the frame the new
// time asks for (forward: frames on the way are passed over; backward: the
// file is read again from its start, quietly up to where it was read
// before). The clock tells of a jump on the host's time thread, a moment
// after the jump; a wait that ended because the clock leapt forward must not
// hand on the frames that the leap passes over in that moment, so the player
// also watches for a leap itself (LeapWatch), and while the clock stands a
// frame that still came due came by a jump. It then holds on until the
// clock's word arrives. Unpaced (`paced` false), frames go as fast as the
// readers take them.
//
// A gap of more than max_gap between two frames (a file that mixes times of
// two clocks would wait for decades) is shortened to max_gap, and a leap
// back by more than that is closed: the frame comes right after the one
// before. Frames after it move with it, also in the times they carry, so
// that a synchronised replay keeps the same pace. The first gap of each kind
// is told with its place and length.
//
// A record that can't be read is told and skipped, or stops the player with
// on_error "Stop" once the frames before it are out.
//
// What a player has of the following, it has under these names; each one is
// optional.
//   Settings: replay_lead, replay_stop, send_ahead, late_threshold (us),
//     max_gap (us, 0: none), on_error ("Skip|Stop"), paced.
//   Outputs, 64-bit microseconds:
//     oLogStartTime     L, at birth
//     oReplayStartTime  S, at birth
//     oReplayStopTime   S + replay_stop, or 0 (no stop), at birth
//     oReplayEofTime    the last frame's time (at least 1, as 0 tells an
//                       injector nothing), once everything is handed on
//   Figures: sent (or played), late (handed on more than late_threshold
//     after due), bad_lines, unfit, passed_over, jumps, gaps_shortened,
//     position (t - L of the last frame handed on), log_start,
//     replay_start_time, replay_stop_time, end_of_data, finished.
#ifndef VELDOR_IO_FILE_PLAYER_MODEL_H
#define VELDOR_IO_FILE_PLAYER_MODEL_H

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "ModelTables.h"
#include "can_log/TimeGaps.h"
#include "veld.h"
#include "veld_clock.h"
#include "veld_io_elt.h"

namespace veldor_io {

// How long, in ms, a player that saw the clock leap waits for the clock's
// word of the jump.
const long kJumpWordWait = 200;

// Tells a leap of the engine's clock between two readings: more engine time
// passed than real time at the faster of the two speeds allows.
class LeapWatch {
public:
    void Restart() { m_has = false; }

    // Reads the engine's time into `engineNow`; true when the clock leapt
    // since the last reading.
    bool Leapt(VELDTimestamp& engineNow)
    {
        // Real time is read before and after the engine's, and the span
        // between two readings runs from the earlier real time of the last
        // one to the later of this one: a preempted reading widens the span
        // and never makes a leap out of nothing.
        const VELDTimestamp realBefore = VELD::GetSystemAccurateTiming();
        engineNow = VELD::CurrentTime(true, true);
        const VELDTimestamp realAfter = VELD::GetSystemAccurateTiming();
        const int speed = std::abs(VELD::TimeSpeed());
        const bool leapt =
            m_has && engineNow - m_engine > (realAfter - m_realBefore) * std::max(speed, m_speed) / 1000 + kTolerance;
        m_has = true;
        m_engine = engineNow;
        m_realBefore = realBefore;
        m_speed = speed;
        return leapt;
    }

private:
    static constexpr VELDTimestamp kTolerance = 2000;
    bool m_has = false;
    VELDTimestamp m_engine = 0;
    VELDTimestamp m_realBefore = 0;
    int m_speed = 1000;
};

// Microseconds as seconds, without trailing zeros: "60", "1700000000.01".
inline std::string SecondsText(std::int64_t micros)
{
    char text[48];
    std::snprintf(text, sizeof text, "%.6f", static_cast<double>(micros) / 1e6);
    std::string s = text;
    s.erase(s.find_last_not_of('0') + 1);
    if (s.back() == '.') s.pop_back();
    return s;
}

// The outputs of the four times, at the head of a player's table, and its
// end.
inline VELDOutputDefinition* ReplayTimeOutputs()
{
    static VELDOutputDefinition table[] = {TimeOutput("oLogStartTime"), TimeOutput("oReplayStartTime"),
                                           TimeOutput("oReplayStopTime"), TimeOutput("oReplayEofTime"),
                                           VELDOutputDefinition{nullptr, 0, VELDTypeInfo(), 0, 0, 0, 0}};
    return table;
}

// The properties of a player of frames paced as told above: its own
// `settings` (the file first), the settings of the pacing, the figures of
// the pacing, its own `figures`, and the end of the table.
inline std::vector<VELDPropertyDefinition> PacedPlayerProperties(std::initializer_list<VELDPropertyDefinition> settings,
                                                                 std::initializer_list<VELDPropertyDefinition> figures)
{
    std::vector<VELDPropertyDefinition> table(settings);
    for (const VELDPropertyDefinition& shared :
         {Setting("replay_lead", new VELDPropertyValue(VELDInt64(500000)), "us"),
          Setting("replay_stop", new VELDPropertyValue(VELDInt64(0)), "us"),
          Setting("send_ahead", new VELDPropertyValue(VELDInt64(0)), "us"),
          Setting("late_threshold", new VELDPropertyValue(VELDInt64(1000)), "us"),
          Setting("on_error", new VELDPropertyValue("Skip|Stop", VELDInt32(0))),
          Setting("max_gap", new VELDPropertyValue(VELDInt64(60000000)), "us"), Figure("sent"), Figure("late"),
          Figure("bad_lines"), Figure("unfit"), Figure("passed_over"), Figure("jumps"), Figure("gaps_shortened"),
          Figure("position", "us"), Figure("log_start", "us"), Figure("replay_start_time", "us"),
          Figure("replay_stop_time", "us"), Figure("end_of_data", "us"), Figure("finished")})
        table.push_back(shared);
    table.insert(table.end(), figures.begin(), figures.end());
    table.emplace_back();
    return table;
}

template <class Model>
class FilePlayerModel : public VELDModel<Model>, public VELDTimeStateListener {
public:
    using VELDModel<Model>::VELDModel;
    // The clock stops telling the player of its changes when it dies, before
    // anything of it is taken apart; the destructor covers a player that
    // never lived.
    ~FilePlayerModel() override { this->Unregister(); }
    void Death() override { this->Unregister(); }

    void Core() override
    {
        if (m_jumped.IsSet()) FollowJump();
        if (m_finished) {
            this->Rest(10000, &m_jumped);
            return;
        }
        VELDTimestamp now = 0;
        if (m_paced) {
            if (!this->Wait(WakeTime(), &m_jumped) || m_jumped.IsSet()) return;
            // While the clock stands, a frame comes due only by a jump, whose
            // word is on its way: nothing is handed on until it arrives or
            // the clock runs again. At worst a false alarm under a preempted
            // reading: a short hold.
            if (VELD::IsPaused() || m_watch.Leapt(now)) {
                m_jumped.Wait(kJumpWordWait);
                return;
            }
        }
        const bool more = Play(now);
        Publish();
        if (!more) {
            // The frames read before a record that stops the player are out.
            StopOnRecord();
            Finish();
        }
    }

    void CallbackTimeJumped(VELDTimestamp) override { m_jumped.Set(); }
    void CallbackTimeSpeedChanged(int) override {}
    void CallbackTimePaused(bool) override {}

protected:
    // ---- what each player gives ----

    // The file again from its start, its first frame read (by Next); a file
    // that can't be opened or holds no frame ends the player with one
    // message.
    virtual void Rewind() = 0;
    // Reads the next frame and gives its time to Arrived; false at the end
    // of the file, or at a record that stops the player (Unreadable).
    // `quiet`: this part of the file was read before; nothing in it is told
    // or counted again.
    virtual bool Advance(bool quiet) = 0;
    // Hands on what is due at `now` (the engine's time; 0 when unpaced),
    // the current frame first; false once nothing is left to hand on.
    virtual bool Play(VELDTimestamp now) = 0;
    // The engine's time at which Play has something to hand on.
    virtual VELDTimestamp WakeTime() { return Due(m_time) - m_sendAhead; }
    // After a jump: passes over what is recorded before `target`; false
    // once nothing is left.
    virtual bool PassOver(std::int64_t target, bool more)
    {
        while (more && m_time < target) {
            ++m_passedOver;
            more = Next();
        }
        return more;
    }
    // Where the current frame stands in the file: "line 12".
    virtual std::string Place() { return ""; }
    // The player's own figures, kept current with the shared ones.
    virtual void PublishOwn() {}

    // ---- for the player ----

    // From the player's Birth, once its outputs are ready: the settings, the
    // file from its start, the replay's times onto their outputs.
    void StartReplay()
    {
        m_path = this->GetStringProperty("file").Beginning();
        m_paced = !this->HasProperty("paced") || this->GetBoolProperty("paced");
        m_sendAhead = Setting("send_ahead", 0);
        m_lateThreshold = Setting("late_threshold", 1000);
        m_stopOnError = Setting("on_error", 0) == 1;
        m_gaps = veldor::canlog::TimeGaps(Setting("max_gap", 0));
        m_sent = m_late = m_badLines = m_unfit = m_passedOver = m_jumps = m_gapsShortened = m_position = 0;
        m_gapsTold[0] = m_gapsTold[1] = false;
        m_finished = false;
        m_stop.clear();
        m_jumped.Reset();
        m_watch.Restart();
        m_readMost = 0;
        m_figures.clear();
        const std::pair<const char*, VELDInt64*> figures[] = {
            {"sent", &m_sent},           {"played", &m_sent}, {"late", &m_late},
            {"bad_lines", &m_badLines},  {"unfit", &m_unfit}, {"passed_over", &m_passedOver},
            {"jumps", &m_jumps},         {"gaps_shortened", &m_gapsShortened}, {"position", &m_position}};
        for (const auto& [name, value] : figures) {
            if (this->HasProperty(name)) m_figures.emplace_back(&this->Property(name), value);
        }
        for (const char* figure : {"log_start", "replay_start_time", "replay_stop_time", "end_of_data", "finished"})
            SetFigure(figure, 0);
        Publish();

        StartOver();
        m_logStart = m_time;
        m_replayStart = VELD::CurrentTime(true, true) + Setting("replay_lead", 0);
        const VELDInt64 stopAfter = Setting("replay_stop", 0);
        const VELDInt64 stop = stopAfter > 0 ? m_replayStart + stopAfter : 0;
        SetFigure("log_start", m_logStart);
        SetFigure("replay_start_time", m_replayStart);
        SetFigure("replay_stop_time", stop);
        Put("oLogStartTime", m_logStart);
        Put("oReplayStartTime", m_replayStart);
        Put("oReplayStopTime", stop);
    }

    // The next frame, through Advance.
    bool Next()
    {
        const bool quiet = m_read < m_readMost;
        if (++m_read > m_readMost) m_readMost = m_read;
        return Advance(quiet);
    }

    // A frame read, at `time` (microseconds, as recorded), which the gaps
    // before it move; it becomes the current frame.
    void Arrived(std::int64_t& time, bool quiet)
    {
        using Change = veldor::canlog::TimeGaps::Change;
        const Change change = m_gaps.Apply(time);
        m_time = time;
        if (change == Change::None) return;
        m_gapsShortened = std::max<VELDInt64>(m_gapsShortened, static_cast<VELDInt64>(m_gaps.Changed()));
        bool& told = m_gapsTold[change == Change::Shortened ? 0 : 1];
        if (quiet || told) return;
        told = true;
        const std::string where = m_path + ": " + Place() + ": ";
        if (change == Change::Shortened) {
            this->ReportWarning((where + "the frame comes " + SecondsText(m_gaps.LastGap()) +
                                 " s after the one before; the gap is shortened to " + SecondsText(m_gaps.MaxGap()) +
                                 " s, as are longer ones after it")
                                    .c_str(),
                                0);
        } else {
            this->ReportWarning((where + "the time goes back " + SecondsText(-m_gaps.LastGap()) +
                                 " s; the frame comes right after the one before, as do later such frames")
                                    .c_str(),
                                0);
        }
    }

    VELDTimestamp Due(std::int64_t time) const { return m_replayStart + (time - m_logStart); }
    // Whether the current frame is to be handed on at `now`.
    bool IsDue(VELDTimestamp now) const { return !m_paced || Due(m_time) - m_sendAhead <= now; }

    // A frame recorded at `time` handed on at `now`.
    void Handed(std::int64_t time, VELDTimestamp now)
    {
        ++m_sent;
        if (m_paced && now - Due(time) > m_lateThreshold) ++m_late;
        m_position = time - m_logStart;
    }

    // A frame that can't go out; the first one is told.
    void CountUnfit(const std::string& told)
    {
        if (m_unfit++ == 0) this->ReportWarning(told.c_str(), 0);
    }

    // A record that can't be read: counted and told with `after`, unless
    // `quiet`; false when such a record stops the player.
    bool Unreadable(const std::string& text, const char* after, bool quiet)
    {
        if (quiet) return true;
        ++m_badLines;
        SetFigure("bad_lines", m_badLines);
        if (m_stopOnError) {
            m_stop = text;
            return false;
        }
        this->ReportWarning((text + after).c_str(), 0);
        return true;
    }

    // Ends the player with the record that stopped it, or with `otherwise`
    // when that is not empty; else does nothing.
    void StopOnRecord(const std::string& otherwise = "")
    {
        const std::string text = m_stop.empty() ? otherwise : m_stop;
        m_stop.clear();
        if (!text.empty()) this->Error(text.c_str(), 1, VELDModule::ErrorGeneric);
    }

    void SetFigure(const char* name, VELDInt64 value)
    {
        if (this->HasProperty(name)) this->DirectSet(this->Property(name), value);
    }

    std::string m_path;
    bool m_paced = true;
    VELDInt64 m_sendAhead = 0;
    VELDTimestamp m_logStart = 0;
    VELDTimestamp m_replayStart = 0;
    // The current frame's time, as the gaps moved it.
    std::int64_t m_time = 0;
    VELDInt64 m_passedOver = 0;

private:
    VELDInt64 Setting(const char* name, VELDInt64 otherwise)
    {
        return this->HasProperty(name) ? this->GetIntegerProperty(name) : otherwise;
    }

    void StartOver()
    {
        m_read = 0;
        m_gaps.Restart();
        Rewind();
    }

    // After a jump of the clock: the first frame not yet due at the new time
    // becomes the next one.
    void FollowJump()
    {
        m_jumped.Reset();
        m_watch.Restart();
        ++m_jumps;
        const VELDTimestamp target = m_logStart + (VELD::CurrentTime(true, true) + m_sendAhead - m_replayStart);
        const bool wasFinished = m_finished;
        if (m_finished || target < m_time) StartOver();
        m_finished = false;
        const bool more = PassOver(target, true);
        StopOnRecord();
        Publish();
        if (!more) {
            Finish();
        } else if (wasFinished) {
            SetFigure("finished", 0);
        }
    }

    void Finish()
    {
        m_finished = true;
        const VELDInt64 end = m_time > 0 ? m_time : 1;
        SetFigure("end_of_data", end);
        SetFigure("finished", 1);
        Put("oReplayEofTime", end);
    }

    void Publish()
    {
        for (const auto& [property, value] : m_figures) this->DirectSet(*property, *value);
        PublishOwn();
    }

    void Put(const char* output, VELDInt64 value)
    {
        if (!this->HasOutput(output)) return;
        VELDIOElt* element = this->StartWriting(this->Output(output));
        if (!element) return;
        *element->Integer64(0) = value;
        this->StopWriting(element);
    }

    VELDInt64 m_lateThreshold = 1000;
    bool m_stopOnError = false;
    bool m_finished = false;
    std::string m_stop;  // the record that stops the player, told once the frames before it are out
    veldor::canlog::TimeGaps m_gaps;
    bool m_gapsTold[2] = {false, false};  // shortened, leapt back
    // Frames read since the start of the file, and the most read before.
    std::uint64_t m_read = 0;
    std::uint64_t m_readMost = 0;
    VELDInt64 m_sent = 0, m_late = 0, m_badLines = 0, m_unfit = 0, m_jumps = 0, m_gapsShortened = 0;
    VELDInt64 m_position = 0;
    std::vector<std::pair<VELDProperty*, VELDInt64*>> m_figures;
    VELDEvent m_jumped;
    LeapWatch m_watch;
};

}  // namespace veldor_io

#endif
