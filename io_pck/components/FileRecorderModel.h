// What the file recorders share: the reading of their inputs with the
// figure "idle", the file's flush, close and failure cycle, and the figures
// of what went into the file.
//
// The file is written through a buffer that goes to the system each
// flush_period of real time while elements come, and at the latest one
// flush_period after the last write when none come; it is closed when the
// recorder stops: whatever reached the recorder before a stop is in the
// file. A file that can't be written stops the recorder with the system's
// reason, "cannot write <file>: <reason>", told once.
//
// Figures: recorded (frames or elements in the file), refused (those the
// file can't hold, the first one told), first_time and last_time (the file
// times of the first and the last one), idle (1 while the recorder waits
// with nothing left to write: what a caller that stopped the sources waits
// for before stopping the recorder).
#ifndef VELDOR_IO_FILE_RECORDER_MODEL_H
#define VELDOR_IO_FILE_RECORDER_MODEL_H

#include <sys/time.h>

#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "ModelTables.h"
#include "can_log/FrameWriter.h"
#include "veld_event.h"
#include "veld_io_elt.h"

namespace veldor_io {

// What moves a time of the engine's clock onto the calendar (the time_base
// "Wall clock" of the recorders): the real-time clock minus the engine's
// time, now.
inline VELDTimestamp WallClockOffset()
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<VELDTimestamp>(now.tv_sec) * 1000000 + now.tv_usec - VELD::CurrentTime(true, true);
}

// The properties of a recorder: its own `settings` (the file first),
// flush_period, the shared figures, its own `figures`, and the end of the
// table.
inline std::vector<VELDPropertyDefinition> RecorderProperties(std::initializer_list<VELDPropertyDefinition> settings,
                                                              std::initializer_list<VELDPropertyDefinition> figures)
{
    std::vector<VELDPropertyDefinition> table(settings);
    for (const VELDPropertyDefinition& shared :
         {Setting("flush_period", new VELDPropertyValue(VELDInt64(1000000)), "us"), Figure("recorded"),
          Figure("refused"), Figure("first_time", "us"), Figure("last_time", "us"), Figure("idle")})
        table.push_back(shared);
    table.insert(table.end(), figures.begin(), figures.end());
    table.emplace_back();
    return table;
}

// `Writer` is the recorder's file: it has Flush() and Close(), which answer
// false once the file failed, and Error(), which tells why (or why the last
// write was refused).
template <class Model, class Writer, class Base = VELDComponent>
class FileRecorderModel : public VELDModel<Model, Base> {
public:
    using VELDModel<Model, Base>::VELDModel;

    void Death() override
    {
        if (!m_open) return;
        m_open = false;
        const bool closed = m_writer->Close();
        Publish();
        // A file that failed before was told then.
        if (!closed && !m_failed) Fail();
    }

protected:
    // The recorder's own figures, kept current with the shared ones.
    virtual void PublishOwn() {}

    // From Birth, once m_writer holds the file `path`, open: the figures at
    // 0, the flush clock started from flush_period, every input read.
    void StartRecording(const std::string& path)
    {
        m_path = path;
        m_open = true;
        m_failed = m_idle = m_unflushed = false;
        m_recorded = m_refused = m_firstTime = m_lastTime = 0;
        m_flushPeriod = this->GetIntegerProperty("flush_period");
        m_lastFlush = VELD::GetSystemAccurateTiming();
        m_inputs.clear();
        for (int i = 0; i < this->NbInputs(); ++i) m_inputs.push_back(&this->Input(i));
        for (const char* figure : {"recorded", "refused", "first_time", "last_time", "idle"})
            this->DirectSet(this->Property(figure), VELDInt64(0));
    }

    // The next element of any input, or null; `input` is its index.
    VELDIOElt* NextElement(int& input)
    {
        bool waiting = true;
        for (VELDInput* in : m_inputs) waiting = waiting && !this->DataAvailableInFIFO(*in);
        VELDEvent* timer = nullptr;
        if (waiting) {
            SetIdle(true);
            if (m_unflushed) {
                // Nothing to read: what is written goes to the file when the
                // flush is due, whether more comes or not.
                const VELDTimestamp left = m_lastFlush + m_flushPeriod - VELD::GetSystemAccurateTiming();
                if (left <= 0) {
                    Flush();
                } else {
                    m_flushTimer.SetTrigger(static_cast<long>(left));
                    timer = &m_flushTimer;
                }
            }
        }
        int answered = -1;
        VELDIOElt* element = this->StartReading(static_cast<int>(m_inputs.size()), m_inputs.data(), &answered,
                                                timer ? 1 : 0, timer ? &timer : nullptr);
        if (timer) m_flushTimer.ResetTrigger();
        if (!element) {
            if (answered >= static_cast<int>(m_inputs.size())) Flush();
            return nullptr;
        }
        SetIdle(false);
        input = answered;
        return element;
    }

    // One frame or element written, at `time` in the file.
    void Recorded(VELDTimestamp time)
    {
        if (m_recorded++ == 0) m_firstTime = time;
        m_lastTime = time;
        m_unflushed = true;
    }

    // What a writer of frames answered for one at `time`: Written is
    // recorded, Refused counted (and told the first time), Failed stops the
    // recorder.
    void Took(veldor::canlog::WriteResult result, VELDTimestamp time)
    {
        switch (result) {
        case veldor::canlog::WriteResult::Written: Recorded(time); break;
        case veldor::canlog::WriteResult::Refused:
            CountRefused("a frame can't be written into " + m_path + ": " + m_writer->Error() +
                         "; such frames are counted as refused");
            break;
        case veldor::canlog::WriteResult::Failed: Fail();
        }
    }

    // `n` the file can't hold; the first ones are told.
    void CountRefused(const std::string& told, VELDInt64 n = 1)
    {
        if (m_refused == 0) this->ReportWarning(told.c_str(), 0);
        m_refused += n;
        this->DirectSet(this->Property("refused"), m_refused);
    }

    // After an element of input `input`: it is released, the figures kept
    // current and the file flushed when due.
    void Done(int input)
    {
        this->StopReading(*m_inputs[input]);
        Publish();
        const VELDTimestamp now = VELD::GetSystemAccurateTiming();
        if (now - m_lastFlush >= m_flushPeriod) Flush();
    }

    [[noreturn]] void Fail()
    {
        m_failed = true;
        Stop("cannot write " + m_path + ": " + m_writer->Error());
    }

    [[noreturn]] void Stop(const std::string& failure)
    {
        this->Error(failure.c_str(), 1, VELDModule::ErrorGeneric);
        throw VELD::ErrorException;
    }

    std::string m_path;
    std::unique_ptr<Writer> m_writer;

private:
    void Flush()
    {
        m_lastFlush = VELD::GetSystemAccurateTiming();
        m_unflushed = false;
        if (!m_writer->Flush()) Fail();
    }

    void Publish()
    {
        if (m_recorded > 0) this->DirectSet(this->Property("first_time"), m_firstTime);
        this->DirectSet(this->Property("last_time"), m_lastTime);
        this->DirectSet(this->Property("recorded"), m_recorded);
        PublishOwn();
    }

    void SetIdle(bool idle)
    {
        if (idle == m_idle) return;
        m_idle = idle;
        this->DirectSet(this->Property("idle"), VELDInt64(idle ? 1 : 0));
    }

    std::vector<VELDInput*> m_inputs;
    VELDInt64 m_flushPeriod = 1000000;
    VELDTimestamp m_lastFlush = 0;
    VELDEvent m_flushTimer;
    bool m_open = false;
    bool m_failed = false;
    bool m_idle = false;
    bool m_unflushed = false;  // written since the last flush
    VELDInt64 m_recorded = 0;
    VELDInt64 m_refused = 0;
    VELDTimestamp m_firstTime = 0;
    VELDTimestamp m_lastTime = 0;
};

}  // namespace veldor_io

#endif
