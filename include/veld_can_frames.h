// The CAN frame records that travel through FIFOs: classic CAN, CAN FD and
// the universal record that can hold either. Their layouts are a format that
// components of other packages read by offset, so every field, gap included,
// is fixed and checked below. The records have no base class and no virtual
// operations; they are copied bytewise.
#ifndef VELD_CAN_FRAMES_H
#define VELD_CAN_FRAMES_H

#include <cstddef>
#include <cstring>
#include <type_traits>

#include "veld_types.h"

// Classic CAN. The extended marker lives in the identifier word (bit 29); the
// identifier setters do not mask, so a caller that passes more than 29 bits
// sets the marker or the bits above it.
// The constants and operations that the classic and the FD record share,
// written into each of them: the records have no base class, and each keeps
// its own copy of the constants. GetDataLength reads the signed field as it
// stands, so a negative length stays negative in the size_t.
#define VELD_CAN_ARBITRATION_FRAME_OPERATIONS                                                            \
    static constexpr VELDUInt32 ExtendedId = 0x20000000;                                                 \
    static constexpr VELDUInt32 AddressMask = 0x1FFFFFFF;                                                \
    VELDUInt32 GetId() const { return arbitrationId & AddressMask; }                                     \
    void SetStandardId(VELDUInt32 id) { arbitrationId = id; }                                            \
    void SetExtendedId(VELDUInt32 id) { arbitrationId = id | ExtendedId; }                               \
    bool HasStandardId() const { return (arbitrationId & ExtendedId) == 0; }                             \
    bool HasExtendedId() const { return (arbitrationId & ExtendedId) != 0; }                             \
    std::size_t GetDataLength() const { return static_cast<std::size_t>(dataLength); }                   \
    void SetDataLength(std::size_t n) { dataLength = static_cast<VELDInt8>(static_cast<VELDUInt8>(n & 0xFF)); } \
    VELDTimestamp GetTimestamp() const { return ts; }                                                    \
    void SetTimestamp(VELDTimestamp t) { ts = t; }

struct VELDCANFrame {
    VELDUInt32 arbitrationId;
    bool isRemote;
    VELDInt8 dataLength;  // bytes in use, not a DLC code
    VELDUInt8 data[8];
    VELDTimestamp ts;

    VELD_CAN_ARBITRATION_FRAME_OPERATIONS
};

// CAN FD: the same operations, 64 bytes of payload and no remote flag.
struct VELDCANFDFrame {
    VELDUInt32 arbitrationId;
    VELDInt8 dataLength;  // bytes in use, not a DLC code
    VELDUInt8 data[64];
    VELDTimestamp ts;

    VELD_CAN_ARBITRATION_FRAME_OPERATIONS
};

#undef VELD_CAN_ARBITRATION_FRAME_OPERATIONS

// The universal record. Its attributes are flags with three states: unknown
// (hasFlags bit clear), false (hasFlags bit set, flags bit clear) and true
// (both set). A producer can thus say "not FD" as distinct from "nothing
// known". The identifier is kept plain in `id`, its kind in Flag_ExtendedId.
//
// The four bytes of `misc`, counted from the low end: 0 structure version,
// 1 data length, 2 channel id, 3 frame type.
struct VELDCANUniFrame {
    enum Flag {
        Flag_FD = 0,
        Flag_RX = 1,
        Flag_TX = 2,
        Flag_ExtendedId = 3,
        Flag_Remote = 4,
        Flag_SRR = 5,
        Flag_EDL = 6,
        Flag_BRS = 7,
        Flag_CRC = 8,
        Flag_ChannelId = 9
    };
    enum Type { Type_Data = 0, Type_Remote = 1, Type_Error = 2, Type_Overload = 3 };

    enum MiscByte { MiscStructVersion = 0, MiscDataLength = 1, MiscChannelId = 2, MiscFrameType = 3 };

    VELDUInt32 misc;
    VELDUInt32 id;
    VELDTimestamp ts;
    VELDUInt8 data[64];
    VELDUInt32 flags;
    VELDUInt32 hasFlags;
    VELDUInt32 crc;
    VELDUInt32 reserved;

    VELDCANUniFrame() { Reset(); }
    VELDCANUniFrame(const VELDCANUniFrame&) = default;
    VELDCANUniFrame& operator=(const VELDCANUniFrame&) = default;

    // --- bit and byte primitives ----------------------------------------------
    template <int F, class T>
    static bool getBit(const T& word)
    {
        return (word >> F) & T(1);
    }
    template <int F, class T>
    static void setBit(T& word)
    {
        word = static_cast<T>(word | (T(1) << F));
    }
    template <int F, class T>
    static void clearBit(T& word)
    {
        word = static_cast<T>(word & ~(T(1) << F));
    }
    template <int N, class T>
    static VELDUInt8 getByte(const T& word)
    {
        static_assert(N >= 0 && N < static_cast<int>(sizeof(T)), "byte outside the word");
        return static_cast<VELDUInt8>((word >> (8 * N)) & T(0xFF));
    }
    template <int N, class T>
    static void setByte(T& word, VELDUInt8 value)
    {
        static_assert(N >= 0 && N < static_cast<int>(sizeof(T)), "byte outside the word");
        word = static_cast<T>((word & ~(T(0xFF) << (8 * N))) | (T(value) << (8 * N)));
    }

    // --- flags ------------------------------------------------------------------
    template <Flag F>
    bool HasFlag() const
    {
        return getBit<F>(hasFlags);
    }
    // The value bit alone, whatever hasFlags says.
    template <Flag F>
    bool GetFlag() const
    {
        return getBit<F>(flags);
    }
    // Stores the value and marks it valid, for false as for true.
    template <Flag F>
    void SetFlag(bool value)
    {
        if (value)
            setBit<F>(flags);
        else
            clearBit<F>(flags);
        setBit<F>(hasFlags);
    }
    bool IsFD() const { return HasFlag<Flag_FD>() && GetFlag<Flag_FD>(); }
    void SetFD(bool value) { SetFlag<Flag_FD>(value); }

    // --- identifier ---------------------------------------------------------------
    static VELDUInt32 GetStandardIdMask() { return 0x7FF; }
    static VELDUInt32 GetExtendedIdMask() { return 0x1FFFFFFF; }
    VELDUInt32 GetId() const { return id & (HasExtendedId() ? GetExtendedIdMask() : GetStandardIdMask()); }
    void SetStandardId(VELDUInt32 value)
    {
        id = value & GetStandardIdMask();
        SetFlag<Flag_ExtendedId>(false);
    }
    void SetExtendedId(VELDUInt32 value)
    {
        id = value & GetExtendedIdMask();
        SetFlag<Flag_ExtendedId>(true);
    }
    bool HasExtendedId() const { return HasFlag<Flag_ExtendedId>() && GetFlag<Flag_ExtendedId>(); }
    // Only a frame known to carry a standard identifier: an unknown kind is
    // neither standard nor extended.
    bool HasStandardId() const { return HasFlag<Flag_ExtendedId>() && !GetFlag<Flag_ExtendedId>(); }

    // --- the bytes of misc -----------------------------------------------------------
    std::size_t GetDataLength() const { return getByte<MiscDataLength>(misc); }
    void SetDataLength(std::size_t n) { setByte<MiscDataLength>(misc, static_cast<VELDUInt8>(n & 0xFF)); }
    VELDUInt8 GetStructVersion() const { return getByte<MiscStructVersion>(misc); }
    void SetStructVarsion(VELDUInt8 version) { setByte<MiscStructVersion>(misc, version); }
    bool HasChannelId() const { return HasFlag<Flag_ChannelId>(); }
    VELDUInt8 GetChannelId() const { return getByte<MiscChannelId>(misc); }
    void SetChannelId(VELDUInt8 channel)
    {
        setByte<MiscChannelId>(misc, channel);
        SetFlag<Flag_ChannelId>(true);
    }
    Type GetFrameType() const { return static_cast<Type>(getByte<MiscFrameType>(misc)); }
    void SetFrameType(Type type) { setByte<MiscFrameType>(misc, static_cast<VELDUInt8>(type)); }

    // --- the rest -----------------------------------------------------------------------
    VELDTimestamp GetTimestamp() const { return ts; }
    void SetTimestamp(VELDTimestamp t) { ts = t; }
    bool HasCRC() const { return HasFlag<Flag_CRC>(); }
    VELDUInt32 GetCRC() const { return crc; }
    void SetCRC(VELDUInt32 value)
    {
        crc = value;
        SetFlag<Flag_CRC>(true);
    }

    // Every byte of the record to 0: no payload, time 0, every flag unknown.
    void Reset() { std::memset(static_cast<void*>(this), 0, sizeof *this); }
    // Every flag unknown. The value bits stay as they were and mean nothing
    // until set again.
    void InvalidateAllFlags() { hasFlags = 0; }

    // The CAN FD table: DLC 0 to 8 count bytes, 9 to 15 stand for 12, 16, 20,
    // 24, 32, 48 and 64. A DLC above 15 reads as 15. A byte count between two
    // table values takes the next larger DLC, one above 64 the largest.
    static std::size_t DLCToDataLength(std::size_t dlc)
    {
        static const VELDUInt8 kBytes[16] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 20, 24, 32, 48, 64};
        return kBytes[dlc > 15 ? 15 : dlc];
    }
    static std::size_t DataLengthToDLC(std::size_t length)
    {
        std::size_t dlc = 0;
        while (dlc < 15 && DLCToDataLength(dlc) < length) ++dlc;
        return dlc;
    }
};

static_assert(sizeof(VELDCANFrame) == 24, "VELDCANFrame is a 24-byte format");
static_assert(offsetof(VELDCANFrame, arbitrationId) == 0, "VELDCANFrame layout");
static_assert(offsetof(VELDCANFrame, isRemote) == 4, "VELDCANFrame layout");
static_assert(offsetof(VELDCANFrame, dataLength) == 5, "VELDCANFrame layout");
static_assert(offsetof(VELDCANFrame, data) == 6, "VELDCANFrame layout");
static_assert(offsetof(VELDCANFrame, ts) == 16, "VELDCANFrame layout: two bytes of gap before ts");

static_assert(sizeof(VELDCANFDFrame) == 80, "VELDCANFDFrame is an 80-byte format");
static_assert(offsetof(VELDCANFDFrame, arbitrationId) == 0, "VELDCANFDFrame layout");
static_assert(offsetof(VELDCANFDFrame, dataLength) == 4, "VELDCANFDFrame layout");
static_assert(offsetof(VELDCANFDFrame, data) == 5, "VELDCANFDFrame layout");
static_assert(offsetof(VELDCANFDFrame, ts) == 72, "VELDCANFDFrame layout: three bytes of gap before ts");

static_assert(sizeof(VELDCANUniFrame) == 96, "VELDCANUniFrame is a 96-byte format");
static_assert(offsetof(VELDCANUniFrame, misc) == 0, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, id) == 4, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, ts) == 8, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, data) == 16, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, flags) == 80, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, hasFlags) == 84, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, crc) == 88, "VELDCANUniFrame layout");
static_assert(offsetof(VELDCANUniFrame, reserved) == 92, "VELDCANUniFrame layout");

static_assert(std::is_trivially_copyable<VELDCANFrame>::value, "frames are copied bytewise");
static_assert(std::is_trivially_copyable<VELDCANFDFrame>::value, "frames are copied bytewise");
static_assert(std::is_trivially_copyable<VELDCANUniFrame>::value, "frames are copied bytewise");

#endif
