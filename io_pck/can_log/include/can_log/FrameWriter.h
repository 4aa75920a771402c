// A frame writer formats frames into a buffer and writes it to the file when
// it is full, on Flush() and on Close(); the destructor closes. Everything
// written before a close is in the file once the close returns.
//
//     std::string error;
//     auto writer = OpenFrameWriter("drive.log", error);
//     if (!writer) return Fail(error);
//     if (writer->Write(frame) == WriteResult::Failed) return Fail(writer->Error());
//     ...
//     if (!writer->Close()) return Fail(writer->Error());
#ifndef VELDOR_CAN_LOG_FRAME_WRITER_H
#define VELDOR_CAN_LOG_FRAME_WRITER_H

#include <cstdint>
#include <memory>
#include <string>

#include "can_log/CanFrame.h"

namespace veldor::canlog {

class OutputBuffer;

enum class WriteResult {
    Written,
    Refused,  // the frame fails CheckFrame or the format can't hold it; nothing written, the writer goes on
    Failed,   // the file cannot be written (or is closed); it stays so
};

class FrameWriter {
public:
    virtual ~FrameWriter();
    FrameWriter(const FrameWriter&) = delete;
    FrameWriter& operator=(const FrameWriter&) = delete;

    WriteResult Write(const CanFrame& frame);
    // Hands what is buffered to the file.
    bool Flush();
    // Ends the file, flushes and closes it; later calls return the same.
    bool Close();
    // Why the last Write was refused, or why the file failed.
    const std::string& Error() const { return m_error; }
    std::uint64_t FramesWritten() const { return m_framesWritten; }

protected:
    FrameWriter();
    bool OpenFile(const std::string& path, std::string& error);
    OutputBuffer& Out() { return *m_out; }

    // Why the format can't hold a frame that passes CheckFrame, or null.
    virtual const char* Refuses(const CanFrame&) const { return nullptr; }
    // Formats a checked frame into the buffer.
    virtual void Format(const CanFrame& frame) = 0;
    // Hands what the writer holds back of its own into the buffer; called
    // by Flush.
    virtual void Drain() {}
    // Writes what ends the file into the buffer; called once, by Close. A
    // writer that has a Finish closes in its own destructor, while it can.
    virtual void Finish() {}

private:
    bool TakeFailure();

    std::unique_ptr<OutputBuffer> m_out;
    std::string m_error;
    bool m_closed = false;
    std::uint64_t m_framesWritten = 0;
};

}  // namespace veldor::canlog

#endif
