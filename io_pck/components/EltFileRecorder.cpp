// EltFileRecorder: writes every element that reaches iElt, whatever it
// carries (CAN frames, numbers, texts, structures such as an injector's
// replay state, images, matrices), into an element file (.velt, see
// EltFiles.h): each element whole, its timestamp, type, sizes, frequency,
// quality and misc fields with its payload, as the framework serializes it.
// EltFilePlayer plays such a file back.
//
// Refused: a type whose payload holds addresses that mean something only in
// the process that wrote it (the PCAP stream record, VELDpcap_data_t) or
// whose size the framework does not know (a custom type) stops the recorder
// with one message. A mesh (Triangles3D) with fewer items in use than its
// buffer is refused and counted: the serialized form writes a mesh by its
// buffer and reads it back by the items in use, which agree only when it is
// full.
//
// The flush, the close and a failing file are those every file recorder
// shares (FileRecorderModel.h), as are the figures recorded (elements in the
// file), refused, first_time and last_time (the timestamps of the first and
// the last element recorded) and idle. Its own: bytes (the file's size).
#include <cinttypes>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "EltFiles.h"
#include "FileRecorderModel.h"
#include "veld_io_records.h"

namespace veldor_io {
namespace {

const unsigned int kUnknownSize = 4294967295u;

// "VELDpcap_data_t elements", or "elements of type 0x40000" without a name.
std::string Describe(VELDIOElt& element)
{
    const char* name = element.Type().Name();
    if (name && *name) return std::string(name) + " elements";
    char text[64];
    std::snprintf(text, sizeof text, "elements of type 0x%" PRIx64, static_cast<std::uint64_t>(element.Type().value));
    return text;
}

const VELDTriangles3D* MeshOf(VELDIOElt& element)
{
    if (!element.Data() || !VELD::TypeFilter(element.Type(), VELD::FilterTriangles3D)) return nullptr;
    return static_cast<const VELDTriangles3D*>(element.Data());
}

class EltFileRecorder : public FileRecorderModel<EltFileRecorder, EltFileWriter> {
public:
    using FileRecorderModel::FileRecorderModel;

    void Birth() override
    {
        const std::string path = GetStringProperty("file").Beginning();
        DirectSet(Property("bytes"), VELDInt64(0));
        m_writer = std::make_unique<EltFileWriter>();
        if (!m_writer->Open(path)) Error(("cannot record into " + path + ": " + m_writer->Error()).c_str(), 1, ErrorGeneric);
        m_bytes = 16;
        StartRecording(path);
    }

    void Core() override
    {
        int input = 0;
        VELDIOElt* element = NextElement(input);
        if (!element) return;
        const std::string failure = Record(*element);
        if (!failure.empty()) Stop(failure);
        Done(input);
    }

private:
    // Writes the element; the reason to stop when it can't be.
    std::string Record(VELDIOElt& element)
    {
        if (element.IOEltUsedSizeInBytes(nullptr) == kUnknownSize) {
            if (VELD::TypeFilter(element.Type(), VELD::FilterDynamicStructure))
                return "cannot record " + Describe(element) +
                       ": their payload holds addresses that mean something only in the process that wrote them";
            return "cannot record " + Describe(element) + ": the size of their payload is not known";
        }
        const VELDTriangles3D* mesh = MeshOf(element);
        if (mesh && element.VectorSize() != element.BufferSize()) {
            CountRefused("a mesh with fewer items in use than its buffer can't be recorded into " + m_path +
                         ": such elements are counted as refused");
            return "";
        }
        // Room for the whole buffer, which a matrix or a mesh writes.
        const std::uint64_t room = std::uint64_t(element.Serialize(nullptr, 0)) + element.IOEltBufferSizeInBytes(nullptr);
        if (room > kMaxEltBytes) return "cannot record " + Describe(element) + ": an element takes more than 1 GiB";
        if (m_block.size() < room) m_block.resize(room);
        std::uint64_t size = element.Serialize(m_block.data(), static_cast<unsigned int>(room));
        if (size == kUnknownSize) return "cannot record " + Describe(element) + " into " + m_path;
        // The last block of a mesh is written but not counted.
        if (mesh && mesh->triangles) size += std::uint64_t(VELD::Triangle3DSize) * element.BufferSize();
        if (!m_writer->Write(m_block.data(), static_cast<std::uint32_t>(size)))
            return "cannot write " + m_path + ": " + m_writer->Error();
        m_bytes += 4 + static_cast<VELDInt64>(size);
        Recorded(element.Timestamp());
        return "";
    }

    void PublishOwn() override { DirectSet(Property("bytes"), m_bytes); }

    std::vector<unsigned char> m_block;
    VELDInt64 m_bytes = 0;
};

VELDInputDefinition g_inputs[] = {VELDInputDefinition{"iElt", 0, &VELD::FilterAny, VELD::NeverSkippingReader, 1},
                                  VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
std::vector<VELDPropertyDefinition> g_properties =
    RecorderProperties({Setting("file", new VELDPropertyValue(""))}, {Figure("bytes")});

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition EltFileRecorderDefinition = veldor_io::Define<veldor_io::EltFileRecorder>(
    "EltFileRecorder", "1.0.0", veldor_io::g_inputs, nullptr, veldor_io::g_properties.data());
VELD_DECLARE_MODEL(veldor_io::EltFileRecorder, EltFileRecorderDefinition, "EltFileRecorder", "1.0.0");
