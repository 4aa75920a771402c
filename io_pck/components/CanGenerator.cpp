// CanGenerator: periodic CAN frames of one identifier, in any of the three
// frame records. Each frame carries a counter, 0 for the first, in its first
// four payload bytes (little-endian, as many as the frame has); byte i from 4
// on holds (counter + i) & 0xFF. A reader can thus check order, loss and the
// payload itself.
//
// Frame times: the engine's time when the frame is written, or, with
// first_timestamp set, first_timestamp + counter x period, the times of a
// recording. Paced, one element goes out each frames_per_element x period;
// unpaced, as fast as the readers take them.
#include <algorithm>
#include <cstdint>
#include <vector>

#include "CanRecords.h"
#include "ModelTables.h"
#include "veld_dynamic_io_models.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

class CanGenerator : public VELDModel<CanGenerator> {
public:
    using VELDModel::VELDModel;

    void Dynamic() override
    {
        m_outputs.Reset();
        const int kind = static_cast<int>(GetIntegerProperty("output_type"));
        // Frames come in vectors: the type says so.
        m_outputs.NewOutput(*this, "oCAN", TypeOf(kind) | VELD::VectorFlag, "");
    }

    void Birth() override
    {
        m_kind = static_cast<int>(GetIntegerProperty("output_type"));
        m_perElement = static_cast<int>(std::max<VELDInt64>(1, std::min<VELDInt64>(256, GetIntegerProperty("frames_per_element"))));
        m_count = GetIntegerProperty("count");
        m_period = GetIntegerProperty("period");
        m_firstTimestamp = GetIntegerProperty("first_timestamp");
        m_paced = GetBoolProperty("paced");
        m_fields.id = static_cast<std::uint32_t>(GetIntegerProperty("identifier"));
        m_fields.extended = GetBoolProperty("extended");
        m_fields.length = static_cast<int>(GetIntegerProperty("length"));
        m_fields.fd = GetBoolProperty("fd");
        m_fields.brs = GetBoolProperty("brs");
        m_sent = 0;
        m_payload.assign(64, 0);
        m_next = VELD::CurrentTime(true, true);
        Output("oCAN").AllocOutputBuffer(m_perElement, true);
    }

    void Core() override
    {
        if (m_count > 0 && m_sent >= m_count) {
            Rest(10000);
            return;
        }
        if (m_paced) Wait(m_next);
        int n = m_perElement;
        if (m_count > 0) n = static_cast<int>(std::min<VELDInt64>(n, m_count - m_sent));

        VELDIOElt* element = StartWriting(Output("oCAN"));
        if (!element) return;
        const VELDTimestamp now = VELD::CurrentTime(true, true);
        element->VectorSize() = n;
        for (int i = 0; i < n; ++i) {
            const std::uint32_t counter = static_cast<std::uint32_t>(m_sent + i);
            for (int b = 0; b < 4; ++b) m_payload[b] = static_cast<std::uint8_t>(counter >> (8 * b));
            for (int b = 4; b < 64; ++b) m_payload[b] = static_cast<std::uint8_t>((counter + b) & 0xFF);
            m_fields.ts = m_firstTimestamp != 0 ? m_firstTimestamp + static_cast<VELDTimestamp>(counter) * m_period : now;
            WriteFrame(*element, m_kind, i, m_fields, m_payload.data());
        }
        element->Timestamp() = m_firstTimestamp != 0 ? m_firstTimestamp + m_sent * m_period : now;
        StopWriting(element);
        m_sent += n;
        m_next += n * m_period;
        DirectSet(Property("sent"), m_sent);
    }

private:
    VELD::DynamicOutputModelSet m_outputs;
    int m_kind = 0;
    int m_perElement = 1;
    VELDInt64 m_count = 0;
    VELDInt64 m_period = 1000;
    VELDInt64 m_firstTimestamp = 0;
    bool m_paced = true;
    FrameFields m_fields{};
    VELDInt64 m_sent = 0;
    VELDTimestamp m_next = 0;
    std::vector<std::uint8_t> m_payload;
};

VELDPropertyDefinition g_properties[] = {
    Setting("output_type", new VELDPropertyValue(kRecordKinds, VELDInt32(0))),
    Setting("identifier", new VELDPropertyValue(VELDInt64(0x123))),
    Setting("extended", new VELDPropertyValue(false)),
    Setting("length", new VELDPropertyValue(VELDInt64(8)), "bytes"),
    Setting("fd", new VELDPropertyValue(false)),
    Setting("brs", new VELDPropertyValue(false)),
    Setting("period", new VELDPropertyValue(VELDInt64(1000)), "us"),
    Setting("count", new VELDPropertyValue(VELDInt64(0))),
    Setting("frames_per_element", new VELDPropertyValue(VELDInt64(1))),
    Setting("paced", new VELDPropertyValue(true)),
    Setting("first_timestamp", new VELDPropertyValue(VELDInt64(0)), "us"),
    Figure("sent"),
    VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanGeneratorDefinition =
    veldor_io::Define<veldor_io::CanGenerator>("CanGenerator", "1.0.0", nullptr, nullptr, veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::CanGenerator, CanGeneratorDefinition, "CanGenerator", "1.0.0");
