#include "sim_frame.h"

#include <algorithm>

namespace nxsim {

namespace {

constexpr int kFdLengths[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};

// Bit timing limits of the simulated controller.
constexpr uint64_t kMaxBrp = 1024;
constexpr uint32_t kMaxTseg1 = 256;
constexpr uint32_t kMaxTseg2 = 128;

int64_t BitsToNs(uint64_t bits, uint32_t rate)
{
    return static_cast<int64_t>((bits * 1000000000ull + rate - 1) / rate);
}

NXSCanBitTimingParameters MakeTiming(uint32_t quanta, uint32_t brp)
{
    // Sample point near 80 %: TSEG2 is a fifth of the bit, rounded.
    uint32_t tseg2 = std::max<uint32_t>(1, (quanta * 2 + 5) / 10);
    uint32_t tseg1 = quanta - 1 - tseg2;
    if (tseg1 > kMaxTseg1) {
        tseg1 = kMaxTseg1;
        tseg2 = quanta - 1 - tseg1;
    }
    NXSCanBitTimingParameters t{};
    t.ulBRP = brp;
    t.ulTSEG1 = tseg1;
    t.ulTSEG2 = tseg2;
    t.ulSJW = std::min<uint32_t>(4, tseg2);
    t.ulSAM = 0;
    return t;
}

}  // namespace

int DlcToLength(unsigned dlc)
{
    return dlc < 16 ? kFdLengths[dlc] : -1;
}

FrameBits CountFrameBits(const FrameShape& s)
{
    const uint32_t payloadBits = s.remote ? 0 : 8 * s.length;
    constexpr uint32_t kTail = 13;  // CRC delimiter, ACK slot and delimiter, EOF, interframe space
    FrameBits bits;
    if (!s.fd) {
        // SOF .. end of CRC sequence is stuffed: 34 bits of head and CRC for a
        // standard frame, 54 for an extended one, plus the data field.
        const uint32_t stuffed = (s.extended ? 54 : 34) + payloadBits;
        bits.nominal = stuffed + kTail + (stuffed - 1) / 4;
        return bits;
    }
    // CAN FD: the arbitration field up to BRS at the nominal rate.
    const uint32_t head = s.extended ? 36 : 17;
    const uint32_t headStuff = (head - 1) / 4;
    // ESI, DLC and data run at the data rate, dynamically stuffed together with
    // the head; the CRC field has its stuff count and fixed stuff bits.
    const uint32_t control = 5 + payloadBits;
    const uint32_t dynamicStuff = (head + control - 1) / 4 - headStuff;
    const uint32_t crc = s.length > 16 ? 21 : 17;
    const uint32_t fixedStuff = s.length > 16 ? 7 : 6;
    bits.nominal = head + headStuff + kTail;
    bits.data = control + dynamicStuff + 4 + crc + fixedStuff;
    return bits;
}

int64_t FrameDurationNs(const FrameShape& shape, uint32_t bitrate, uint32_t dataBitrate)
{
    const FrameBits bits = CountFrameBits(shape);
    if (shape.fd && shape.brs)
        return BitsToNs(bits.nominal, bitrate) + BitsToNs(bits.data, dataBitrate);
    return BitsToNs(static_cast<uint64_t>(bits.nominal) + bits.data, bitrate);
}

uint32_t ReplayRecordSize(unsigned dlc)
{
    const int length = DlcToLength(dlc);
    if (length < 0)
        return 0;
    const uint32_t beyond = length > 8 ? static_cast<uint32_t>(length - 8) : 0;
    return sizeof(NXSCanReplayData) + ((beyond + 7) & ~7u);
}

NXTCanError BaudrateToTiming(uint32_t clock, uint32_t baudrate, NXSCanBitTimingParameters* timing)
{
    if (timing == nullptr || clock == 0 || baudrate == 0)
        return NXCAN_ERR_INVALID_ARGUMENT;
    // Prefer the usual 8..25 quanta per bit; accept 4..385 when nothing else fits.
    const uint32_t ranges[2][2] = {{8, 25}, {4, 1 + kMaxTseg1 + kMaxTseg2}};
    for (const auto& range : ranges) {
        for (uint64_t brp = 1; brp <= kMaxBrp; ++brp) {
            const uint64_t perQuantum = static_cast<uint64_t>(baudrate) * brp;
            if (perQuantum > clock)
                break;
            if (clock % perQuantum != 0)
                continue;
            const uint64_t quanta = clock / perQuantum;
            if (quanta >= range[0] && quanta <= range[1]) {
                *timing = MakeTiming(static_cast<uint32_t>(quanta), static_cast<uint32_t>(brp));
                return NXCAN_SUCCESS;
            }
        }
    }
    return NXCAN_ERR_BITRATE_NOT_REACHABLE;
}

NXTCanError TimingToBaudrate(uint32_t clock, const NXSCanBitTimingParameters& t, uint32_t* baudrate)
{
    if (baudrate == nullptr || clock == 0)
        return NXCAN_ERR_INVALID_ARGUMENT;
    if (t.ulBRP < 1 || t.ulBRP > kMaxBrp || t.ulTSEG1 < 1 || t.ulTSEG1 > kMaxTseg1 || t.ulTSEG2 < 1 ||
        t.ulTSEG2 > kMaxTseg2 || t.ulSJW < 1 || t.ulSJW > t.ulTSEG2 || t.ulSAM > 1)
        return NXCAN_ERR_INVALID_ARGUMENT;
    const uint64_t divisor = static_cast<uint64_t>(t.ulBRP) * (1 + t.ulTSEG1 + t.ulTSEG2);
    if (clock % divisor != 0)
        return NXCAN_ERR_BITRATE_NOT_REACHABLE;
    *baudrate = static_cast<uint32_t>(clock / divisor);
    return NXCAN_SUCCESS;
}

bool TimingIsZero(const NXSCanBitTimingParameters& t)
{
    return t.ulBRP == 0 && t.ulSJW == 0 && t.ulSAM == 0 && t.ulTSEG1 == 0 && t.ulTSEG2 == 0;
}

}  // namespace nxsim
