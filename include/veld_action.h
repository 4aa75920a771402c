// A named command of a module, as the engine and other modules see it.
#ifndef VELD_ACTION_H
#define VELD_ACTION_H

class VELDAction {
public:
    virtual void DoIt(const char* argument) = 0;
    virtual const char* Name() = 0;  // "<module>.<short name>"
    virtual const char* ShortName() = 0;
    virtual ~VELDAction() {}
};

#endif
