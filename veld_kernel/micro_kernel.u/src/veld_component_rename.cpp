// The action that every component offers: renaming it after the output
// connected to its first input.
#include "veld.h"
#include "veld_component.h"
#include "veld_input.h"
#include "veld_output.h"

namespace {

const int kTries = 21;

}  // namespace

void VELDComponent::ActionRenameAfterUpstreamComponent(VELDModule* module, int)
{
    VELDComponent& component = static_cast<VELDComponent&>(*module);
    auto refuse = [&component](const char* text) { component.Report(text, VELD::Error, 0); };
    VELDString candidate;
    const VELDString own(component.Name());
    try {
        if (VELD::GetState() & VELD::Running) {
            refuse("This action is not allowed when Veldor is running.");
            return;
        }
        if (component.NbInputs() == 0) {
            refuse("This action scans what is connected to this component's first input, but this component does not "
                   "seem to have any inputs.");
            return;
        }
        VELDOutput* upstreamOutput = component.Input(0).ConnectedOutput();
        if (!upstreamOutput) {
            if (own.StartsWith("@"))
                refuse("This action scans what is connected to this component's first input. Please connect it in "
                       "order to rename after upstream component. Note however that you cannot rename after a "
                       "macro-component input.");
            else
                refuse("This action scans what is connected to this component's first input. Please connect it in "
                       "order to rename after upstream component.");
            return;
        }
        VELDString upstream(upstreamOutput->Name());
        upstream.Substitute('.', '_');
        const VELDArray<VELDString> upstreamSegments = upstream.Split(':');
        const VELDArray<VELDString> ownSegments = own.Split(':');
        if (!own.StartsWith("@") && ownSegments.Size() > 1) {
            refuse("Renaming a component inside a Macro-Component *instance* is forbidden. You may however rename a "
                   "component in the Macro-Component *model*: Right-click on the macro-component and select Edit "
                   "Macro-Component.");
            return;
        }
        if (upstreamSegments.Size() != ownSegments.Size()) {
            refuse("Cannot access macro-component output name: renaming after native component & output inside.");
            return;
        }
        VELDString base;
        const int last = upstreamSegments.Size() - 1;
        for (int k = 0; k <= last; ++k) {
            if (upstreamSegments[k].Length() == 0) continue;  // "::" gives an empty segment
            base += upstreamSegments[k];
            if (upstream.StartsWith("@") && k == 0)
                base += "::";
            else if (k != last)
                base += "_";
        }
        bool free = false;
        for (int i = 0; i < kTries && !free; ++i) {
            VELDStreamedString name(base);
            if (i > 0) name << "_" << i;
            candidate = name;
            VELDComponent* holder = VELD::Component(candidate);
            if (!holder) {
                free = !VELD::CoreFunction(candidate);
            } else if (holder == &component) {
                refuse("Component is already named after its upstream component's output.");
                return;
            }
        }
        if (!free) {
            refuse("Could not find an available name for component. You may change the upstream component name and "
                   "try again.");
            return;
        }
    } catch (...) {
        VELD::ReportError("Internal error while renaming after upstream component.", 0);
        throw;
    }
    bool renamed = false;
    try {
        renamed = VELD::RenameComponent(own, candidate);
    } catch (...) {
        renamed = false;
    }
    if (!renamed) {
        VELDString text("Unable to rename component after upstream component: suitable name found ('");
        text += candidate;
        text += "') but renaming failed.";
        refuse(text);
    }
}
