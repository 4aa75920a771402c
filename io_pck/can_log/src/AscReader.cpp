#include "can_log/AscReader.h"

#include <cstdio>

#include "AscDate.h"
#include "AscFlags.h"
#include "TextScan.h"

namespace veldor::canlog {

namespace {

bool IsDirection(std::string_view t) { return EqualsNoCase(t, "Rx") || EqualsNoCase(t, "Tx"); }

bool IsFrameKind(std::string_view t) { return t == "d" || t == "r"; }

// Whether what follows the time has the shape of a frame line: "CANFD ...",
// or "<channel> <id> [Rx|Tx] d|r". Only such lines are reported when they
// cannot be read; everything else is an event this reader does not need.
bool LooksLikeFrame(Tokens tokens)
{
    const std::string_view first = tokens.Next();
    if (EqualsNoCase(first, "CANFD")) return true;
    std::uint32_t channel = 0;
    if (!ParseDecimal(first, channel)) return false;
    tokens.Next();
    std::string_view next = tokens.Next();
    if (IsDirection(next)) next = tokens.Next();
    return IsFrameKind(next);
}

}  // namespace

std::unique_ptr<AscReader> AscReader::Open(const std::string& path, std::string& error, const ReaderOptions& options)
{
    std::unique_ptr<AscReader> reader(new AscReader(options));
    if (!reader->OpenFile(path, error)) return nullptr;
    return reader;
}

AscReader::LineResult AscReader::ParseLine(std::string_view line, CanFrame& frame)
{
    Tokens tokens(line);
    const std::string_view first = tokens.Next();
    if (first.empty() || first.substr(0, 2) == "//") return LineResult::Ignored;
    std::int64_t seconds = 0;
    if (!ParseSeconds(first, seconds)) {
        if (LooksLikeFrame(tokens)) return Fail(IssueKind::InvalidTimestamp, "invalid timestamp", first);
        return ParseKeywordLine(first, tokens);
    }
    m_lineTime = m_header.absoluteTimestamps ? seconds : m_lineTime + seconds;
    frame.timestamp = m_header.measurementStart.value_or(0) + m_lineTime;

    Tokens ahead = tokens;
    const std::string_view second = ahead.Next();
    if (EqualsNoCase(second, "CANFD")) {
        tokens.Next();
        return ParseFdLine(tokens, frame);
    }
    if (EqualsNoCase(ahead.Next(), "ErrorFrame")) return LineResult::ErrorFrame;
    if (!LooksLikeFrame(tokens)) return LineResult::Ignored;
    return ParseClassicLine(tokens, frame);
}

AscReader::LineResult AscReader::ParseKeywordLine(std::string_view first, Tokens& tokens)
{
    if (EqualsNoCase(first, "date")) return ParseDate(tokens.Rest(), false);
    if (EqualsNoCase(first, "base")) {
        const std::string_view base = tokens.Next();
        if (!EqualsNoCase(base, "hex") && !EqualsNoCase(base, "dec")) {
            return Fail(IssueKind::Header, "unknown number base", base);
        }
        m_header.hexBase = EqualsNoCase(base, "hex");
        if (EqualsNoCase(tokens.Next(), "timestamps")) {
            const std::string_view mode = tokens.Next();
            if (!EqualsNoCase(mode, "absolute") && !EqualsNoCase(mode, "relative")) {
                return Fail(IssueKind::Header, "unknown timestamp mode", mode);
            }
            m_header.absoluteTimestamps = EqualsNoCase(mode, "absolute");
        }
        return LineResult::Ignored;
    }
    if (EqualsNoCase(first, "internal")) {
        m_header.internalEventsLogged = true;
    } else if (EqualsNoCase(first, "no") && EqualsNoCase(tokens.Next(), "internal")) {
        m_header.internalEventsLogged = false;
    } else if (EqualsNoCase(first, "Begin") && EqualsNoCase(tokens.Next(), "Triggerblock")) {
        m_inTriggerBlock = true;
        m_lineTime = 0;
        if (tokens.Count() > 0) return ParseDate(tokens.Rest(), true);
    } else if (EqualsNoCase(first, "End") && EqualsNoCase(tokens.Next(), "Triggerblock")) {
        m_inTriggerBlock = false;
    }
    return LineResult::Ignored;
}

AscReader::LineResult AscReader::ParseDate(std::string_view text, bool fromTriggerBlock)
{
    std::int64_t start = 0;
    if (!ParseAscDate(text, m_options.dateZone, start)) {
        const std::size_t at = text.find_first_not_of(" \t");
        return Fail(IssueKind::Header, "unreadable date", at == std::string_view::npos ? text : text.substr(at));
    }
    // The block's date is the start its times count from; the date line
    // stands in where a block has none.
    if (fromTriggerBlock || !m_startFromTriggerBlock) m_header.measurementStart = start;
    m_startFromTriggerBlock = m_startFromTriggerBlock || fromTriggerBlock;
    return LineResult::Ignored;
}

AscReader::LineResult AscReader::ParseClassicLine(Tokens& tokens, CanFrame& frame)
{
    if (!ReadChannel(tokens.Next(), frame) || !ReadIdentifier(tokens.Next(), frame)) return LineResult::Issue;
    std::string_view kind = tokens.Next();
    if (IsDirection(kind)) {
        frame.direction = EqualsNoCase(kind, "Tx") ? Direction::Tx : Direction::Rx;
        kind = tokens.Next();
    }
    std::uint8_t dlc = 0;
    if (kind == "r") {
        frame.remote = true;
        // The DLC of a remote frame is optional; older tools leave it out.
        const std::string_view text = tokens.Next();
        if (text.empty() || EqualsNoCase(text, "Length")) return LineResult::Frame;
        if (!ReadDlc(text, dlc)) return LineResult::Issue;
        frame.length = DlcToLength(dlc, false);
        return LineResult::Frame;
    }
    if (!ReadDlc(tokens.Next(), dlc)) return LineResult::Issue;
    frame.length = DlcToLength(dlc, false);
    return ReadData(tokens, frame.length, frame) ? LineResult::Frame : LineResult::Issue;
}

AscReader::LineResult AscReader::ParseFdLine(Tokens& tokens, CanFrame& frame)
{
    if (!ReadChannel(tokens.Next(), frame)) return LineResult::Issue;
    const std::string_view direction = tokens.Next();
    if (!IsDirection(direction)) return LineResult::Ignored;  // an event of the FD channel
    frame.direction = EqualsNoCase(direction, "Tx") ? Direction::Tx : Direction::Rx;
    const std::string_view id = tokens.Next();
    if (EqualsNoCase(id, "ErrorFrame")) return LineResult::ErrorFrame;
    if (!ReadIdentifier(id, frame)) return LineResult::Issue;

    std::string_view brs = tokens.Next();
    if (brs != "0" && brs != "1") brs = tokens.Next();  // a symbolic name stood first
    const std::string_view esi = tokens.Next();
    if (brs != "0" && brs != "1") return Fail(IssueKind::Syntax, "BRS is neither 0 nor 1", brs);
    if (esi != "0" && esi != "1") return Fail(IssueKind::Syntax, "ESI is neither 0 nor 1", esi);
    std::uint8_t dlc = 0;
    if (!ReadDlc(tokens.Next(), dlc)) return LineResult::Issue;
    const std::string_view lengthText = tokens.Next();
    std::uint32_t length = 0;
    if (!ParseDecimal(lengthText, length) || !IsValidLength(length, true)) {
        return Fail(IssueKind::InvalidLength, "invalid data length", lengthText);
    }

    // After the bytes come either no more fields or all eight of them; any
    // other count means bytes are missing, and the fields behind would be
    // taken for data.
    const std::size_t left = tokens.Count();
    if (left < length || (left > length && left < length + kAscFdTrailingFields)) {
        char what[96];
        std::snprintf(what, sizeof what, "fewer than %u data bytes", static_cast<unsigned>(length));
        return Fail(IssueKind::MissingData, what);
    }
    std::uint32_t flags = kAscFlagEdl;
    if (left > length) {
        Tokens trailing = tokens;
        for (std::size_t i = 0; i < length + kAscFlagsField; ++i) trailing.Next();
        const std::string_view flagsText = trailing.Next();
        if (!ParseHex(flagsText, flags)) return Fail(IssueKind::Syntax, "invalid flags", flagsText);
    }

    frame.fd = (flags & kAscFlagEdl) != 0;
    if (frame.fd) {
        if (DlcToLength(dlc, true) != length) return Fail(IssueKind::InvalidLength, "length does not match the DLC", lengthText);
        frame.bitRateSwitch = brs == "1";
        frame.errorStateIndicator = esi == "1";
        frame.length = static_cast<std::uint8_t>(length);
    } else if ((flags & kAscFlagRemote) != 0) {
        // A classic remote frame on an FD channel: the DLC is the length asked for.
        frame.remote = true;
        frame.length = DlcToLength(dlc, false);
        if (length != 0) return Fail(IssueKind::InvalidLength, "remote frame with data", lengthText);
    } else {
        if (DlcToLength(dlc, false) != length) return Fail(IssueKind::InvalidLength, "length does not match the DLC", lengthText);
        frame.length = static_cast<std::uint8_t>(length);
    }
    return ReadData(tokens, length, frame) ? LineResult::Frame : LineResult::Issue;
}

bool AscReader::ReadChannel(std::string_view text, CanFrame& frame)
{
    std::uint32_t channel = 0;
    if (!ParseDecimal(text, channel) || channel < 1 || channel > 256) {
        Fail(IssueKind::InvalidChannel, "invalid channel", text);
        return false;
    }
    frame.channel = static_cast<std::uint8_t>(channel - 1);
    return true;
}

bool AscReader::ReadIdentifier(std::string_view text, CanFrame& frame)
{
    std::string_view digits = text;
    const bool extended = !digits.empty() && (digits.back() == 'x' || digits.back() == 'X');
    if (extended) digits.remove_suffix(1);
    std::uint32_t id = 0;
    const bool number = m_header.hexBase ? ParseHex(digits, id) : ParseDecimal(digits, id);
    if (!number || id > (extended ? CanFrame::kMaxExtendedId : CanFrame::kMaxStandardId)) {
        Fail(IssueKind::InvalidIdentifier, "invalid identifier", text);
        return false;
    }
    frame.id = id;
    frame.extended = extended;
    return true;
}

bool AscReader::ReadDlc(std::string_view text, std::uint8_t& dlc)
{
    std::uint32_t value = 0;
    const bool number = m_header.hexBase ? (text.size() == 1 && ParseHex(text, value)) : ParseDecimal(text, value);
    if (!number || value > 15) {
        Fail(IssueKind::InvalidDlc, "invalid DLC", text);
        return false;
    }
    dlc = static_cast<std::uint8_t>(value);
    return true;
}

bool AscReader::ReadData(Tokens& tokens, std::size_t count, CanFrame& frame)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::string_view text = tokens.Next();
        if (text.empty() || EqualsNoCase(text, "Length")) {
            char what[96];
            std::snprintf(what, sizeof what, "%zu data bytes where the length says %zu", i, count);
            Fail(IssueKind::MissingData, what);
            return false;
        }
        if (!ParseByte(text, m_header.hexBase, frame.data[i])) {
            Fail(IssueKind::InvalidData, "invalid data byte", text);
            return false;
        }
    }
    return true;
}

AscReader::LineResult AscReader::AtEnd()
{
    if (m_inTriggerBlock) return Fail(IssueKind::Truncated, "the file ends before End TriggerBlock");
    return LineResult::Ignored;
}

}  // namespace veldor::canlog
