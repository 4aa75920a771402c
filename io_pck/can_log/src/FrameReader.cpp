#include "can_log/FrameReader.h"

#include "LineSource.h"

namespace veldor::canlog {

const char* IssueKindName(IssueKind kind)
{
    switch (kind) {
    case IssueKind::ReadFailed: return "read failed";
    case IssueKind::LineTooLong: return "line too long";
    case IssueKind::Truncated: return "truncated";
    case IssueKind::Syntax: return "syntax";
    case IssueKind::Header: return "header";
    case IssueKind::InvalidTimestamp: return "invalid timestamp";
    case IssueKind::InvalidChannel: return "invalid channel";
    case IssueKind::InvalidIdentifier: return "invalid identifier";
    case IssueKind::InvalidDlc: return "invalid DLC";
    case IssueKind::InvalidLength: return "invalid length";
    case IssueKind::InvalidData: return "invalid data";
    case IssueKind::MissingData: return "missing data";
    case IssueKind::Corrupt: return "corrupt";
    }
    return "?";
}

std::string RecordPlace::Describe() const { return (object ? "object " : "line ") + std::to_string(number); }

std::string ReadIssue::Describe() const { return place.Describe() + ": " + message; }

FrameReader::FrameReader(const ReaderOptions& options) : m_options(options) {}

FrameReader::~FrameReader() = default;

void FrameReader::SetPlace(std::uint64_t number, bool object)
{
    m_place.number = number;
    m_place.object = object;
}

FrameReader::Step FrameReader::Fail(IssueKind kind, std::string_view what, std::string_view text)
{
    m_issue.kind = kind;
    m_issue.place = m_place;
    m_issue.message.assign(what);
    if (!text.empty()) {
        // Enough of the offending text to find it, not a whole line of it.
        constexpr std::size_t kShown = 40;
        m_issue.message.append(" \"").append(text.substr(0, kShown)).append(text.size() > kShown ? "...\"" : "\"");
    }
    return Step::Issue;
}

void FrameReader::Notice(const std::string& text) { m_notices.push_back(m_place.Describe() + ": " + text); }

ReadResult FrameReader::Next(CanFrame& frame)
{
    while (!m_finished) {
        frame = CanFrame();
        switch (Read(frame)) {
        case Step::Frame:
            ++m_framesRead;
            m_framePlace = m_place;
            return ReadResult::Frame;
        case Step::ErrorFrame:
            ++m_errorFrames;
            if (m_options.errorFrames) {
                frame.error = true;
                m_framePlace = m_place;
                return ReadResult::Frame;
            }
            break;
        case Step::Ignored: ++m_ignoredLines; break;
        case Step::Other: ++m_otherObjects; break;
        case Step::Issue: return ReadResult::Issue;
        case Step::End: m_finished = true; break;
        }
    }
    return ReadResult::End;
}

LineFrameReader::LineFrameReader(const ReaderOptions& options)
    : FrameReader(options), m_lines(std::make_unique<LineSource>())
{
}

LineFrameReader::~LineFrameReader() = default;

bool LineFrameReader::OpenFile(const std::string& path, std::string& error) { return m_lines->Open(path, error); }

LineFrameReader::LineResult LineFrameReader::FailLine(IssueKind kind, std::string_view what, std::string_view text)
{
    Fail(kind, what, text);
    return LineResult::Issue;
}

FrameReader::Step LineFrameReader::Read(CanFrame& frame)
{
    if (m_ended) return Step::End;
    std::string_view line;
    switch (m_lines->Next(line)) {
    case LineSource::Result::Line:
        SetPlace(m_lines->LineNumber(), false);
        switch (ParseLine(line, frame)) {
        case LineResult::Frame: return Step::Frame;
        case LineResult::ErrorFrame: return Step::ErrorFrame;
        case LineResult::Ignored: return Step::Ignored;
        case LineResult::Issue: break;
        }
        if (m_lines->Unterminated()) {
            // A last line without its line break is a line like any other
            // when it reads; one that does not was cut off in the middle,
            // and the file's end needs no other word.
            m_ended = true;
            const std::string why = Issue().message;
            return Fail(IssueKind::Truncated, "the file ends inside this line (" + why + ")");
        }
        return Step::Issue;
    case LineSource::Result::TooLong:
        SetPlace(m_lines->LineNumber(), false);
        return Fail(IssueKind::LineTooLong, "line longer than the read buffer");
    case LineSource::Result::Failed:
        SetPlace(m_lines->LineNumber() + 1, false);
        m_ended = true;
        return Fail(IssueKind::ReadFailed, m_lines->Error());
    case LineSource::Result::End:
        break;
    }
    m_ended = true;
    SetPlace(m_lines->LineNumber() + 1, false);
    return AtEnd() == LineResult::Issue ? Step::Issue : Step::End;
}

}  // namespace veldor::canlog
