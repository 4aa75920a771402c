#include "BusTiming.h"

#include <vector>

namespace veldor::sample {

namespace {

using canlog::CanFrame;

// The bits of a frame from the start of frame on, in the order they are
// sent, and where the data phase begins.
class BitString {
public:
    void Push(std::uint32_t value, int count)
    {
        for (int i = count - 1; i >= 0; --i) m_bits.push_back(static_cast<std::uint8_t>((value >> i) & 1u));
    }
    void MarkDataPhase() { m_dataPhaseStart = m_bits.size(); }
    const std::vector<std::uint8_t>& Bits() const { return m_bits; }
    std::size_t DataPhaseStart() const { return m_dataPhaseStart; }

private:
    std::vector<std::uint8_t> m_bits;
    std::size_t m_dataPhaseStart = SIZE_MAX;
};

std::uint32_t Crc15(const std::vector<std::uint8_t>& bits)
{
    std::uint32_t crc = 0;
    for (std::uint8_t bit : bits) {
        const bool top = ((crc >> 14) & 1u) != bit;
        crc = (crc << 1) & 0x7FFF;
        if (top) crc ^= 0x4599;
    }
    return crc;
}

// Stuff bits after every five equal bits; counted for each phase.
void CountStuffBits(const BitString& frame, std::uint32_t& inArbitration, std::uint32_t& inData)
{
    const std::vector<std::uint8_t>& bits = frame.Bits();
    int run = 0;
    std::uint8_t last = 2;
    for (std::size_t i = 0; i < bits.size(); ++i) {
        run = bits[i] == last ? run + 1 : 1;
        last = bits[i];
        if (run == 5) {
            ++(i >= frame.DataPhaseStart() ? inData : inArbitration);
            last = static_cast<std::uint8_t>(1 - last);  // the stuff bit starts a new run
            run = 1;
        }
    }
}

void PushIdentifier(BitString& bits, const CanFrame& frame, std::uint32_t bitAfterBase)
{
    if (frame.extended) {
        bits.Push(frame.id >> 18, 11);
        bits.Push(1, 1);  // SRR
        bits.Push(1, 1);  // IDE
        bits.Push(frame.id & 0x3FFFF, 18);
        bits.Push(bitAfterBase, 1);
    } else {
        bits.Push(frame.id, 11);
        bits.Push(bitAfterBase, 1);
        bits.Push(0, 1);  // IDE
    }
}

}  // namespace

FrameTime TimeOnBus(const CanFrame& frame, const BusRates& rates)
{
    // CRC delimiter, ACK slot and delimiter, end of frame, interframe space.
    constexpr std::uint32_t kTrailer = 1 + 2 + 7 + 3;
    BitString bits;
    bits.Push(0, 1);  // start of frame
    FrameTime time;
    std::uint32_t stuffArbitration = 0;
    std::uint32_t stuffData = 0;
    const std::size_t payload = frame.remote ? 0 : frame.length;
    if (!frame.fd) {
        PushIdentifier(bits, frame, frame.remote ? 1 : 0);
        bits.Push(0, frame.extended ? 2 : 1);  // reserved bits
        bits.Push(frame.length, 4);
        for (std::size_t i = 0; i < payload; ++i) bits.Push(frame.data[i], 8);
        bits.Push(Crc15(bits.Bits()), 15);
        CountStuffBits(bits, stuffArbitration, stuffData);
        time.arbitrationBits = static_cast<std::uint32_t>(bits.Bits().size()) + stuffArbitration + kTrailer;
    } else {
        PushIdentifier(bits, frame, 0);  // RRS
        bits.Push(1, 1);  // FDF
        bits.Push(0, 1);  // reserved
        bits.Push(frame.bitRateSwitch ? 1 : 0, 1);
        if (frame.bitRateSwitch) bits.MarkDataPhase();
        bits.Push(frame.errorStateIndicator ? 1 : 0, 1);
        bits.Push(canlog::LengthToDlc(frame.length), 4);
        for (std::size_t i = 0; i < payload; ++i) bits.Push(frame.data[i], 8);
        CountStuffBits(bits, stuffArbitration, stuffData);
        // Stuff count and CRC, with their fixed stuff bits.
        const std::uint32_t crcField = frame.length > 16 ? 4 + 21 + 7 : 4 + 17 + 6;
        const std::uint32_t phaseOne = frame.bitRateSwitch ? static_cast<std::uint32_t>(bits.DataPhaseStart())
                                                           : static_cast<std::uint32_t>(bits.Bits().size()) + crcField;
        const std::uint32_t phaseTwo = frame.bitRateSwitch
                                           ? static_cast<std::uint32_t>(bits.Bits().size() - bits.DataPhaseStart()) + crcField
                                           : 0;
        time.arbitrationBits = phaseOne + stuffArbitration + kTrailer;
        time.dataBits = phaseTwo + stuffData;
    }
    time.nanoseconds = static_cast<std::int64_t>(time.arbitrationBits) * 1000000000 / rates.arbitration +
                       static_cast<std::int64_t>(time.dataBits) * 1000000000 / rates.data;
    return time;
}

void BusLoadPeak::Add(std::int64_t due, const CanFrame& frame)
{
    const std::int64_t held = TimeOnBus(frame, m_rates).nanoseconds;
    m_inWindow.emplace_back(due, held);
    m_busy += held;
    while (!m_inWindow.empty() && m_inWindow.front().first <= due - m_window) {
        m_busy -= m_inWindow.front().second;
        m_inWindow.pop_front();
    }
    if (m_busy > m_peak) {
        m_peak = m_busy;
        m_peakEnd = due;
    }
}

double BusLoadPeak::Peak() const
{
    return m_window > 0 ? static_cast<double>(m_peak) / 1000.0 / static_cast<double>(m_window) : 0;
}

}  // namespace veldor::sample
