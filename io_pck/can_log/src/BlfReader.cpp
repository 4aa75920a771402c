#include "can_log/BlfReader.h"

#include <fcntl.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "BlfFormat.h"

namespace veldor::canlog {

namespace {

using namespace blf;

// The first size of the read buffer, which grows for a larger object; and
// the largest file header taken.
constexpr std::size_t kReadBuffer = 64 * 1024;

bool IsSignature(const std::uint8_t* p) { return std::memcmp(p, kObjectSignature, 4) == 0; }

bool AllZero(const std::uint8_t* p, std::size_t n)
{
    return std::all_of(p, p + n, [](std::uint8_t b) { return b == 0; });
}

// Appends what `in` inflates to to `out`, at most kMaxObjectSize bytes.
// False, with the reason, when the data is broken or ends early; `out` keeps
// what inflated before that.
bool Inflate(const std::uint8_t* in, std::size_t size, std::size_t expected, std::vector<std::uint8_t>& out,
             std::string& error)
{
    z_stream z{};
    if (inflateInit(&z) != Z_OK) {
        error = "zlib cannot start";
        return false;
    }
    z.next_in = const_cast<Bytef*>(in);
    z.avail_in = static_cast<uInt>(size);
    const std::size_t base = out.size();
    bool ok = false;
    for (;;) {
        const std::size_t produced = out.size() - base;
        if (produced >= kMaxObjectSize) {
            error = "it inflates to more than 64 MiB";
            break;
        }
        const std::size_t wanted = expected > produced ? expected - produced : 0;
        const std::size_t chunk = std::min(std::clamp<std::size_t>(wanted, 64 * 1024, 1024 * 1024), kMaxObjectSize - produced);
        const std::size_t have = out.size();
        out.resize(have + chunk);
        z.next_out = out.data() + have;
        z.avail_out = static_cast<uInt>(chunk);
        const int rc = inflate(&z, Z_NO_FLUSH);
        out.resize(have + (chunk - z.avail_out));
        if (rc == Z_STREAM_END) {
            ok = true;
            break;
        }
        if (rc == Z_OK) continue;
        error = rc == Z_BUF_ERROR ? "its data ends early" : (z.msg != nullptr ? z.msg : "its data is broken");
        break;
    }
    inflateEnd(&z);
    return ok;
}

}  // namespace

std::unique_ptr<BlfReader> BlfReader::Open(const std::string& path, std::string& error, const ReaderOptions& options)
{
    std::unique_ptr<BlfReader> reader(new BlfReader(options));
    if (!reader->ReadHeader(path, error)) return nullptr;
    return reader;
}

BlfReader::~BlfReader()
{
    if (m_fd >= 0) ::close(m_fd);
}

bool BlfReader::ReadHeader(const std::string& path, std::string& error)
{
    m_fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (m_fd < 0) {
        error = "cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    m_in.resize(kReadBuffer);
    if (!Fill(kFileHeaderFields)) {
        error = "cannot read " + path + ": " + m_readError;
        return false;
    }
    if (Buffered() == 0) {
        m_fileDone = true;
        return true;
    }
    const std::uint8_t* header = m_in.data() + m_inAt;
    if (Buffered() < 4 || std::memcmp(header, kFileSignature, 4) != 0) {
        error = path + " is no BLF file: it does not start with \"LOGG\"";
        return false;
    }
    const std::uint32_t headerSize = Get32(header + 4);
    if (Buffered() < kFileHeaderFields || headerSize < kFileHeaderFields || headerSize > kReadBuffer) {
        error = path + ": " +
                (Buffered() < kFileHeaderFields ? std::string("the file ends inside its header")
                                                : "a file header of " + std::to_string(headerSize) + " bytes");
        return false;
    }
    if (!ReadCalendarTime(header + kStartTimeAt, Options().dateZone, m_start)) m_start = 0;
    if (!Fill(headerSize) || Buffered() < headerSize) {
        error = path + ": the file ends inside its header";
        return false;
    }
    m_inAt += headerSize;
    return true;
}

bool BlfReader::Fill(std::size_t count)
{
    if (Buffered() >= count) return true;
    if (m_inAt > 0) {
        std::memmove(m_in.data(), m_in.data() + m_inAt, Buffered());
        m_inEnd -= m_inAt;
        m_inAt = 0;
    }
    while (m_inEnd < count && !m_inEof) {
        // Grown as the data comes: a size in a damaged file costs nothing.
        if (m_inEnd == m_in.size()) m_in.resize(std::min(2 * m_in.size(), count));
        const ssize_t n = ::read(m_fd, m_in.data() + m_inEnd, m_in.size() - m_inEnd);
        if (n > 0) {
            m_inEnd += static_cast<std::size_t>(n);
        } else if (n == 0) {
            m_inEof = true;
        } else if (errno != EINTR) {
            m_readError = std::string("read failed: ") + std::strerror(errno);
            return false;
        }
    }
    return true;
}

FrameReader::Step BlfReader::Read(CanFrame& frame)
{
    for (;;) {
        switch (FindObject()) {
        case Found::Object: {
            const std::uint8_t* object = m_data.data() + m_at;
            const std::size_t size = Get32(object + 8);
            m_at += size;
            SetPlace(++m_objects, true);
            return ReadObject(object, size, frame);
        }
        case Found::Issue: return Step::Issue;
        case Found::NeedMore: break;
        }
        if (m_fileDone) {
            const std::size_t left = m_data.size() - m_at;
            const bool cut = m_cut || !AllZero(m_data.data() + m_at, left);
            m_data.clear();
            m_at = 0;
            m_cut = false;
            if (!cut) return Step::End;
            SetPlace(m_objects + 1, true);
            return Fail(IssueKind::Truncated, "the file ends inside this object; the frames before it are read");
        }
        Step step = Step::End;
        if (!NextContainer(step) && step == Step::Issue) return step;
    }
}

BlfReader::Found BlfReader::FindObject()
{
    // Writers pad objects differently: the next one starts within a few
    // bytes of the end of the last.
    const std::size_t left = m_data.size() - m_at;
    const std::uint8_t* here = m_data.data() + m_at;
    std::size_t skip = 0;
    while (skip < 4 && skip + 4 <= left && !IsSignature(here + skip)) ++skip;
    if (skip + 4 > left) return Found::NeedMore;
    if (!IsSignature(here + skip)) {
        // No object where one should start: on to the next signature.
        std::size_t next = 4;
        while (next + 4 <= left && !IsSignature(here + next)) ++next;
        if (next + 4 > left) next = left - 3;  // a signature may run on into the next container
        m_at += next;
        SetPlace(m_objects + 1, true);
        Fail(IssueKind::Corrupt, "no object where one should start; " + std::to_string(next) + " bytes passed over");
        return Found::Issue;
    }
    m_at += skip;
    if (left - skip < kBaseHeaderSize) return Found::NeedMore;
    const std::size_t size = Get32(m_data.data() + m_at + 8);
    if (size < kBaseHeaderSize || size > kMaxObjectSize) {
        m_at += 4;
        SetPlace(m_objects + 1, true);
        Fail(IssueKind::Corrupt, "an object of " + std::to_string(size) + " bytes");
        return Found::Issue;
    }
    return size <= left - skip ? Found::Object : Found::NeedMore;
}

bool BlfReader::NextContainer(Step& step)
{
    if (m_at > 0) {
        m_data.erase(m_data.begin(), m_data.begin() + static_cast<std::ptrdiff_t>(m_at));
        m_at = 0;
    }
    auto failed = [&](IssueKind kind, const std::string& what) {
        SetPlace(m_objects + 1, true);
        step = Fail(kind, what);
        return false;
    };
    if (!Fill(m_padding + kBaseHeaderSize + 3)) {
        m_fileDone = true;
        return failed(IssueKind::ReadFailed, m_readError);
    }
    m_inAt += std::min(m_padding, Buffered());
    m_padding = 0;
    std::size_t skip = 0;
    while (skip < 3 && skip + 4 <= Buffered() && !IsSignature(m_in.data() + m_inAt + skip)) ++skip;
    if (skip + 4 > Buffered() || !IsSignature(m_in.data() + m_inAt + skip)) {
        if (m_inEof && AllZero(m_in.data() + m_inAt, Buffered())) {
            m_inAt = m_inEnd;
            m_fileDone = true;
            return false;
        }
        // No object where one should start: on to the next signature; the
        // object that ran on from the last container is lost with it.
        m_data.clear();
        std::size_t passed = 0;
        for (;;) {
            std::size_t at = 1;
            while (at + 4 <= Buffered() && !IsSignature(m_in.data() + m_inAt + at)) ++at;
            if (at + 4 <= Buffered()) {
                m_inAt += at;
                passed += at;
                break;
            }
            const std::size_t keep = std::min<std::size_t>(3, Buffered());
            passed += Buffered() - keep;
            m_inAt = m_inEnd - keep;
            if (m_inEof) {
                m_inAt = m_inEnd;
                m_fileDone = true;
                passed += keep;
                break;
            }
            if (!Fill(kReadBuffer / 2)) {
                m_fileDone = true;
                return failed(IssueKind::ReadFailed, m_readError);
            }
        }
        return failed(IssueKind::Corrupt, "no object where one should start; " + std::to_string(passed) + " bytes passed over");
    }
    m_inAt += skip;
    if (!Fill(kBaseHeaderSize)) {
        m_fileDone = true;
        return failed(IssueKind::ReadFailed, m_readError);
    }
    if (Buffered() < kBaseHeaderSize) {
        m_fileDone = true;
        m_inAt = m_inEnd;
        return failed(IssueKind::Truncated, "the file ends inside an object's header");
    }
    const std::uint8_t* object = m_in.data() + m_inAt;
    const std::size_t size = Get32(object + 8);
    const std::uint32_t type = Get32(object + 12);
    if (size < kBaseHeaderSize || size > kMaxObjectSize) {
        m_inAt += 4;
        m_data.clear();
        return failed(IssueKind::Corrupt, "an object of " + std::to_string(size) + " bytes");
    }
    if (!Fill(size)) {
        m_fileDone = true;
        return failed(IssueKind::ReadFailed, m_readError);
    }
    object = m_in.data() + m_inAt;
    // A file cut inside a container still gives what inflates of it.
    const bool cut = Buffered() < size;
    const std::size_t present = std::min(size, Buffered());
    m_inAt += present;
    m_padding = size % 4;
    if (cut) {
        m_fileDone = true;
        m_cut = true;
    }

    if (type != kLogContainer) {
        // An object outside any container is read as if it stood in one.
        m_data.insert(m_data.end(), object, object + present);
        return true;
    }
    if (present < kBaseHeaderSize + kContainerHeaderSize) {
        return cut || failed(IssueKind::Corrupt, "a log container shorter than its header");  // a cut is told at the end
    }
    const std::uint16_t method = Get16(object + kBaseHeaderSize);
    const std::size_t uncompressed = Get32(object + kBaseHeaderSize + 8);
    const std::uint8_t* data = object + kBaseHeaderSize + kContainerHeaderSize;
    const std::size_t dataSize = present - kBaseHeaderSize - kContainerHeaderSize;
    if (method == kStored) {
        m_data.insert(m_data.end(), data, data + dataSize);
    } else if (method == kZlib) {
        std::string why;
        if (!Inflate(data, dataSize, std::min(uncompressed, kMaxObjectSize), m_data, why) && !cut) {
            // What inflated of broken data is not to be trusted, nor the
            // object that was to end in it.
            m_data.clear();
            return failed(IssueKind::Corrupt, "a log container that does not inflate: " + why);
        }
    } else {
        m_data.clear();
        return failed(IssueKind::Corrupt, "a log container compressed by unknown method " + std::to_string(method));
    }
    return true;
}

FrameReader::Step BlfReader::ReadObject(const std::uint8_t* object, std::size_t size, CanFrame& frame)
{
    const std::uint16_t version = Get16(object + 6);
    const std::uint32_t type = Get32(object + 12);
    if (type == kLogContainer) return Step::Other;  // inside a container: not where one belongs
    const std::size_t headerSize = version == 1 ? kHeaderV1Size : version == 2 ? kHeaderV2Size : 0;
    if (headerSize == 0) return Fail(IssueKind::Corrupt, "object header version " + std::to_string(version));
    if (size < kBaseHeaderSize + headerSize) return Fail(IssueKind::Corrupt, "an object shorter than its header");
    const std::uint8_t* header = object + kBaseHeaderSize;
    const std::uint64_t time = Get64(header + 8);
    constexpr std::uint64_t kMaxNanos = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max() / 4);
    const bool tenMicros = Get32(header) == kTimeTenMicros;
    if (time > (tenMicros ? kMaxNanos / 10000 : kMaxNanos)) {
        return Fail(IssueKind::InvalidTimestamp, "a time beyond any recording: " + std::to_string(time));
    }
    const std::uint64_t nanos = tenMicros ? time * 10000 : time;
    frame.timestamp = m_start + static_cast<std::int64_t>((nanos + 500) / 1000);
    return ReadBody(type, header + headerSize, size - kBaseHeaderSize - headerSize, frame);
}

FrameReader::Step BlfReader::ReadChannel(unsigned channel, CanFrame& frame)
{
    if (channel < 1 || channel > 256) return Fail(IssueKind::InvalidChannel, "invalid channel " + std::to_string(channel));
    frame.channel = static_cast<std::uint8_t>(channel - 1);
    return Step::Frame;
}

FrameReader::Step BlfReader::ReadIdentifier(std::uint32_t id, CanFrame& frame)
{
    frame.extended = (id & kExtendedId) != 0;
    frame.id = id & ~kExtendedId;
    if (frame.id > (frame.extended ? CanFrame::kMaxExtendedId : CanFrame::kMaxStandardId)) {
        return Fail(IssueKind::InvalidIdentifier, "invalid identifier " + std::to_string(id));
    }
    return Step::Frame;
}

FrameReader::Step BlfReader::ReadBody(std::uint32_t type, const std::uint8_t* body, std::size_t size, CanFrame& frame)
{
    auto tooShort = [this](const char* what) { return Fail(IssueKind::Corrupt, std::string(what) + " shorter than its fields"); };
    auto takeDlc = [this, &frame](std::uint8_t dlc, bool fd) {
        if (dlc > 15) return Fail(IssueKind::InvalidDlc, "invalid DLC " + std::to_string(dlc));
        frame.length = DlcToLength(dlc, fd);
        return Step::Frame;
    };
    switch (type) {
    case kCanMessage:
    case kCanMessage2: {
        if (size < (type == kCanMessage ? kCanMessageBody : kCanMessage2Body)) return tooShort("a CAN message");
        if (ReadChannel(Get16(body), frame) == Step::Issue || ReadIdentifier(Get32(body + 4), frame) == Step::Issue ||
            takeDlc(body[3], false) == Step::Issue) {
            return Step::Issue;
        }
        frame.direction = (body[2] & kFlagTx) != 0 ? Direction::Tx : Direction::Rx;
        frame.remote = (body[2] & kFlagRemote) != 0;
        if (!frame.remote) std::memcpy(frame.data.data(), body + 8, frame.length);
        return Step::Frame;
    }
    case kCanFdMessage: {
        if (size < kCanFdMessageBody) return tooShort("a CAN FD message");
        const std::uint8_t fdFlags = body[13];
        frame.fd = (fdFlags & kFdEdl) != 0;
        if (ReadChannel(Get16(body), frame) == Step::Issue || ReadIdentifier(Get32(body + 4), frame) == Step::Issue ||
            takeDlc(body[3], frame.fd) == Step::Issue) {
            return Step::Issue;
        }
        frame.direction = (body[2] & kFlagTx) != 0 ? Direction::Tx : Direction::Rx;
        frame.remote = !frame.fd && (body[2] & kFlagRemote) != 0;
        frame.bitRateSwitch = frame.fd && (fdFlags & kFdBrs) != 0;
        frame.errorStateIndicator = frame.fd && (fdFlags & kFdEsi) != 0;
        if (!frame.remote) std::memcpy(frame.data.data(), body + 20, frame.length);
        return Step::Frame;
    }
    case kCanFdMessage64: {
        if (size < kCanFd64Body) return tooShort("a CAN FD message 64");
        const std::uint32_t flags = Get32(body + 12);
        frame.fd = (flags & kFd64Edl) != 0;
        if (ReadChannel(body[0], frame) == Step::Issue || ReadIdentifier(Get32(body + 4), frame) == Step::Issue ||
            takeDlc(body[1], frame.fd) == Step::Issue) {
            return Step::Issue;
        }
        frame.direction = body[34] != 0 ? Direction::Tx : Direction::Rx;
        frame.remote = !frame.fd && (flags & kFd64Remote) != 0;
        frame.bitRateSwitch = frame.fd && (flags & kFd64Brs) != 0;
        frame.errorStateIndicator = frame.fd && (flags & kFd64Esi) != 0;
        if (frame.remote) return Step::Frame;
        const std::size_t present = std::min<std::size_t>(body[2], size - kCanFd64Body);
        if (present < frame.length) {
            return Fail(IssueKind::MissingData, std::to_string(present) + " data bytes where the DLC says " +
                                                    std::to_string(frame.length));
        }
        std::memcpy(frame.data.data(), body + kCanFd64Body, frame.length);
        return Step::Frame;
    }
    case kCanErrorExt:
        if (size < kCanErrorExtBody) return tooShort("a CAN error frame");
        if (ReadChannel(Get16(body), frame) == Step::Issue) return Step::Issue;
        frame.extended = (Get32(body + 16) & kExtendedId) != 0;
        frame.id = Get32(body + 16) & CanFrame::kMaxExtendedId;
        frame.length = std::min<std::uint8_t>(body[10], 8);
        std::memcpy(frame.data.data(), body + 24, frame.length);
        return Step::ErrorFrame;
    case kCanError:
        if (size < kCanErrorBody) return tooShort("a CAN error frame");
        return ReadChannel(Get16(body), frame) == Step::Issue ? Step::Issue : Step::ErrorFrame;
    default:
        return Step::Other;
    }
}

}  // namespace veldor::canlog
