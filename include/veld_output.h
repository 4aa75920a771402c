// A named endpoint of a component with its FIFO and payload block, as the
// engine and other modules see it.
#ifndef VELD_OUTPUT_H
#define VELD_OUTPUT_H

struct _IplImage;
class VELDAudioSignal;
class VELDIOMonitor;
class VELDTypeInfo;

class VELDOutput {
public:
    // The allocation family: one call prepares the payload of every element
    // of the FIFO. A failure is reported and thrown.
    virtual void AllocOutputBuffer(int items, bool allocate) = 0;
    virtual void AllocOutputBufferIplImage(const _IplImage& model, bool external) = 0;
    virtual void AllocOutputBufferImage(int items, int width, int height, unsigned int coding, unsigned int type,
                                        bool external) = 0;
    virtual void AllocOutputBufferVELDImage(int items, int width, int height, unsigned int coding, unsigned int type,
                                            bool external) = 0;
    virtual void AllocOutputBufferMatrix(int rows, int columns) = 0;
    virtual void AllocOutputBufferAudioSignal(const VELDAudioSignal& model) = 0;
    virtual const char* Name() = 0;  // "<module>.<short name>"
    virtual int NbFIFOOverflows() = 0;
    virtual VELDIOMonitor* Monitor() = 0;
    virtual void MakeShareable() = 0;
    virtual void MakeUnshareable() = 0;
    virtual int IOEltSizeBytes() = 0;
    virtual int NbFreeSlotsInFIFO() = 0;
    virtual const VELDTypeInfo& Type() = 0;
    virtual void SetTypeValue(long value) = 0;
    virtual void SetTypeUnit(const char* unit) = 0;
    virtual void SetUnit(const char* unit) = 0;
    virtual const char* TypeUnit() = 0;
    virtual const char* Unit() = 0;
    virtual void SetTypeName(const char* name) = 0;
    virtual const char* TypeName() = 0;
    virtual ~VELDOutput() {}
};

#endif
