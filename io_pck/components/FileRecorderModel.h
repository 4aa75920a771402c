// What the file recorders share: the reading of their one input with the
// figure "idle", the flush period, and the stop on a failure.
#ifndef VELDOR_IO_FILE_RECORDER_MODEL_H
#define VELDOR_IO_FILE_RECORDER_MODEL_H

#include <string>

#include "ModelTables.h"
#include "veld_io_elt.h"

namespace veldor_io {

template <class Model>
class FileRecorderModel : public VELDModel<Model> {
public:
    using VELDModel<Model>::VELDModel;

protected:
    // From Birth: "idle" at 0, the flush clock started from the property
    // flush_period.
    void StartRecording()
    {
        m_flushPeriod = this->GetIntegerProperty("flush_period");
        m_lastFlush = VELD::GetSystemAccurateTiming();
        m_idle = false;
        this->DirectSet(this->Property("idle"), VELDInt64(0));
    }

    // The next element of the input, or null. "idle" is 1 while the recorder
    // waits with nothing left to write: what a caller that stopped the
    // sources waits for before stopping the recorder.
    VELDIOElt* NextElement()
    {
        VELDInput& input = this->Input(0);
        if (!this->DataAvailableInFIFO(input)) SetIdle(true);
        VELDIOElt* element = this->StartReading(input);
        if (element) SetIdle(false);
        return element;
    }

    // True once each flush_period of real time.
    bool FlushDue()
    {
        const VELDTimestamp now = VELD::GetSystemAccurateTiming();
        if (now - m_lastFlush < m_flushPeriod) return false;
        m_lastFlush = now;
        return true;
    }

    [[noreturn]] void Stop(const std::string& failure)
    {
        this->Error(failure.c_str(), 1, VELDModule::ErrorGeneric);
        throw VELD::ErrorException;
    }

private:
    void SetIdle(bool idle)
    {
        if (idle == m_idle) return;
        m_idle = idle;
        this->DirectSet(this->Property("idle"), VELDInt64(idle ? 1 : 0));
    }

    VELDInt64 m_flushPeriod = 1000000;
    VELDTimestamp m_lastFlush = 0;
    bool m_idle = false;
};

}  // namespace veldor_io

#endif
