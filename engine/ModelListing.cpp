#include "ModelListing.h"

#include <iomanip>

#include "Engine.h"
#include "PropertyText.h"
#include "TypeText.h"
#include "veld_action_impl.h"
#include "veld_component.h"
#include "veld_input_impl.h"
#include "veld_output_impl.h"
#include "veld_property_impl.h"

namespace veldor {

namespace {

const int kNameWidth = 22;

void ListProperties(VELDComponent& component, std::ostream& out)
{
    out << "  properties:\n";
    VELDMutexGuard guard(component.m_structureLock);
    VELDBasicListItem* first = component.m_builtInPropertiesEnd ? component.m_builtInPropertiesEnd->successor
                                                                : component.m_properties.First();
    for (VELDBasicListItem* it = first; it; it = it->successor) {
        VELDPropertyImplementation& p = *VELDList<VELDPropertyImplementation*>::Value(it);
        // Inputs' and outputs' own settings are told with them; section
        // markers only group what a user interface shows.
        const std::string name = p.Name();
        if (name.find('.') != name.rfind('.') ||
            (p.SubType() & (VELD::PropertySubTypeBeginSubSection | VELD::PropertySubTypeEndSubSection)))
            continue;
        out << "    " << std::left << std::setw(kNameWidth) << p.ShortName() << " " << std::setw(8)
            << PropertyText::TypeName(p.Type()) << " " << PropertyText::ValueOf(p);
        if (p.Unit() && *p.Unit()) out << " " << p.Unit();
        std::string flags = PropertyText::FlagsOf(p);
        if (!flags.empty()) out << "  [" << flags << "]";
        out << "\n";
    }
}

void ListElements(VELDComponent& component, std::ostream& out)
{
    const std::string prefix = std::string(component.Name()) + ".";
    auto shortName = [&prefix](const char* name) { return std::string(name).substr(prefix.size()); };
    out << "  inputs:" << (component.NbInputs() ? "\n" : " none\n");
    for (int i = 0; i < component.NbInputs(); ++i) {
        auto& input = static_cast<VELDInputImplementation&>(component.Input(i));
        out << "    " << std::left << std::setw(kNameWidth) << shortName(input.Name()) << " accepts "
            << DescribeFilter(input.Type()) << "; " << ReaderTypeName(input.ReaderType()) << "\n";
    }
    out << "  outputs:" << (component.NbOutputs() ? "\n" : " none\n");
    for (int i = 0; i < component.NbOutputs(); ++i) {
        auto& output = static_cast<VELDOutputImplementation&>(component.Output(i));
        out << "    " << std::left << std::setw(kNameWidth) << shortName(output.Name()) << " "
            << DescribeType(output.Type()) << ", size " << output.definition.size << ", FIFO "
            << output.definition.fifoSize << "\n";
    }
    out << "  actions:" << (component.NbActions() ? "\n" : " none\n");
    for (int i = 0; i < component.NbActions(); ++i) {
        auto& action = static_cast<VELDActionImplementation&>(component.Action(i));
        out << "    " << action.ShortName()
            << (action.m_action && action.m_action->action_arg ? " ARGUMENT" : "") << "\n";
    }
}

}  // namespace

void ListModels(Engine& engine, const std::string& package, std::ostream& out)
{
    int index = 0;
    for (const Packages::Model& model : engine.GetPackages().ModelsOf(package)) {
        out << model.name << " " << (model.definition->version ? model.definition->version : "") << "\n";
        std::string name = "listed" + std::to_string(index++), error;
        VELDComponent* component = engine.Graph().Create(model.name, name, &error);
        if (!component) {
            out << "  (no component could be made: " << error << ")\n";
            continue;
        }
        ListProperties(*component, out);
        ListElements(*component, out);
        engine.Graph().Kill(name);
    }
}

}  // namespace veldor
