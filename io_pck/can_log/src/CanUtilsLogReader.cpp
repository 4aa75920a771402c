#include "can_log/CanUtilsLogReader.h"

#include "TextScan.h"

namespace veldor::canlog {

namespace {

constexpr std::uint32_t kErrorFrameFlag = 0x20000000;

}  // namespace

std::unique_ptr<CanUtilsLogReader> CanUtilsLogReader::Open(const std::string& path, std::string& error,
                                                           const ReaderOptions& options)
{
    std::unique_ptr<CanUtilsLogReader> reader(new CanUtilsLogReader(options));
    if (!reader->OpenFile(path, error)) return nullptr;
    return reader;
}

CanUtilsLogReader::LineResult CanUtilsLogReader::ParseLine(std::string_view line, CanFrame& frame)
{
    const std::size_t begin = line.find_first_not_of(" \t");
    if (begin == std::string_view::npos) return LineResult::Ignored;
    line.remove_prefix(begin);
    // A comment, as can-utils' own tools take it.
    if (line.front() == '#') return LineResult::Ignored;
    if (line.front() != '(') return FailLine(IssueKind::Syntax, "expected \"(seconds)\" first", line);
    const std::size_t close = line.find(')');
    if (close == std::string_view::npos) return FailLine(IssueKind::InvalidTimestamp, "timestamp without \")\"", line);
    const std::string_view time = line.substr(1, close - 1);
    if (!ParseSeconds(time, frame.timestamp)) return FailLine(IssueKind::InvalidTimestamp, "invalid timestamp", time);

    Tokens tokens(line.substr(close + 1));
    const std::string_view interfaceName = tokens.Next();
    const std::string_view text = tokens.Next();
    if (text.empty()) return FailLine(IssueKind::Syntax, "expected an interface and a frame", line.substr(close + 1));
    if (!ReadChannel(interfaceName, frame)) return LineResult::Issue;
    if (tokens.Next() == "T") frame.direction = Direction::Tx;
    return ParseFrame(text, frame);
}

CanUtilsLogReader::LineResult CanUtilsLogReader::ParseFrame(std::string_view text, CanFrame& frame)
{
    const std::size_t hash = text.find('#');
    if (hash == std::string_view::npos) return FailLine(IssueKind::Syntax, "frame without \"#\"", text);
    const std::string_view idText = text.substr(0, hash);
    std::uint32_t id = 0;
    if ((idText.size() != 3 && idText.size() != 8) || !ParseHex(idText, id)) {
        return FailLine(IssueKind::InvalidIdentifier, "invalid identifier", idText);
    }
    frame.extended = idText.size() == 8;
    if (frame.extended && (id & kErrorFrameFlag) != 0) {
        // The error class in the identifier, its details in the data.
        frame.id = id & ~kErrorFrameFlag & CanFrame::kMaxExtendedId;
        frame.extended = false;
        ReadData(text.substr(hash + 1), CanFrame::kMaxClassicLength, frame);
        return LineResult::ErrorFrame;
    }
    if (id > (frame.extended ? CanFrame::kMaxExtendedId : CanFrame::kMaxStandardId)) {
        return FailLine(IssueKind::InvalidIdentifier, "identifier out of range", idText);
    }
    frame.id = id;

    std::string_view body = text.substr(hash + 1);
    if (!body.empty() && body.front() == '#') {
        const int flags = body.size() > 1 ? HexDigit(body[1]) : -1;
        if (flags < 0) return FailLine(IssueKind::Syntax, "FD frame without its flags digit", text);
        frame.fd = true;
        frame.bitRateSwitch = (flags & 0x1) != 0;
        frame.errorStateIndicator = (flags & 0x2) != 0;
        body.remove_prefix(2);
        if (!ReadData(body, CanFrame::kMaxFdLength, frame)) return LineResult::Issue;
        if (!IsValidLength(frame.length, true)) return FailLine(IssueKind::InvalidLength, "no FD frame has that many bytes", body);
        return LineResult::Frame;
    }
    if (!body.empty() && (body.front() == 'R' || body.front() == 'r')) {
        frame.remote = true;
        body.remove_prefix(1);
        if (body.empty()) return LineResult::Frame;
        if (body.size() != 1 || !IsDecimalDigit(body[0]) || body[0] > '8') {
            return FailLine(IssueKind::InvalidDlc, "invalid remote frame length", body);
        }
        frame.length = static_cast<std::uint8_t>(body[0] - '0');
        return LineResult::Frame;
    }
    return ReadData(body, CanFrame::kMaxClassicLength, frame) ? LineResult::Frame : LineResult::Issue;
}

bool CanUtilsLogReader::ReadChannel(std::string_view interfaceName, CanFrame& frame)
{
    std::size_t digits = 0;
    while (digits < interfaceName.size() && IsDecimalDigit(interfaceName[interfaceName.size() - 1 - digits])) ++digits;
    std::uint32_t channel = 0;
    if (digits > 0 && (!ParseDecimal(interfaceName.substr(interfaceName.size() - digits), channel) || channel > 255)) {
        FailLine(IssueKind::InvalidChannel, "interface number above 255", interfaceName);
        return false;
    }
    frame.channel = static_cast<std::uint8_t>(channel);
    return true;
}

bool CanUtilsLogReader::ReadData(std::string_view text, std::size_t maxLength, CanFrame& frame)
{
    std::size_t length = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (text[i] == '.') {
            ++i;
            continue;
        }
        // "_<dlc>" after eight bytes keeps a classic DLC above 8; the
        // frame still has 8 bytes.
        if (text[i] == '_' && maxLength == CanFrame::kMaxClassicLength && length == maxLength &&
            i + 2 == text.size() && HexDigit(text[i + 1]) >= 0) {
            break;
        }
        const int high = HexDigit(text[i]);
        const int low = i + 1 < text.size() ? HexDigit(text[i + 1]) : -1;
        if (high < 0 || low < 0) {
            FailLine(IssueKind::InvalidData, i + 1 < text.size() ? "invalid data" : "odd number of data digits", text);
            return false;
        }
        if (length == maxLength) {
            FailLine(IssueKind::InvalidLength, "more data bytes than the frame can carry", text);
            return false;
        }
        frame.data[length++] = static_cast<std::uint8_t>(high << 4 | low);
        i += 2;
    }
    frame.length = static_cast<std::uint8_t>(length);
    return true;
}

}  // namespace veldor::canlog
