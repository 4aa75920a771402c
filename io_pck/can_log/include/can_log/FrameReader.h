// A frame reader streams a log file record by record: the lines of a text
// log, the objects of a binary one. Next() answers with a frame, with an
// issue (a record it could not read, or the end of a file that was cut off),
// or with the end. An issue is a value: the caller looks at it and either
// calls Next() again, which goes on after the record, or stops.
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
// Records the format allows but that carry no frame (comments, events,
// statistics) are passed over; error frames are counted, and handed on only
// when the options ask for them. What a reader had to decide about the file
// as a whole, without losing a frame, it says once in Notices().
#ifndef VELDOR_CAN_LOG_FRAME_READER_H
#define VELDOR_CAN_LOG_FRAME_READER_H

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "can_log/CanFrame.h"
#include "can_log/LogOptions.h"

namespace veldor::canlog {

class LineSource;

enum class ReadResult { Frame, Issue, End };

enum class IssueKind {
    ReadFailed,         // the file could not be read on; the next call ends
    LineTooLong,        // longer than the reader's buffer (1 MiB)
    Truncated,          // the file ends inside a line, an object or a block
    Syntax,             // not a line of the format
    Header,             // an ASC header line it cannot read, e.g. its date
    InvalidTimestamp,
    InvalidChannel,
    InvalidIdentifier,  // not a number of the format, or out of range
    InvalidDlc,
    InvalidLength,      // no such length for the kind of frame, or not the DLC's
    InvalidData,        // a data byte that is no byte
    MissingData,        // fewer data bytes than the length says
    Corrupt,            // a binary object that makes no sense: its signature, size or packing
};

const char* IssueKindName(IssueKind kind);

// Where a record stands: its line in a text log, its object in a binary one,
// counted from 1.
struct RecordPlace {
    bool object = false;
    std::uint64_t number = 0;

    // "line 12", "object 12"
    std::string Describe() const;
};

struct ReadIssue {
    IssueKind kind = IssueKind::Syntax;
    RecordPlace place;
    std::string message;  // what is wrong, with the offending text

    // "line 12: invalid identifier \"12G\""
    std::string Describe() const;
};

class FrameReader {
public:
    virtual ~FrameReader();
    FrameReader(const FrameReader&) = delete;
    FrameReader& operator=(const FrameReader&) = delete;

    // On Frame, `frame` holds the next frame; on Issue, Issue() describes the
    // record that was skipped; every call after End answers End again.
    ReadResult Next(CanFrame& frame);
    const ReadIssue& Issue() const { return m_issue; }
    // Where the last frame stood.
    const RecordPlace& FramePlace() const { return m_framePlace; }

    std::uint64_t FramesRead() const { return m_framesRead; }
    std::uint64_t ErrorFrames() const { return m_errorFrames; }
    // Records passed over as carrying no frame: headers, comments, events.
    std::uint64_t IgnoredLines() const { return m_ignoredLines; }
    // Objects of kinds this reader does not read (BLF), passed over.
    std::uint64_t OtherObjects() const { return m_otherObjects; }
    // What the reader decided about the file, each told once, with the
    // place that decided it: "line 9: ...". It grows while reading.
    const std::vector<std::string>& Notices() const { return m_notices; }

protected:
    enum class Step {
        Frame,
        ErrorFrame,  // `frame` holds what the record says of it
        Ignored,
        Other,       // an object of another kind
        Issue,       // set by Fail
        End,
    };

    explicit FrameReader(const ReaderOptions& options);
    const ReaderOptions& Options() const { return m_options; }

    // The next record. The place of the record is set before it returns.
    virtual Step Read(CanFrame& frame) = 0;

    void SetPlace(std::uint64_t number, bool object);
    // Sets the issue at the current place and returns Step::Issue.
    Step Fail(IssueKind kind, std::string_view what, std::string_view text = {});
    void Notice(const std::string& text);

private:
    ReaderOptions m_options;
    RecordPlace m_place;
    RecordPlace m_framePlace;
    ReadIssue m_issue;
    bool m_finished = false;
    std::uint64_t m_framesRead = 0;
    std::uint64_t m_errorFrames = 0;
    std::uint64_t m_ignoredLines = 0;
    std::uint64_t m_otherObjects = 0;
    std::vector<std::string> m_notices;
};

// The readers of text logs: one line a record.
class LineFrameReader : public FrameReader {
protected:
    enum class LineResult { Frame, ErrorFrame, Ignored, Issue };

    explicit LineFrameReader(const ReaderOptions& options);
    ~LineFrameReader() override;
    bool OpenFile(const std::string& path, std::string& error);

    // Reads one line, which never holds a line break.
    virtual LineResult ParseLine(std::string_view line, CanFrame& frame) = 0;
    // After the last line: an issue if the file was cut short.
    virtual LineResult AtEnd() { return LineResult::Ignored; }

    // Sets the issue and returns LineResult::Issue.
    LineResult FailLine(IssueKind kind, std::string_view what, std::string_view text = {});

private:
    Step Read(CanFrame& frame) override;

    std::unique_ptr<LineSource> m_lines;
    bool m_ended = false;
};

}  // namespace veldor::canlog

#endif
