// CanPrinter: one readable line per CAN frame, on standard output or into a
// file. Takes any of the three frame records, one frame an element or many.
//
//   (12.345678) 123 [8] 00 00 00 00 04 05 06 07
//   (12.345920) 18DAF110 [12] 01 00 00 00 05 06 07 08 09 0A 0B 0C  FD BRS
//
// With element_info each line also tells the element: its timestamp and the
// frame's place in it, "  elt=12.345000 #0/4".
#include <string>

#include "CanRecords.h"
#include "ModelTables.h"
#include "veld_io_elt.h"

namespace veldor_io {
namespace {

class CanPrinter : public VELDModel<CanPrinter> {
public:
    using VELDModel::VELDModel;

    void Birth() override
    {
        m_out.Open(*this);
        m_elementInfo = GetBoolProperty("element_info");
    }

    void Core() override
    {
        VELDInput& input = Input(0);
        VELDIOElt* element = StartReading(input);
        if (!element) return;
        const int kind = KindOf(*element);
        const int n = kind < 0 ? 0 : element->VectorSize();
        for (int i = 0; i < n; ++i)
            m_out.Put(FormatFrame(ViewOf(*element, kind, i)) +
                      (m_elementInfo ? ElementInfo(element->Timestamp(), i, n) : std::string()));
        StopReading(input);
        m_out.Printed(*this, n);
    }

    void Death() override { m_out.Close(); }

private:
    LineFile m_out;
    bool m_elementInfo = false;
};

VELDInputDefinition g_inputs[] = {CanInput("iCAN"), VELDInputDefinition{nullptr, 0, nullptr, 0, 0}};
VELDPropertyDefinition g_properties[] = {Setting("file", new VELDPropertyValue("")),
                                         Setting("element_info", new VELDPropertyValue(false)),
                                         Figure("printed"), VELDPropertyDefinition()};

}  // namespace
}  // namespace veldor_io

VELDComponentDefinition CanPrinterDefinition =
    veldor_io::Define<veldor_io::CanPrinter>("CanPrinter", "1.0.0", veldor_io::g_inputs, nullptr,
                                             veldor_io::g_properties);
VELD_DECLARE_MODEL(veldor_io::CanPrinter, CanPrinterDefinition, "CanPrinter", "1.0.0");
