// The PCAP stream record: how Ethernet traffic moves through a diagram.
//
// An element of type VELDpcap_data_t (type value 0x40000, name
// "VELDpcap_data_t") holds one or more captured packets, back to back in a
// byte buffer: each a 24-byte VELDpcap_packet_header_t (pcap_packet_header.h),
// then `caplen` bytes of the frame. The 49-byte record is all the FIFO slot holds; the packets
// live in a Buffer of that slot, made once by VELDpcap_component::Birth and
// kept from one use of the slot to the next, so that after warm-up a writer
// neither allocates nor frees.
//
// Writing: a pcap_data_writer takes a slot of the output (StartWriting),
// appends packets, and publishes the element when it goes out of scope.
// Reading: a pcap_data_reader walks the packets of a record by header sizes
// and `caplen`, and stops with the owner's FatalError at a record whose sizes
// do not add up.
//
// The pointers in the record are process-local: an element means nothing
// outside the process that wrote it.
#ifndef VELD_PCAP_DATA_H
#define VELD_PCAP_DATA_H

#include <sys/time.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <vector>

#include "pcap_packet_header.h"
#include "veld.h"
#include "veld_component.h"
#include "veld_io_elt.h"
#include "veld_io_monitor.h"
#include "veld_object_types.h"
#include "veld_output.h"
#include "veld_private.h"
#include "veld_string.h"

#pragma pack(push, 1)
struct VELDpcap_data_t {
    uint8_t version;              // the writer sets 1
    int32_t link_type;            // 1: Ethernet
    uint16_t nb_packets;
    uint64_t* packet_offsets;     // per packet, the offset of its header in data; null without packets
    uint16_t packet_header_size;  // the writer sets 24
    uint64_t data_size;           // bytes in use in data
    uint8_t* data;
    uint64_t reserved;   // the writer's: the address of the slot's Buffer
    uint64_t reserved2;  // the writer's: the address of the slot's vector of offsets
};
#pragma pack(pop)

static_assert(sizeof(VELDpcap_data_t) == 49, "VELDpcap_data_t is a 49-byte format");
static_assert(offsetof(VELDpcap_data_t, version) == 0, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, link_type) == 1, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, nb_packets) == 5, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, packet_offsets) == 7, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, packet_header_size) == 15, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, data_size) == 17, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, data) == 25, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, reserved) == 33, "VELDpcap_data_t layout");
static_assert(offsetof(VELDpcap_data_t, reserved2) == 41, "VELDpcap_data_t layout");
static_assert(sizeof(void*) == 8, "the record holds native pointers of 8 bytes");

// The in-memory form of a packet header handed to readers.
struct pkthdr {
    timeval ts;
    uint32_t caplen;
    uint32_t len;
};

typedef std::vector<uint64_t> vec_u64;
typedef std::vector<vec_u64> vec_vec_u64;

// The type of the record on an output, and the filter of an input that takes it.
const VELDTypeInfoValue VELDpcapTypeValue = VELD::DynamicStructure;
const char* const VELDpcapTypeName = "VELDpcap_data_t";
const uint8_t VELDpcapVersion = 1;
const int32_t VELDpcapLinkTypeEthernet = 1;
inline const VELDTypeFilterBase VELDFilterPCAPStructure(0xFFFFFFFF, VELDpcapTypeValue, 0xFFFFFFFF, VELDpcapTypeName);

// A growable byte buffer, one per FIFO slot. It grows in powers of two and
// never shrinks; Reset keeps the memory.
class Buffer {
public:
    explicit Buffer(size_t size) : m_data(nullptr), m_allocated_size(0), m_size(0)
    {
        if (size == 0) return;
        m_data = static_cast<uint8_t*>(std::malloc(size));
        if (!m_data) {
            VELD::ReportError("Unable to allocate the component's PCAP output data buffer.", 0);
            throw std::bad_alloc();
        }
        m_allocated_size = size;
    }
    ~Buffer() { std::free(m_data); }
    Buffer(const Buffer&) = delete;
    Buffer& operator=(const Buffer&) = delete;

    void Reset() { m_size = 0; }

    // 0 for 0, else the smallest power of two not below n.
    static size_t SizeToAllocate(size_t n)
    {
        if (n == 0) return 0;
        if (n > (SIZE_MAX >> 1) + 1) return n;  // no power of two above: the allocation will tell
        size_t size = 1;
        while (size < n) size <<= 1;
        return size;
    }

    void Reserve(size_t n)
    {
        if (n <= m_allocated_size) return;
        const size_t size = SizeToAllocate(n);
        uint8_t* moved = static_cast<uint8_t*>(std::realloc(m_data, size));
        if (!moved) {
            VELD::ReportError("Unable to reallocate the component's PCAP output data buffer", 0);
            throw std::bad_alloc();
        }
        m_data = moved;
        m_allocated_size = size;
    }

    // `by` more bytes in use; the address of the added room, valid until the
    // buffer grows again.
    uint8_t* IncreaseSize(size_t by)
    {
        if (by > SIZE_MAX - m_size) {
            VELD::ReportError("Unable to reallocate the component's PCAP output data buffer", 0);
            throw std::bad_alloc();
        }
        const size_t old = m_size;
        Reserve(old + by);
        m_size = old + by;
        return m_data + old;
    }

    // Copies the bytes in; the offset at which they went.
    size_t Append(const void* bytes, size_t n)
    {
        const size_t offset = m_size;
        uint8_t* room = IncreaseSize(n);
        if (n) std::memcpy(room, bytes, n);
        return offset;
    }

    uint8_t* GetData() const { return m_data; }
    size_t GetSize() const { return m_size; }
    size_t GetAllocatedSize() const { return m_allocated_size; }

private:
    uint8_t* m_data;
    size_t m_allocated_size;
    size_t m_size;
};

// What a reader needs of its owner: a way to stop on inconsistent data.
class VELDpcap_class {
public:
    virtual void FatalError(const char* text) = 0;

protected:
    ~VELDpcap_class() = default;
};

// The base of a component that writes PCAP stream elements: it gives every
// slot of its output a Buffer and a vector of offsets at Birth, and frees
// them with the output's buffers.
class VELDpcap_component : public virtual VELDComponent, public VELDpcap_class {
public:
    // A derived model constructs the virtual base VELDComponent itself; this
    // initialiser counts only where VELDpcap_component is the model.
    VELDpcap_component(const char* name, VELDComponentDefinition& definition) : VELDComponent(name, definition) {}
    ~VELDpcap_component() override { DeleteBuffers(); }

    // The module's Error: reports and throws VELD::ErrorException.
    void FatalError(const char* text) override { Error(text, 1, ErrorGeneric); }
    void FreeBuffers() override
    {
        DeleteBuffers();
        VELDComponent::FreeBuffers();
    }

    // Prepares every element of `output` (the producing component calls it
    // from its own Birth, after the output's buffer is allocated): an empty
    // record with a Buffer of 131072 bytes and a vector of offsets of its own.
    void Birth(VELDOutput& output)
    {
        DeleteBuffers();
        try {
            PrepareOutput(*this, output, m_data_buffers, m_packet_offsets_vec);
        } catch (...) {
            DeleteBuffers();
            throw;
        }
    }

    // The same for a component with several PCAP outputs, each with a
    // container of offset vectors of its own (`offsets` is sized here, and
    // the slots point into it: it must not move while the output is used).
    // The Buffers made are added to `buffers`, whose owner frees them.
    static void PrepareOutput(VELDpcap_class& owner, VELDOutput& output, std::vector<Buffer*>& buffers,
                              vec_vec_u64& offsets)
    {
        VELDIOMonitor* monitor = output.Monitor();
        if (!monitor) return;
        size_t slots = static_cast<size_t>(output.NbFreeSlotsInFIFO() > 0 ? output.NbFreeSlotsInFIFO() : 0);
        size_t walked = 0;
        for (VELDListIterator it = monitor->InitBegin(); it.ptr; monitor->InitNext(it)) ++walked;
        if (walked > slots) slots = walked;
        offsets.assign(slots, vec_u64());
        size_t i = 0;
        for (VELDListIterator it = monitor->InitBegin(); it.ptr; monitor->InitNext(it), ++i) {
            VELDIOElt& element = (*monitor)[it];
            VELDpcap_data_t* record = static_cast<VELDpcap_data_t*>(element.Data());
            if (!record) {
                owner.FatalError("The PCAP output's elements have no room for their record: allocate the output's "
                                 "buffer before preparing it.");
                return;
            }
            offsets[i].reserve(kInitialPackets);
            record->version = VELDpcapVersion;
            record->nb_packets = 0;
            record->packet_offsets = nullptr;
            record->reserved2 = reinterpret_cast<uint64_t>(&offsets[i]);
            record->packet_header_size = sizeof(VELDpcap_packet_header_t);
            record->data_size = 0;
            std::unique_ptr<Buffer> buffer(new Buffer(kInitialBufferSize));
            buffers.push_back(buffer.get());
            record->data = buffer->GetData();
            record->reserved = reinterpret_cast<uint64_t>(buffer.release());
        }
    }

    using VELDComponent::Birth;

    static const size_t kInitialBufferSize = 0x20000;
    static const size_t kInitialPackets = 256;

protected:
    std::vector<Buffer*> m_data_buffers;
    vec_vec_u64 m_packet_offsets_vec;

private:
    void DeleteBuffers()
    {
        for (Buffer* buffer : m_data_buffers) delete buffer;
        m_data_buffers.clear();
        m_packet_offsets_vec.clear();
    }
};

// Fills one element: packets are appended to the slot's Buffer, and the
// record is completed (data, size, offsets) at the end, when the buffer no
// longer moves. Made on an output, it takes the slot and publishes the
// element at the end (or gives it back unseen after discard).
class pcap_data_writer {
public:
    pcap_data_writer(VELDpcap_component* component, VELDOutput& output, int32_t link_type, VELDTimestamp timestamp)
        : m_user_component(component), m_pcap_data(nullptr), m_buffer(nullptr), m_packet_offsets_vec(nullptr),
          m_ioelt_out(nullptr), m_discard(false)
    {
        Init(component->StartWriting(output), link_type, timestamp);
    }
    // On an element of the caller's: nothing is published at the end.
    pcap_data_writer(VELDIOElt* element, int32_t link_type, VELDTimestamp timestamp)
        : m_user_component(nullptr), m_pcap_data(nullptr), m_buffer(nullptr), m_packet_offsets_vec(nullptr),
          m_ioelt_out(nullptr), m_discard(false)
    {
        Init(element, link_type, timestamp);
    }
    // Publishes; while an exception passes, whatever publishing throws is
    // dropped so that the first one goes on.
    ~pcap_data_writer() noexcept(false)
    {
        if (std::uncaught_exceptions() == 0) {
            DeInit();
            return;
        }
        try {
            DeInit();
        } catch (...) {
        }
    }
    pcap_data_writer(const pcap_data_writer&) = delete;
    pcap_data_writer& operator=(const pcap_data_writer&) = delete;

    void Init(VELDIOElt* element, int32_t link_type, VELDTimestamp timestamp)
    {
        m_ioelt_out = element;
        if (!element) VELDPrivate::KernelError("pcap_data_writer: no element to write.", 1);
        element->Timestamp() = timestamp;
        element->VectorSize() = sizeof(VELDpcap_data_t);
        m_pcap_data = static_cast<VELDpcap_data_t*>(element->Data());
        if (!m_pcap_data || !m_pcap_data->reserved || !m_pcap_data->reserved2)
            VELDPrivate::KernelError("pcap_data_writer: the element was not prepared for PCAP data "
                                     "(VELDpcap_component::Birth prepares an output's elements).",
                                     1);
        m_pcap_data->link_type = link_type;
        m_buffer = reinterpret_cast<Buffer*>(m_pcap_data->reserved);
        m_packet_offsets_vec = reinterpret_cast<vec_u64*>(m_pcap_data->reserved2);
        m_buffer->Reset();
        m_packet_offsets_vec->clear();
        m_pcap_data->nb_packets = 0;
    }

    // Completes the record and, for a writer on an output, publishes the
    // element (or discards it). Once only.
    void DeInit()
    {
        if (!m_ioelt_out || !m_pcap_data) return;
        m_pcap_data->packet_offsets = m_packet_offsets_vec->empty() ? nullptr : m_packet_offsets_vec->data();
        m_pcap_data->data = m_buffer->GetData();
        m_pcap_data->data_size = m_buffer->GetSize();
        VELDIOElt* element = m_ioelt_out;
        m_ioelt_out = nullptr;
        if (m_user_component) const_cast<VELDpcap_component*>(m_user_component)->StopWriting(element, m_discard);
    }

    void discard() { m_discard = true; }
    void cancel_discard() { m_discard = false; }
    void SetTimestamp(VELDTimestamp timestamp)
    {
        if (m_ioelt_out) m_ioelt_out->Timestamp() = timestamp;
    }
    uint16_t GetNbPackets() const { return m_pcap_data->nb_packets; }

    // Appends a packet: its header, then `caplen` bytes from `data`. False,
    // and nothing appended, when the element holds 65535 packets already.
    bool set_next_packet(const VELDpcap_packet_header_t& header, const uint8_t* data)
    {
        uint8_t* room = reserve_next_packet(header);
        if (!room) return false;
        if (header.caplen) std::memcpy(room, data, header.caplen);
        return true;
    }
    bool set_next_packet(const pkthdr& header, const uint8_t* data)
    {
        return set_next_packet(HeaderOf(header), data);
    }
    // Appends the header and room for `caplen` bytes, which the caller fills
    // through the address returned (valid until the next append); null when
    // the element is full.
    uint8_t* reserve_next_packet(const VELDpcap_packet_header_t& header)
    {
        if (m_pcap_data->nb_packets == UINT16_MAX) return nullptr;
        // One step for header and payload: the buffer grows at most once.
        const size_t offset = m_buffer->GetSize();
        uint8_t* room = m_buffer->IncreaseSize(sizeof header + header.caplen);
        std::memcpy(room, &header, sizeof header);
        m_packet_offsets_vec->push_back(offset);
        m_pcap_data->nb_packets = static_cast<uint16_t>(m_pcap_data->nb_packets + 1);
        return room + sizeof header;
    }
    uint8_t* set_next_header(const pkthdr& header) { return reserve_next_packet(HeaderOf(header)); }

    static VELDpcap_packet_header_t HeaderOf(const pkthdr& header)
    {
        VELDpcap_packet_header_t packed;
        packed.caplen = header.caplen;
        packed.len = header.len;
        packed.ts_seconds = static_cast<uint64_t>(header.ts.tv_sec);
        packed.ts_microseconds = static_cast<uint64_t>(header.ts.tv_usec);
        return packed;
    }

private:
    const VELDpcap_component* m_user_component;
    VELDpcap_data_t* m_pcap_data;
    Buffer* m_buffer;
    vec_u64* m_packet_offsets_vec;
    VELDIOElt* m_ioelt_out;
    bool m_discard;
};

// Walks the packets of a record, from the first, by header sizes and
// `caplen`; packet_offsets is kept only for seek.
class pcap_data_reader {
public:
    pcap_data_reader(VELDpcap_class* user, const VELDpcap_data_t* pcap_data)
        : m_user_class(user), m_pcap_data(pcap_data), m_current_data_position(nullptr), m_current_packet_idx(0),
          m_data_end(nullptr), m_packet_offsets(nullptr)
    {
        const uint16_t packets = pcap_data ? pcap_data->nb_packets : 0;
        const uint64_t size = pcap_data && pcap_data->data ? pcap_data->data_size : 0;
        if (pcap_data) {
            m_current_data_position = pcap_data->data;
            m_data_end = m_current_data_position + size;
            m_packet_offsets = pcap_data->packet_offsets;
        }
        log << "reading [" << packets << "] packets  for a total size of [" << size << "] bytes... ";
    }
    ~pcap_data_reader() { log << "Done. Current packet index [" << m_current_packet_idx << "] "; }
    pcap_data_reader(const pcap_data_reader&) = delete;
    pcap_data_reader& operator=(const pcap_data_reader&) = delete;

    void skip_packet_header() { m_current_data_position += m_pcap_data->packet_header_size; }

    // Moves to packet `index` by its offset: 0, or 1 when there is no such
    // packet (the position stays).
    int seek(uint8_t index)
    {
        if (!m_pcap_data || !m_packet_offsets || index >= m_pcap_data->nb_packets) return 1;
        const uint64_t offset = m_packet_offsets[index];
        if (offset >= static_cast<uint64_t>(m_data_end - m_pcap_data->data)) return 1;
        m_current_data_position = m_pcap_data->data + offset;
        m_current_packet_idx = index;
        return 0;
    }

    // The next packet: 0 with one, 1 at the end. Data whose sizes do not add
    // up goes to the owner's FatalError (which throws); should it return,
    // the result is 2.
    int get_next_packet(pkthdr& header, const uint8_t*& data, const VELDpcap_packet_header_t*& packet_header)
    {
        if (!m_pcap_data || m_current_data_position >= m_data_end ||
            m_current_packet_idx >= m_pcap_data->nb_packets) {
            Clear(header, data, packet_header);
            return 1;
        }
        // Room for the header as the record sizes it, and for the 24 bytes
        // read from it whatever the record says.
        const size_t left = static_cast<size_t>(m_data_end - m_current_data_position);
        if (left < m_pcap_data->packet_header_size || left < sizeof(VELDpcap_packet_header_t)) {
            Clear(header, data, packet_header);
            return Fail(kNoRoomForHeader);
        }
        packet_header = reinterpret_cast<const VELDpcap_packet_header_t*>(m_current_data_position);
        VELDpcap_packet_header_t copy;
        std::memcpy(&copy, m_current_data_position, sizeof copy);
        header.caplen = copy.caplen;
        header.len = copy.len;
        header.ts.tv_sec = static_cast<time_t>(copy.ts_seconds);
        header.ts.tv_usec = static_cast<suseconds_t>(copy.ts_microseconds);
        skip_packet_header();
        if (static_cast<size_t>(m_data_end - m_current_data_position) < header.caplen) {
            Clear(header, data, packet_header);
            return Fail(kNoRoomForData);
        }
        data = m_current_data_position;
        m_current_data_position += header.caplen;
        ++m_current_packet_idx;
        return 0;
    }

    static constexpr const char* kNoRoomForHeader =
        "Unable to read next PCAP packet in input data. \nData state is inconsistent: a PCAP packet is supposed to "
        "exist but there is not enough space for even the packet header. \nThe component developer should check "
        "that the pcap_data data access objects are used correctly and contact Quelmar S.A.S if the problem "
        "persists.";
    static constexpr const char* kNoRoomForData =
        "Unable to read next PCAP packet in input data. \nData state is inconsistent: a PCAP packet is supposed to "
        "exist but there is not enough space for packet data. \nThe component developer should check that the "
        "pcap_data data access objects are used correctly and contact Quelmar S.A.S if the problem persists.";

private:
    static void Clear(pkthdr& header, const uint8_t*& data, const VELDpcap_packet_header_t*& packet_header)
    {
        std::memset(&header, 0, sizeof header);
        data = nullptr;
        packet_header = nullptr;
    }
    int Fail(const char* text)
    {
        if (m_user_class) const_cast<VELDpcap_class*>(m_user_class)->FatalError(text);
        return 2;
    }

    const VELDpcap_class* m_user_class;
    const VELDpcap_data_t* m_pcap_data;
    uint8_t* m_current_data_position;
    uint16_t m_current_packet_idx;
    const uint8_t* m_data_end;
    uint64_t* m_packet_offsets;

public:
    // The reader's progress, kept in memory only.
    VELDStreamedString log;
};

#endif
