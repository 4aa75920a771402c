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
    }
    return "?";
}

std::string ReadIssue::Describe() const { return "line " + std::to_string(line) + ": " + message; }

FrameReader::FrameReader() : m_lines(std::make_unique<LineSource>()) {}

FrameReader::~FrameReader() = default;

bool FrameReader::OpenFile(const std::string& path, std::string& error) { return m_lines->Open(path, error); }

FrameReader::LineResult FrameReader::Fail(IssueKind kind, const char* what, std::string_view text)
{
    m_issue.kind = kind;
    m_issue.message.assign(what);
    if (!text.empty()) {
        // Enough of the offending text to find it, not a whole line of it.
        constexpr std::size_t kShown = 40;
        m_issue.message.append(" \"").append(text.substr(0, kShown)).append(text.size() > kShown ? "...\"" : "\"");
    }
    return LineResult::Issue;
}

ReadResult FrameReader::Next(CanFrame& frame)
{
    while (!m_finished) {
        std::string_view line;
        switch (m_lines->Next(line)) {
        case LineSource::Result::Line:
            m_issue.line = m_lines->LineNumber();
            if (m_lines->Unterminated() && line.find_first_not_of(" \t") != std::string_view::npos) {
                // A writer ends every line; one that stops short was cut
                // off, and what is left of it cannot be trusted.
                m_truncated = true;
                Fail(IssueKind::Truncated, "the file ends inside this line");
                return ReadResult::Issue;
            }
            frame = CanFrame();
            switch (ParseLine(line, frame)) {
            case LineResult::Frame: ++m_framesRead; return ReadResult::Frame;
            case LineResult::ErrorFrame: ++m_errorFrames; break;
            case LineResult::Ignored: ++m_ignoredLines; break;
            case LineResult::Issue: return ReadResult::Issue;
            }
            break;
        case LineSource::Result::TooLong:
            m_issue.line = m_lines->LineNumber();
            Fail(IssueKind::LineTooLong, "line longer than the read buffer");
            return ReadResult::Issue;
        case LineSource::Result::Failed:
            m_finished = true;
            m_issue.line = m_lines->LineNumber() + 1;
            Fail(IssueKind::ReadFailed, m_lines->Error().c_str());
            return ReadResult::Issue;
        case LineSource::Result::End:
            m_finished = true;
            m_issue.line = m_lines->LineNumber() + 1;
            if (!m_truncated && AtEnd() == LineResult::Issue) return ReadResult::Issue;
            break;
        }
    }
    return ReadResult::End;
}

}  // namespace veldor::canlog
