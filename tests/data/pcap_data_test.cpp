// The PCAP stream record through a real output and input: what a writer
// leaves in the record and a reader gets back, a slot's buffer that grows,
// records whose sizes do not add up, discarding; and every refusal of the
// typed input access.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include "pcap_data.h"
#include "runtime_support.h"
#include "veld_io_access.h"
#include "veld_io_elt_impl.h"

// A record type that names a type no access class knows.
struct CustomRecord {
    int value;
};
template <>
struct VELD::TypeInfoValueOf<CustomRecord> {
    static const VELDTypeInfoValue* Pointer()
    {
        static const VELDTypeInfoValue kValue = VELD::CustomType;
        return &kValue;
    }
};

namespace {

class PcapProbe : public VELDpcap_component {
public:
    PcapProbe(const char* name, VELDComponentDefinition& definition)
        : VELDComponent(name, definition), VELDpcap_component(name, definition)
    {
    }
    void Core() override { Wait4Event(m_dieEvent, VELD::Infinite); }
};

VELDpcap_packet_header_t Header(uint32_t caplen, VELDTimestamp t)
{
    return VELDpcap_packet_header_t{caplen, caplen + 4, static_cast<uint64_t>(t / 1000000),
                                    static_cast<uint64_t>(t % 1000000)};
}

// The fields of the packed record are read by value: a reference to one
// would be misaligned.
const void* Address(const void* pointer) { return pointer; }

std::vector<uint8_t> Bytes(size_t n, uint8_t seed)
{
    std::vector<uint8_t> bytes(n);
    for (size_t i = 0; i < n; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7);
    return bytes;
}

class PcapData : public ::testing::Test {
protected:
    PcapData() : engine(Quiet())
    {
        ModelTables& source = engine.NewTables();
        source.outputs.push_back(VELDOutputDefinition{"oEth", 0, VELDTypeInfo(VELDpcapTypeValue, VELDpcapTypeName, nullptr),
                                                      49, 4, 1, 1});
        source.Finish(0, 1, 0, 0);
        ModelTables& sink = engine.NewTables();
        sink.inputs.push_back(VELDInputDefinition{"iEth", 0, &VELDFilterPCAPStructure, VELD::FifoReader, 1});
        sink.Finish(1, 0, 0, 0);
        writer = &engine.Make<PcapProbe>("writer", source);
        reader = &engine.Make<PcapProbe>("reader", sink);
        output = &writer->Output("oEth");
        input = &reader->Input("iEth");
        EXPECT_TRUE(VELD::Attach(*output, *input));
        writer->VELDpcap_component::Birth(*output);
    }

    // The packets of the next element, through the guard and the reader.
    std::vector<std::vector<uint8_t>> ReadAll(std::vector<VELDpcap_packet_header_t>* headers = nullptr)
    {
        VELD::InputGuard<VELDpcap_data_t> guard(reader, *input, true);
        EXPECT_TRUE(guard.IsValid());
        pcap_data_reader walk(reader, guard.DataPointer(0));
        std::vector<std::vector<uint8_t>> packets;
        pkthdr h;
        const uint8_t* data;
        const VELDpcap_packet_header_t* header;
        while (walk.get_next_packet(h, data, header) == 0) {
            VELDpcap_packet_header_t stored;
            std::memcpy(&stored, header, sizeof stored);
            EXPECT_EQ(h.caplen, stored.caplen);
            EXPECT_EQ(static_cast<uint64_t>(h.ts.tv_usec), stored.ts_microseconds);
            EXPECT_EQ(data, reinterpret_cast<const uint8_t*>(header) + sizeof stored);
            if (headers) headers->push_back(stored);
            packets.emplace_back(data, data + h.caplen);
        }
        EXPECT_EQ(data, nullptr);
        EXPECT_EQ(h.caplen, 0u);
        return packets;
    }

    // The last error starts with `place` and holds `text`.
    void ExpectLastError(const std::string& place, const std::string& text)
    {
        const std::string error = engine.GetConsole().LastError();
        EXPECT_EQ(error.rfind(place, 0), 0u) << error;
        EXPECT_NE(error.find(text), std::string::npos) << error;
    }

    TestEngine engine;
    PcapProbe* writer;
    PcapProbe* reader;
    VELDOutput* output;
    VELDInput* input;
};

TEST_F(PcapData, WhatIsWrittenIsReadBackPacketByPacket)
{
    struct Case {
        std::vector<size_t> sizes;
    };
    // No packet; ordinary frames; a packet that makes the slot's buffer grow.
    const Case cases[] = {{{}}, {{60, 1514, 0, 61}}, {{1000, 200000, 64}}};
    VELDTimestamp t = 1700000000123456;
    for (const Case& c : cases) {
        std::vector<std::vector<uint8_t>> sent;
        {
            pcap_data_writer w(writer, *output, VELDpcapLinkTypeEthernet, t);
            for (size_t size : c.sizes) {
                sent.push_back(Bytes(size, static_cast<uint8_t>(size)));
                ASSERT_TRUE(w.set_next_packet(Header(static_cast<uint32_t>(size), t + size), sent.back().data()));
            }
            EXPECT_EQ(w.GetNbPackets(), c.sizes.size());
        }
        std::vector<VELDpcap_packet_header_t> headers;
        EXPECT_EQ(ReadAll(&headers), sent);
        for (size_t i = 0; i < headers.size(); ++i) {
            EXPECT_EQ(headers[i].len, c.sizes[i] + 4);
            EXPECT_EQ(headers[i].ts_seconds * 1000000 + headers[i].ts_microseconds,
                      static_cast<uint64_t>(t + c.sizes[i]));
        }
        t += 1000;
    }
}

TEST_F(PcapData, TheRecordOfAnElementTellsItsPacketsAndItsNewBufferOnlyAtTheEnd)
{
    VELDIOElt* element = writer->StartWriting(*output);
    const VELDpcap_data_t& record = *static_cast<const VELDpcap_data_t*>(element->Data());
    EXPECT_EQ(+record.version, 1);
    EXPECT_EQ(+record.packet_header_size, 24);
    const void* before = record.data;
    {
        pcap_data_writer w(element, VELDpcapLinkTypeEthernet, 5);
        w.DeInit();  // an empty element
        EXPECT_EQ(std::make_tuple(Address(record.packet_offsets), +record.data_size, +record.nb_packets,
                                  +record.link_type),
                  std::make_tuple(nullptr, std::uint64_t(0), 0, 1));
        w.Init(element, VELDpcapLinkTypeEthernet, 5);
        const std::vector<uint8_t> big = Bytes(VELDpcap_component::kInitialBufferSize, 1);
        w.set_next_packet(Header(10, 5), big.data());
        w.set_next_packet(Header(static_cast<uint32_t>(big.size()), 5), big.data());
        EXPECT_EQ(Address(record.data), before);  // the record is completed by DeInit
        w.DeInit();
        EXPECT_NE(Address(record.data), before);
        EXPECT_EQ(+record.data_size, 2 * 24 + 10 + big.size());
        ASSERT_NE(Address(record.packet_offsets), nullptr);
        EXPECT_EQ(record.packet_offsets[1], 24u + 10u);
        EXPECT_EQ(reinterpret_cast<Buffer*>(record.reserved)->GetAllocatedSize(), 262144u);
    }
    EXPECT_EQ(std::make_tuple(element->Timestamp(), element->VectorSize()), std::make_tuple(5, 49));
    writer->StopWriting(element);
    EXPECT_EQ(ReadAll().size(), 2u);
    EXPECT_EQ(std::make_tuple(Buffer::SizeToAllocate(0), Buffer::SizeToAllocate(1), Buffer::SizeToAllocate(131073)),
              std::make_tuple(0u, 1u, 262144u));
}

TEST_F(PcapData, ADiscardedElementIsNeverSeen)
{
    const std::vector<uint8_t> frame = Bytes(60, 3);
    for (bool discard : {true, false}) {
        pcap_data_writer w(writer, *output, VELDpcapLinkTypeEthernet, 0);
        w.set_next_packet(Header(60, 0), frame.data());
        w.discard();
        if (!discard) w.cancel_discard();
    }
    EXPECT_EQ(input->NbDataAvailableInFIFO(), 1);
    EXPECT_EQ(ReadAll().size(), 1u);
    EXPECT_FALSE(reader->DataAvailableInFIFO(*input));
}

TEST_F(PcapData, ARecordWhoseSizesDoNotAddUpStopsTheReaderWithTheRightText)
{
    const std::vector<uint8_t> payload = Bytes(100, 9);
    struct Case {
        uint64_t dataSize;  // of the two packets of 24 + 100 bytes each
        uint16_t nbPackets;
        size_t packetsRead;
        const char* text;  // null: the reader ends quietly
    };
    const Case cases[] = {
        {248, 2, 2, nullptr},
        {248, 1, 1, nullptr},  // nb_packets rules
        {124 + 20, 2, 1, pcap_data_reader::kNoRoomForHeader},
        {124 + 24, 2, 1, pcap_data_reader::kNoRoomForData},  // the header was read
        {124 + 24 + 99, 2, 1, pcap_data_reader::kNoRoomForData},
    };
    for (const Case& c : cases) {
        VELDIOElt* element = writer->StartWriting(*output);
        {
            pcap_data_writer w(element, VELDpcapLinkTypeEthernet, 0);
            w.set_next_packet(Header(100, 0), payload.data());
            w.set_next_packet(Header(100, 0), payload.data());
        }
        VELDpcap_data_t& record = *static_cast<VELDpcap_data_t*>(element->Data());
        record.data_size = c.dataSize;
        record.nb_packets = c.nbPackets;
        pcap_data_reader walk(reader, &record);
        pkthdr h;
        const uint8_t* data;
        const VELDpcap_packet_header_t* header;
        size_t read = 0;
        int thrown = 0;
        try {
            while (walk.get_next_packet(h, data, header) == 0) ++read;
        } catch (int e) {
            thrown = e;
            EXPECT_EQ(data, nullptr);
            EXPECT_EQ(header, nullptr);
        }
        EXPECT_EQ(read, c.packetsRead) << c.dataSize;
        EXPECT_EQ(thrown, c.text ? VELD::ErrorException : 0) << c.dataSize;
        if (c.text) {
            EXPECT_EQ(engine.GetConsole().LastError(), std::string("component reader: ") + c.text);
        }
        writer->StopWriting(element, true);
    }
}

TEST_F(PcapData, EveryRefusalOfTheTypedAccessTellsWhereAndWhy)
{
    alignas(8) unsigned char payload[64] = {};
    VELDIOEltImplementation elements[4];
    VELDIOEltImplementation &pcap = elements[0], &integers = elements[1], &custom = elements[2], &empty = elements[3];
    const std::tuple<VELDTypeInfoValue, void*, int> made[] = {
        {VELDpcapTypeValue, payload, 49}, {VELD::Integer32, payload, 4}, {VELD::CustomType, payload, 1},
        {VELD::Structure, nullptr, 49}};
    for (int i = 0; i < 4; ++i) std::tie(elements[i].type.value, elements[i].data, elements[i].bufferSize) = made[i];
    struct Case {
        std::function<void()> access;
        int line;
        std::string text;
    };
    const Case cases[] = {
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(nullptr, 0, true); }, 227, "[ioElt == NULL]"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(&pcap, 0x80000000ul, false); }, 232,
         "[elementIndex:2147483648] > [INT_MAX:2147483647]"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(&pcap, -1l, false); }, 240, "[elementIndex:-1] < 0"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(&empty, 0, false); }, 249,
         "Assertion Failed: typedElementPtr != NULL"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(&integers, 0, true); }, 257,
         "[ElementType != ioElt.Type] The requested ElementType is different from actual data type of the I/O element"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(&custom, 0, true); }, 257, "[ElementType != ioElt.Type]"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>((pcap.bufferSize = 48, &pcap), 0, true); }, 276,
         "[bufferElementCapacity:0] == [bufferSize:48] / [sizeOfElement:49]\n    This might happen if:\n    * The "
         "structure used in the upstream component is different from the one that is used in the downstream "
         "component (event if they both appear to have the same name)\n    * And/or the upstream component has not "
         "set the buffer size to be equal to [sizeof(structure) * elementCount]"},
        {[&] { VELD::GetIOElementPointer<CustomRecord>(&custom, 0, true); }, 294, "I/O type not supported"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>(&empty, 0, true); }, 299,
         "Assertion Failed: typedElementPtr != NULL"},
        {[&] { VELD::GetIOElementPointer<VELDpcap_data_t>((pcap.bufferSize = 98, &pcap), 2, true); }, 304,
         "Element index is out of bounds. [elementIndex:2] >= [bufferElementCapacity:2]"},
    };
    for (const Case& c : cases) {
        EXPECT_THROW(c.access(), int) << c.line;
        ExpectLastError("veld_io_access:" + std::to_string(c.line) + " ", ": " + c.text);
        ExpectLastError("", "GetIOElementPointer");
    }
    // What passes: any structure for a record without a type value, and a
    // type's own record by its value.
    pcap.bufferSize = 98;
    EXPECT_EQ(VELD::GetIOElementPointer<VELDpcap_data_t>(&pcap, 1, true),
              reinterpret_cast<VELDpcap_data_t*>(payload) + 1);
    EXPECT_EQ(VELD::GetInputElementPointer<VELDInt32>(&integers, 3, true), reinterpret_cast<VELDInt32*>(payload) + 3);
    EXPECT_THROW(VELD::GetIOElementPointer<VELDInt64>(&integers, 0, true), int);
}

TEST_F(PcapData, TheInputGuardRefusesAWrongElementTypeAndAMissingComponent)
{
    {
        pcap_data_writer w(writer, *output, VELDpcapLinkTypeEthernet, 0);
    }
    PcapProbe* none = nullptr;
    EXPECT_THROW(VELD::InputGuard<VELDpcap_data_t>(none, *input, true), int);
    ExpectLastError("veld_io_access.h:386 ", ": Assertion Failed: m_component != NULL");
    EXPECT_THROW(VELD::InputGuard<VELDInt32>(reader, *input, true), int);
    ExpectLastError("reader: veld_io_access:392 ", ": The ElementType of the InputGuard of [input_name:reader.iEth] "
                                                   "doesn't match the actual type of the input");
    // The guard that keeps its element leaves it to the next read.
    {
        pcap_data_writer w(writer, *output, VELDpcapLinkTypeEthernet, 7);
    }
    {
        VELD::InputGuard<VELDpcap_data_t> guard(reader, *input, false);
        ASSERT_TRUE(guard.IsValid());
        EXPECT_EQ(guard.Timestamp(), 7);
        EXPECT_EQ(+guard.Data(0).nb_packets, 0);
    }
    reader->StopReading(*input);
}

}  // namespace
