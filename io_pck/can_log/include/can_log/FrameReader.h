// A frame reader streams a log file line by line. Next() answers with a
// frame, with an issue (a line it could not read, or the end of a file that
// was cut off), or with the end. An issue is a value: the caller looks at it
// and either calls Next() again, which goes on after the line, or stops.
//
//     std::string error;
//     auto reader = OpenFrameReader("drive.asc", error);
//     if (!reader) return Fail(error);
//     CanFrame frame;
//     for (ReadResult r; (r = reader->Next(frame)) != ReadResult::End;) {
//         if (r == ReadResult::Issue) { Warn(reader->Issue().Describe()); continue; }
//         Use(frame);
//     }
//
// Lines the format allows but that carry no frame (comments, events,
// statistics) are passed over; error frames are counted, not returned.
#ifndef VELDOR_CAN_LOG_FRAME_READER_H
#define VELDOR_CAN_LOG_FRAME_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "can_log/CanFrame.h"

namespace veldor::canlog {

class LineSource;

enum class ReadResult { Frame, Issue, End };

enum class IssueKind {
    ReadFailed,         // the file could not be read on; the next call ends
    LineTooLong,        // longer than the reader's buffer (1 MiB)
    Truncated,          // the file ends inside a line or inside a block
    Syntax,             // not a line of the format
    Header,             // an ASC header line it cannot read, e.g. its date
    InvalidTimestamp,
    InvalidChannel,
    InvalidIdentifier,  // not a number of the format, or out of range
    InvalidDlc,
    InvalidLength,      // no such length for the kind of frame, or not the DLC's
    InvalidData,        // a data byte that is no byte
    MissingData,        // fewer data bytes than the length says
};

const char* IssueKindName(IssueKind kind);

struct ReadIssue {
    IssueKind kind = IssueKind::Syntax;
    std::uint64_t line = 0;  // counted from 1
    std::string message;     // what is wrong, with the offending text

    // "line 12: invalid identifier \"12G\""
    std::string Describe() const;
};

class FrameReader {
public:
    virtual ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // On Frame, `frame` holds the next frame; on Issue, Issue() describes the
    // line that was skipped; every call after End answers End again.
    ReadResult Next(CanFrame& frame);
    const ReadIssue& Issue() const { return m_issue; }

    std::uint64_t FramesRead() const { return m_framesRead; }
    std::uint64_t ErrorFrames() const { return m_errorFrames; }
    // Lines passed over as carrying no frame: headers, comments, events.
    std::uint64_t IgnoredLines() const { return m_ignoredLines; }

protected:
    enum class LineResult { Frame, ErrorFrame, Ignored, Issue };

    FrameReader();
    bool OpenFile(const std::string& path, std::string& error);

    // Reads one line, which never holds a line break.
    virtual LineResult ParseLine(std::string_view line, CanFrame& frame) = 0;
    // After the last line: an issue if the file was cut short.
    virtual LineResult AtEnd() { return LineResult::Ignored; }

    // Sets the issue and returns LineResult::Issue.
    LineResult Fail(IssueKind kind, const char* what, std::string_view text = {});

private:
    std::unique_ptr<LineSource> m_lines;
    ReadIssue m_issue;
    bool m_finished = false;
    bool m_truncated = false;
    std::uint64_t m_framesRead = 0;
    std::uint64_t m_errorFrames = 0;
    std::uint64_t m_ignoredLines = 0;
};

}  // namespace veldor::canlog

#endif
