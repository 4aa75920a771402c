// Declaring a component model: the class gets its static Instantiate, the
// definition record points at it, and the registry learns the model.
//
//   class Doubler : public VELDModel<Doubler> {
//   public:
//       using VELDModel::VELDModel;  // (const char* name, VELDComponentDefinition&)
//       void Core() override { ... }
//   };
//
//   VELDComponentDefinition DoublerDefinition = {
//       "Doubler", "1.0.0", &Doubler::Instantiate, nullptr, nullptr, 0,
//       1, doublerInputs, 1, doublerOutputs, 1, doublerProperties, 0, nullptr,
//       128, VELD::Threaded | VELD::Sequential, true, 0};
//
//   VELD_DECLARE_MODEL(Doubler, DoublerDefinition, "Doubler", "1.0.0");
//
// A model that needs another base (a class template of a family of models,
// a virtual base) writes VELD_MODEL_INSTANTIATE(Model) in its public part
// instead of deriving from VELDModel. Instantiate returns the component part
// of the new object, which is not the start of the allocation when the base
// is virtual; the engine destroys the component through its virtual
// destructor.
#ifndef VELD_MODEL_H
#define VELD_MODEL_H

#include "veld_component.h"
#include "veld_module_definition.h"

// The static Instantiate(name, definition) of a model class.
#define VELD_MODEL_INSTANTIATE(Model)                                                         \
    static VELDComponent* Instantiate(const char* name, VELDComponentDefinition& definition) \
    {                                                                                         \
        return new Model(name, definition);                                                   \
    }

// The base of a model: VELDComponent (or `Base`) with the model's
// Instantiate.
template <class Model, class Base = VELDComponent>
class VELDModel : public Base {
public:
    VELDModel(const char* name, VELDComponentDefinition& definition) : Base(name, definition) {}

    VELD_MODEL_INSTANTIATE(Model)
};

// Files the model under "VELDComponent" with its definition record. `model`
// and `version` are literals equal to the record's name and version; the
// definition is known to the registry by the class name.
#define VELD_DECLARE_MODEL(Model, ComponentDefinition, model, version) \
    VELD_DECLARE_COMPONENT(Model, #Model, ComponentDefinition, model, version)

#endif
