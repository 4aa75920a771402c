// A component's connection to at most one output's FIFO, as the engine and
// other modules see it.
#ifndef VELD_INPUT_H
#define VELD_INPUT_H

class VELDOutput;
class VELDTypeFilterBase;

class VELDInput {
public:
    virtual bool IsConnected() = 0;
    virtual VELDOutput* ConnectedOutput() = 0;
    // What the input accepts.
    virtual const VELDTypeFilterBase* Type() = 0;
    virtual const char* Name() = 0;  // "<module>.<short name>"
    virtual const char* ShortName() = 0;
    virtual bool DataAvailableInFIFO() = 0;
    virtual int NbDataAvailableInFIFO() = 0;
    virtual ~VELDInput() {}
};

#endif
