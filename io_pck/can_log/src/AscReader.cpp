#include "can_log/AscReader.h"

#include <string>

#include "AscDate.h"
#include "AscFlags.h"
#include "TextScan.h"

namespace veldor::canlog {

// What keeps a line from being read, before it becomes the reader's issue:
// a CANFD line under "base dec" is tried in both bases first.
struct LineTrouble {
    IssueKind kind = IssueKind::Syntax;
    std::string what;
    std::string_view text;
};

namespace {

bool IsDirection(std::string_view t) { return EqualsNoCase(t, "Rx") || EqualsNoCase(t, "Tx"); }

Direction DirectionOf(std::string_view t) { return EqualsNoCase(t, "Tx") ? Direction::Tx : Direction::Rx; }

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

bool Trouble(LineTrouble& trouble, IssueKind kind, std::string what, std::string_view text = {})
{
    trouble.kind = kind;
    trouble.what = std::move(what);
    trouble.text = text;
    return false;
}

bool ReadChannel(std::string_view text, CanFrame& frame, LineTrouble& trouble)
{
    std::uint32_t channel = 0;
    if (!ParseDecimal(text, channel) || channel < 1 || channel > 256) {
        return Trouble(trouble, IssueKind::InvalidChannel, "invalid channel", text);
    }
    frame.channel = static_cast<std::uint8_t>(channel - 1);
    return true;
}

bool ReadIdentifier(std::string_view text, bool hex, CanFrame& frame, LineTrouble& trouble)
{
    std::string_view digits = text;
    const bool extended = !digits.empty() && (digits.back() == 'x' || digits.back() == 'X');
    if (extended) digits.remove_suffix(1);
    std::uint32_t id = 0;
    const bool number = hex ? ParseHex(digits, id) : ParseDecimal(digits, id);
    if (!number || id > (extended ? CanFrame::kMaxExtendedId : CanFrame::kMaxStandardId)) {
        return Trouble(trouble, IssueKind::InvalidIdentifier, "invalid identifier", text);
    }
    frame.id = id;
    frame.extended = extended;
    return true;
}

bool ReadDlc(std::string_view text, bool hex, std::uint8_t& dlc, LineTrouble& trouble)
{
    std::uint32_t value = 0;
    const bool number = hex ? (text.size() == 1 && ParseHex(text, value)) : ParseDecimal(text, value);
    if (!number || value > 15) return Trouble(trouble, IssueKind::InvalidDlc, "invalid DLC", text);
    dlc = static_cast<std::uint8_t>(value);
    return true;
}

bool ReadData(Tokens& tokens, std::size_t count, bool hex, CanFrame& frame, LineTrouble& trouble)
{
    for (std::size_t i = 0; i < count; ++i) {
        const std::string_view text = tokens.Next();
        if (text.empty() || EqualsNoCase(text, "Length")) {
            return Trouble(trouble, IssueKind::MissingData,
                           std::to_string(i) + " data bytes where the length says " + std::to_string(count));
        }
        if (!ParseByte(text, hex, frame.data[i])) return Trouble(trouble, IssueKind::InvalidData, "invalid data byte", text);
    }
    return true;
}

// A CANFD line from its identifier on, read in one base.
bool ReadFdFields(Tokens tokens, bool hex, CanFrame& frame, LineTrouble& trouble)
{
    if (!ReadIdentifier(tokens.Next(), hex, frame, trouble)) return false;
    std::string_view brs = tokens.Next();
    if (brs != "0" && brs != "1") brs = tokens.Next();  // a symbolic name stood first
    const std::string_view esi = tokens.Next();
    if (brs != "0" && brs != "1") return Trouble(trouble, IssueKind::Syntax, "BRS is neither 0 nor 1", brs);
    if (esi != "0" && esi != "1") return Trouble(trouble, IssueKind::Syntax, "ESI is neither 0 nor 1", esi);
    std::uint8_t dlc = 0;
    if (!ReadDlc(tokens.Next(), hex, dlc, trouble)) return false;
    const std::string_view lengthText = tokens.Next();
    std::uint32_t length = 0;
    if (!ParseDecimal(lengthText, length) || !IsValidLength(length, true)) {
        return Trouble(trouble, IssueKind::InvalidLength, "invalid data length", lengthText);
    }

    // The bytes are as many as the length says; of the fields after them,
    // writers give all, some or none, and the flags are the third.
    Tokens data = tokens;
    for (std::size_t i = 0; i < length; ++i) {
        if (tokens.Next().empty()) {
            return Trouble(trouble, IssueKind::MissingData,
                           std::to_string(i) + " data bytes where the length says " + std::to_string(length));
        }
    }
    std::uint32_t flags = kAscFlagEdl;
    for (std::size_t i = 0; i < kAscFlagsField; ++i) tokens.Next();
    const std::string_view flagsText = tokens.Next();
    if (!flagsText.empty() && !ParseHex(flagsText, flags)) {
        return Trouble(trouble, IssueKind::Syntax, "invalid flags", flagsText);
    }

    frame.fd = (flags & kAscFlagEdl) != 0;
    if (frame.fd) {
        if (DlcToLength(dlc, true) != length) {
            return Trouble(trouble, IssueKind::InvalidLength, "length does not match the DLC", lengthText);
        }
        frame.bitRateSwitch = brs == "1";
        frame.errorStateIndicator = esi == "1";
        frame.length = static_cast<std::uint8_t>(length);
    } else if ((flags & kAscFlagRemote) != 0) {
        // A classic remote frame on an FD channel: the DLC is the length asked for.
        frame.remote = true;
        frame.length = DlcToLength(dlc, false);
        if (length != 0) return Trouble(trouble, IssueKind::InvalidLength, "remote frame with data", lengthText);
    } else {
        if (DlcToLength(dlc, false) != length) {
            return Trouble(trouble, IssueKind::InvalidLength, "length does not match the DLC", lengthText);
        }
        frame.length = static_cast<std::uint8_t>(length);
    }
    return ReadData(data, length, hex, frame, trouble);
}

}  // namespace

std::unique_ptr<AscReader> AscReader::Open(const std::string& path, std::string& error, const ReaderOptions& options)
{
    std::unique_ptr<AscReader> reader(new AscReader(options));
    if (!reader->OpenFile(path, error)) return nullptr;
    return reader;
}

AscReader::LineResult AscReader::Fail(const LineTrouble& trouble)
{
    return FailLine(trouble.kind, trouble.what, trouble.text);
}

AscReader::LineResult AscReader::ParseLine(std::string_view line, CanFrame& frame)
{
    Tokens tokens(line);
    const std::string_view first = tokens.Next();
    if (first.empty() || first.substr(0, 2) == "//") return LineResult::Ignored;
    std::int64_t seconds = 0;
    if (!ParseSeconds(first, seconds)) {
        if (LooksLikeFrame(tokens)) return FailLine(IssueKind::InvalidTimestamp, "invalid timestamp", first);
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
    if (EqualsNoCase(ahead.Next(), "ErrorFrame")) {
        LineTrouble ignored;
        ReadChannel(second, frame, ignored);
        return LineResult::ErrorFrame;
    }
    if (!LooksLikeFrame(tokens)) return LineResult::Ignored;
    return ParseClassicLine(tokens, frame);
}

AscReader::LineResult AscReader::ParseKeywordLine(std::string_view first, Tokens& tokens)
{
    if (EqualsNoCase(first, "date")) return ParseDate(tokens.Rest(), false);
    if (EqualsNoCase(first, "base")) {
        const std::string_view base = tokens.Next();
        if (!EqualsNoCase(base, "hex") && !EqualsNoCase(base, "dec")) {
            return FailLine(IssueKind::Header, "unknown number base", base);
        }
        m_header.hexBase = EqualsNoCase(base, "hex");
        if (EqualsNoCase(tokens.Next(), "timestamps")) {
            const std::string_view mode = tokens.Next();
            if (!EqualsNoCase(mode, "absolute") && !EqualsNoCase(mode, "relative")) {
                return FailLine(IssueKind::Header, "unknown timestamp mode", mode);
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
    if (!ParseAscDate(text, Options().dateZone, start)) {
        const std::size_t at = text.find_first_not_of(" \t");
        return FailLine(IssueKind::Header, "unreadable date", at == std::string_view::npos ? text : text.substr(at));
    }
    // The block's date is the start its times count from; the date line
    // stands in where a block has none.
    if (fromTriggerBlock || !m_startFromTriggerBlock) m_header.measurementStart = start;
    m_startFromTriggerBlock = m_startFromTriggerBlock || fromTriggerBlock;
    return LineResult::Ignored;
}

AscReader::LineResult AscReader::ParseClassicLine(Tokens& tokens, CanFrame& frame)
{
    const bool hex = m_header.hexBase;
    LineTrouble trouble;
    if (!ReadChannel(tokens.Next(), frame, trouble) || !ReadIdentifier(tokens.Next(), hex, frame, trouble)) {
        return Fail(trouble);
    }
    std::string_view kind = tokens.Next();
    if (IsDirection(kind)) {
        frame.direction = DirectionOf(kind);
        kind = tokens.Next();
    }
    std::uint8_t dlc = 0;
    if (kind == "r") {
        frame.remote = true;
        // The DLC of a remote frame is optional; older tools leave it out.
        const std::string_view text = tokens.Next();
        if (text.empty() || EqualsNoCase(text, "Length")) return LineResult::Frame;
        if (!ReadDlc(text, hex, dlc, trouble)) return Fail(trouble);
        frame.length = DlcToLength(dlc, false);
        return LineResult::Frame;
    }
    if (!ReadDlc(tokens.Next(), hex, dlc, trouble)) return Fail(trouble);
    frame.length = DlcToLength(dlc, false);
    return ReadData(tokens, frame.length, hex, frame, trouble) ? LineResult::Frame : Fail(trouble);
}

AscReader::LineResult AscReader::ParseFdLine(Tokens& tokens, CanFrame& frame)
{
    LineTrouble trouble;
    if (!ReadChannel(tokens.Next(), frame, trouble)) return Fail(trouble);
    const std::string_view direction = tokens.Next();
    if (!IsDirection(direction)) return LineResult::Ignored;  // an event of the FD channel
    frame.direction = DirectionOf(direction);
    if (EqualsNoCase(Tokens(tokens).Next(), "ErrorFrame")) return LineResult::ErrorFrame;

    // The base the file declares, or under "base dec" the one its CANFD
    // lines turned out to be in; the other one when only that one reads.
    const bool first = m_header.hexBase || m_fdLinesInHex;
    const CanFrame blank = frame;
    if (ReadFdFields(tokens, first, frame, trouble)) return LineResult::Frame;
    if (m_header.hexBase) return Fail(trouble);
    frame = blank;
    LineTrouble other;
    if (!ReadFdFields(tokens, !first, frame, other)) return Fail(trouble);
    if (!m_fdLinesInHex) {
        m_fdLinesInHex = true;
        Notice("CANFD lines are in hex although the file says \"base dec\"; they are read so");
    }
    return LineResult::Frame;
}

AscReader::LineResult AscReader::AtEnd()
{
    if (m_inTriggerBlock) return FailLine(IssueKind::Truncated, "the file ends before End TriggerBlock");
    return LineResult::Ignored;
}

}  // namespace veldor::canlog
