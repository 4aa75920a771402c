#include "can_log/FrameWriter.h"

#include "OutputBuffer.h"

namespace veldor::canlog {

FrameWriter::FrameWriter() : m_out(std::make_unique<OutputBuffer>()) {}

FrameWriter::~FrameWriter() { Close(); }

bool FrameWriter::OpenFile(const std::string& path, std::string& error) { return m_out->Open(path, error); }

bool FrameWriter::TakeFailure()
{
    if (!m_out->Failed()) return false;
    m_error = m_out->Error();
    return true;
}

WriteResult FrameWriter::Write(const CanFrame& frame)
{
    if (m_closed) {
        m_error = "the writer is closed";
        return WriteResult::Failed;
    }
    const char* why = CheckFrame(frame);
    if (why == nullptr) why = Refuses(frame);
    if (why != nullptr) {
        m_error.assign("frame refused: ").append(why);
        return WriteResult::Refused;
    }
    Format(frame);
    if (TakeFailure()) return WriteResult::Failed;
    ++m_framesWritten;
    return WriteResult::Written;
}

bool FrameWriter::Flush()
{
    if (m_closed) return !m_out->Failed();
    if (!m_out->Failed()) Drain();
    m_out->Flush();
    return !TakeFailure();
}

bool FrameWriter::Close()
{
    if (!m_closed) {
        m_closed = true;
        if (!m_out->Failed()) Finish();
        m_out->Close();
    }
    return !TakeFailure();
}

}  // namespace veldor::canlog
