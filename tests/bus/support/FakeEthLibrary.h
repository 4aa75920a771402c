// Recording doubles of the Ethernet bus access library (24 operations) and
// of the replay pre-processing library (6 operations), on the doubles of
// FakeLibrary.h: one log shows how their calls interleave.
//
//     nxtest::ScopedFakeEthLibrary bus;        // both doubles, both bindings
//     bus.Eth().AddChannel({"Norvex", "veth", "SN1", "eth1"});
//     bus.Stage().SetResult("NxDRPP_InsertFrames", NXDRPP_BUFFER_FULL);
//
// The Ethernet double makes replay records by the rule both open libraries
// keep: a 56-byte head, the frame from byte 48, the size rounded up to 8.
// The pre-processing double passes records through unchanged, once it holds
// as many as the fill level the stage was made with, or the closing record.
#ifndef NXTEST_FAKE_ETH_LIBRARY_H
#define NXTEST_FAKE_ETH_LIBRARY_H

#include "FakeLibrary.h"
#include "NxDrPreApi.h"
#include "NxEthApi.h"

namespace nxtest {

// A record of a replay stream; payload: the frame, from byte 48.
using EthRecord = StreamedRecord<NXSEthReplayData>;
std::vector<EthRecord> SplitRecords(const std::vector<std::uint8_t>& stream);

class FakeEthLibrary : public FakeBusLibrary {
public:
    static FakeEthLibrary& Instance();
    void Reset();

    // The block that the next reads return.
    void SetReadBlock(std::vector<std::uint8_t> block) { Locked(m_readBlock, std::move(block)); }

private:
    FakeEthLibrary() : FakeBusLibrary(1000000000) {}
    struct Ops;

    std::vector<std::uint8_t> m_readBlock;
};

class FakeDrPreLibrary : public FakeLibrary {
public:
    static FakeDrPreLibrary& Instance();
    void Reset();

    // NxDRPP_GetFrames throws, as a library written in C++ may.
    void SetGetFramesThrows(bool throws) { Locked(m_throws, throws); }
    // Records held by the stages.
    std::size_t Held() const { return Copy(m_held).size(); }

private:
    struct Ops;

    std::deque<std::vector<std::uint8_t>> m_held;
    std::uint64_t m_minFillLevel = 0;
    bool m_closed = false;
    bool m_throws = false;
    std::uintptr_t m_nextHandle = 0x1000;
};

// Installs both doubles, reset, for its lifetime: the Ethernet library at
// its fixed path, the pre-processing library beside the package.
class ScopedFakeEthLibrary {
public:
    ScopedFakeEthLibrary();

    FakeEthLibrary& Eth() { return FakeEthLibrary::Instance(); }
    FakeDrPreLibrary& Stage() { return FakeDrPreLibrary::Instance(); }
    FakeLibraryObject& EthObject() { return m_eth.Object(); }
    FakeLibraryObject& StageObject() { return m_stage.Object(); }

private:
    ScopedFakeLibrary m_eth;
    ScopedFakeLibrary m_stage;
};

}  // namespace nxtest

#endif
