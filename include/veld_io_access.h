// Typed access to the elements of an input.
//
// VELD::InputGuard<T> reads one element of an input for the length of a
// scope and checks that the element's type can be seen as T:
//
//   VELD::InputGuard<VELDpcap_data_t> guard(this, Input("iEth"), true);
//   if (guard.IsValid()) Use(guard.Data(0));   // released at the end of the scope
//
// VELD::GetIOElementPointer<T>(element, index, check) finds item `index` of
// an element as a T; with `check` it tests the type and the index against
// what the element holds. Every refusal is reported with the place and the
// signature of the failing call, and throws VELD::ErrorException.
//
// A structure type (VELD::Structure, VELD::DynamicStructure) carries no type
// value that tells which C++ record it holds: a T without a type value of its
// own (GetTypeInfoValuePointer<T> null) passes on any structure, and the
// capacity of the element is its buffer size divided by sizeof(T).
#ifndef VELD_IO_ACCESS_H
#define VELD_IO_ACCESS_H

#include <cstdint>

#include "veld_can_frames.h"
#include "veld_component.h"
#include "veld_constants.h"
#include "veld_input.h"
#include "veld_io_elt.h"
#include "veld_object_types.h"
#include "veld_private.h"
#include "veld_string.h"

namespace VELD {

// The type value of the element type T, or null for a T that has none (a
// structure of the component's).
template <class T>
struct TypeInfoValueOf {
    static const VELDTypeInfoValue* Pointer() { return nullptr; }
};

#define VELD_IO_ACCESS_TYPE_VALUE(T, value)                       \
    template <>                                                   \
    struct TypeInfoValueOf<T> {                                   \
        static const VELDTypeInfoValue* Pointer()                 \
        {                                                         \
            static const VELDTypeInfoValue kValue = (value);      \
            return &kValue;                                       \
        }                                                         \
    };
VELD_IO_ACCESS_TYPE_VALUE(VELDInt8, Integer8)
VELD_IO_ACCESS_TYPE_VALUE(VELDInt16, Integer16)
VELD_IO_ACCESS_TYPE_VALUE(VELDInt32, Integer32)
VELD_IO_ACCESS_TYPE_VALUE(VELDInt64, Integer64)
VELD_IO_ACCESS_TYPE_VALUE(VELDUInt8, UnsignedInteger8)
VELD_IO_ACCESS_TYPE_VALUE(VELDUInt16, UnsignedInteger16)
VELD_IO_ACCESS_TYPE_VALUE(VELDUInt32, UnsignedInteger32)
VELD_IO_ACCESS_TYPE_VALUE(VELDUInt64, UnsignedInteger64)
VELD_IO_ACCESS_TYPE_VALUE(VELDFloat32, Float32)
VELD_IO_ACCESS_TYPE_VALUE(VELDFloat64, Float64)
VELD_IO_ACCESS_TYPE_VALUE(VELDCANFrame, CANFrame)
VELD_IO_ACCESS_TYPE_VALUE(VELDCANFDFrame, CANFDFrame)
VELD_IO_ACCESS_TYPE_VALUE(VELDCANUniFrame, CANUniFrame)
#undef VELD_IO_ACCESS_TYPE_VALUE

template <class T>
const VELDTypeInfoValue* GetTypeInfoValuePointer()
{
    return TypeInfoValueOf<T>::Pointer();
}

namespace IOAccessHelper {

// The classes of types that decide how items are counted.
struct CheckType {
    static bool IsPowerOf2(VELDUInt64 value) { return value > 0 && (value & (value - 1)) == 0; }
    static bool IsSingleType(const VELDTypeInfo& type) { return IsPowerOf2(type.value & TypeMask); }
    static bool IsTrivial(const VELDTypeInfo& type)
    {
        return IsSingleType(type) && (TypeFilter(type, FilterNumbers) || TypeFilter(type, FilterAnyCANFrame) ||
                                      TypeFilter(type, FilterDrawingObjects) || TypeFilter(type, FilterRealObjects));
    }
    static bool IsStruct(const VELDTypeInfo& type)
    {
        return IsSingleType(type) && (TypeFilter(type, FilterStructure) || TypeFilter(type, FilterDynamicStructure));
    }
    static bool IsNonVectorizable(const VELDTypeInfo& type)
    {
        return IsSingleType(type) && (TypeFilter(type, FilterImage) || TypeFilter(type, FilterMatrix) ||
                                      TypeFilter(type, FilterAudioSignal) || TypeFilter(type, FilterTriangles3D));
    }
    static bool IsText(const VELDTypeInfo& type)
    {
        return IsSingleType(type) && (TypeFilter(type, FilterTextUTF8) || TypeFilter(type, FilterTextUTF16));
    }
    template <class T>
    static bool StrictTypeFilter(const VELDTypeInfo& type)
    {
        const VELDTypeInfoValue* value = GetTypeInfoValuePointer<T>();
        return value && (type.value & TypeMask) == *value;
    }
    template <class T>
    static bool ValidateIOEltType(const VELDTypeInfo& type)
    {
        return StrictTypeFilter<T>(type) || (IsStruct(type) && GetTypeInfoValuePointer<T>() == nullptr);
    }
};

// Reports "veld_io_access:<line> <signature>: <text>" and throws
// VELD::ErrorException.
[[noreturn]] inline void Fail(int line, const char* signature, const VELDStreamedString& text)
{
    VELDStreamedString message;
    message << "veld_io_access:" << line << " " << signature << ": " << text;
    VELDPrivate::KernelError(message, 1);
}

}  // namespace IOAccessHelper

// Item `elementIndex` of `ioElt` seen as a T. TIndex may be any integer
// type: an index from 0x80000000 up, or one that is negative as an int, is
// refused whatever the check.
template <class T, class TIndex>
T* GetIOElementPointer(VELDIOElt* ioElt, TIndex elementIndex, bool check)
{
    using IOAccessHelper::CheckType;
    using IOAccessHelper::Fail;
    const char* const signature = __PRETTY_FUNCTION__;
    if (!ioElt) Fail(227, signature, "[ioElt == NULL]");
    if (elementIndex > 0 && static_cast<std::uint64_t>(elementIndex) >= 0x80000000ULL) {
        VELDStreamedString text;
        text << "[elementIndex:" << elementIndex << "] > [INT_MAX:2147483647]";
        Fail(232, signature, text);
    }
    const int index = static_cast<int>(elementIndex);
    if (index < 0) {
        VELDStreamedString text;
        text << "[elementIndex:" << elementIndex << "] < 0";
        Fail(240, signature, text);
    }
    T* const data = static_cast<T*>(ioElt->Data());
    if (!check) {
        if (!data) Fail(249, signature, "Assertion Failed: typedElementPtr != NULL");
        return data + index;
    }

    const VELDTypeInfo& type = ioElt->Type();
    if (!CheckType::ValidateIOEltType<T>(type))
        Fail(257, signature,
             "[ElementType != ioElt.Type] The requested ElementType is different from actual data type of the I/O "
             "element");
    const int bufferSize = ioElt->BufferSize();
    int capacity;
    if (CheckType::IsTrivial(type)) {
        capacity = bufferSize;
    } else if (CheckType::IsStruct(type)) {
        capacity = static_cast<int>(bufferSize / static_cast<long>(sizeof(T)));
        if (capacity < 1) {
            VELDStreamedString text;
            text << "[bufferElementCapacity:" << capacity << "] == [bufferSize:" << bufferSize
                 << "] / [sizeOfElement:" << static_cast<unsigned long>(sizeof(T)) << "]"
                 << "\n    This might happen if:"
                 << "\n    * The structure used in the upstream component is different from the one that is used in "
                    "the downstream component (event if they both appear to have the same name)"
                 << "\n    * And/or the upstream component has not set the buffer size to be equal to "
                    "[sizeof(structure) * elementCount]";
            Fail(276, signature, text);
        }
    } else if (CheckType::IsNonVectorizable(type)) {
        capacity = 1;
    } else if (CheckType::IsText(type)) {
        capacity = bufferSize;
    } else {
        Fail(294, signature, "I/O type not supported");
    }
    if (!data) Fail(299, signature, "Assertion Failed: typedElementPtr != NULL");
    if (index >= capacity) {
        VELDStreamedString text;
        text << "Element index is out of bounds. [elementIndex:" << elementIndex
             << "] >= [bufferElementCapacity:" << capacity << "]";
        Fail(304, signature, text);
    }
    return data + index;
}

template <class T, class TIndex>
const T* GetInputElementPointer(VELDIOElt* ioElt, TIndex elementIndex, bool check)
{
    return GetIOElementPointer<T>(ioElt, elementIndex, check);
}

// One element of an input for the length of a scope.
template <class TElementType>
class InputGuard {
public:
    // Reads the next element of `input` (blocking as StartReading does).
    // With `stopReading` the element is released at the end of the scope.
    template <class TComponent>
    InputGuard(TComponent* component, VELDInput& input, bool stopReading)
        : m_component(component ? static_cast<VELDComponent*>(component) : nullptr), m_input(&input),
          m_ioEltIn(nullptr), m_stopReading(stopReading)
    {
        if (!m_component) {
            VELDStreamedString message;
            message << "veld_io_access.h:386 " << __PRETTY_FUNCTION__ << ": Assertion Failed: m_component != NULL";
            VELDPrivate::KernelError(message, 1);
        }
        m_ioEltIn = m_component->StartReading(input);
        if (m_ioEltIn && !IOAccessHelper::CheckType::ValidateIOEltType<TElementType>(m_ioEltIn->Type())) {
            VELDStreamedString message;
            message << m_component->Name() << ": veld_io_access:392 " << __PRETTY_FUNCTION__
                    << ": The ElementType of the InputGuard of [input_name:" << input.Name()
                    << "] doesn't match the actual type of the input";
            VELDPrivate::KernelError(message, 1);
        }
    }
    ~InputGuard()
    {
        if (m_stopReading && m_component && m_input && m_ioEltIn) m_component->StopReading(*m_input);
    }
    InputGuard(const InputGuard&) = delete;
    InputGuard& operator=(const InputGuard&) = delete;

    void StopReadingOnScopeExit() { m_stopReading = true; }
    void KeepReadingAfterScopeExit() { m_stopReading = false; }

    bool IsValid() const { return m_ioEltIn != nullptr; }
    VELDIOElt* IOElt() const { return m_ioEltIn; }
    const TElementType* DataPointer(int index = 0) const
    {
        return GetInputElementPointer<TElementType>(m_ioEltIn, index, true);
    }
    const TElementType& Data(int index = 0) const { return *DataPointer(index); }

    VELDTimestamp& TimeOfIssue() { return m_ioEltIn->TimeOfIssue(); }
    VELDTimestamp& Timestamp() { return m_ioEltIn->Timestamp(); }
    int& VectorSize() { return m_ioEltIn->VectorSize(); }
    int& BufferSize() { return m_ioEltIn->BufferSize(); }
    VELDInt64& Frequency() { return m_ioEltIn->Frequency(); }
    VELDInt32& Quality() { return m_ioEltIn->Quality(); }
    VELDTypeInfo& Type() { return m_ioEltIn->Type(); }
    int& BufferItemSize() { return m_ioEltIn->BufferItemSize(); }
    VELDInt32& Misc1() { return m_ioEltIn->Misc1(); }
    VELDInt32& Misc2() { return m_ioEltIn->Misc2(); }
    VELDInt32& Misc3() { return m_ioEltIn->Misc3(); }
    unsigned int IOEltBufferSizeInBytes(bool* flat = nullptr) { return m_ioEltIn->IOEltBufferSizeInBytes(flat); }
    unsigned int IOEltUsedSizeInBytes(bool* flat = nullptr) { return m_ioEltIn->IOEltUsedSizeInBytes(flat); }
    unsigned int Deserialize(void* source, bool allocate) { return m_ioEltIn->Deserialize(source, allocate); }

private:
    VELDComponent* m_component;
    VELDInput* m_input;
    VELDIOElt* m_ioEltIn;
    bool m_stopReading;
};

}  // namespace VELD

#endif
