// The constants shared by the whole runtime: type bits and flags, reader and
// property types, report levels, wait results, state masks.
#ifndef VELD_CONSTANTS_H
#define VELD_CONSTANTS_H

#include "veld_types.h"

namespace VELD {

// --- type bits and masks --------------------------------------------------
const VELDTypeInfoValue NoMask = 0x0;
const VELDTypeInfoValue NoType = 0x0;
const VELDTypeInfoValue TypeMask = 0xFFFFFFFFULL;
const VELDTypeInfoValue AnyType = 0x0C000000FFFFFFFFULL;
const VELDTypeInfoValue Structure = 0x1;
const VELDTypeInfoValue Integer = 0x2;
const VELDTypeInfoValue Integer32 = 0x2;
const VELDTypeInfoValue Float = 0x4;
const VELDTypeInfoValue Float64 = 0x4;
const VELDTypeInfoValue Double = 0x4;
const VELDTypeInfoValue TextAscii = 0x8;
const VELDTypeInfoValue TextUTF8 = 0x8;
const VELDTypeInfoValue TextUnicode = 0x10;
const VELDTypeInfoValue TextUTF16 = 0x10;
const VELDTypeInfoValue IplImage = 0x20;
const VELDTypeInfoValue VELDImage = 0x40;
const VELDTypeInfoValue CANFrame = 0x80;
const VELDTypeInfoValue Matrix = 0x100;
const VELDTypeInfoValue RealObject = 0x200;
const VELDTypeInfoValue DrawingObject = 0x400;
const VELDTypeInfoValue Triangles3D = 0x800;
// Streams and unsigned numbers share their bits on purpose.
const VELDTypeInfoValue Stream8 = 0x1000;
const VELDTypeInfoValue UnsignedInteger8 = 0x1000;
const VELDTypeInfoValue Stream16 = 0x2000;
const VELDTypeInfoValue UnsignedInteger16 = 0x2000;
const VELDTypeInfoValue Stream32 = 0x4000;
const VELDTypeInfoValue UnsignedInteger32 = 0x4000;
const VELDTypeInfoValue Integer64 = 0x8000;
const VELDTypeInfoValue Float32 = 0x10000;
const VELDTypeInfoValue AudioSignal = 0x20000;
const VELDTypeInfoValue DynamicStructure = 0x40000;
const VELDTypeInfoValue CANFDFrame = 0x80000;
const VELDTypeInfoValue Integer8 = 0x100000;
const VELDTypeInfoValue Integer16 = 0x200000;
const VELDTypeInfoValue UnsignedInteger64 = 0x400000;
const VELDTypeInfoValue CustomType = 0x800000;
const VELDTypeInfoValue CANUniFrame = 0x1000000;
const VELDTypeInfoValue AnyText = 0x18;
const VELDTypeInfoValue AnyFloat = 0x10004;
const VELDTypeInfoValue AnySignedInteger = 0x308002;
const VELDTypeInfoValue AnyUnsignedInteger = 0x407000;
const VELDTypeInfoValue AnyUnsignedNumber = 0x407000;
const VELDTypeInfoValue AnyInteger = 0x70F002;
const VELDTypeInfoValue AnySignedNumber = 0x318006;
const VELDTypeInfoValue AnyNumber = 0x71F006;
const VELDTypeInfoValue VectorFlag = 0x8000000000000000ULL;
const VELDTypeInfoValue FrequencyFlag = 0x4000000000000000ULL;
const VELDTypeInfoValue QualityFlag = 0x2000000000000000ULL;
const VELDTypeInfoValue MiscFlag = 0x1000000000000000ULL;
const VELDTypeInfoValue IgnoreNameFlag = 0x0800000000000000ULL;
const VELDTypeInfoValue IgnoreUnitFlag = 0x0400000000000000ULL;

// --- reader types ----------------------------------------------------------
const int FifoReader = 0;
const int NeverSkippingReader = 1;
const int LastOrNextReader = 2;
const int Wait4NextReader = 3;
const int SamplingReader = 4;

// --- property types and sub-types -------------------------------------------
const int BoolProperty = 0;
const int IntegerProperty = 1;
const int FloatProperty = 2;
const int StringProperty = 3;
const int EnumProperty = 4;

const int PropertySubTypeNone = 0x0;
const int PropertySubTypeTime = 0x1;
const int PropertySubTypeCode = 0x2;
const int PropertySubTypeColor = 0x4;
const int PropertySubTypeHexa = 0x8;
const int PropertySubTypeFile = 0x10;
const int PropertySubTypePath = 0x20;
const int PropertySubTypeMustExist = 0x40;
const int PropertySubTypeHidden = 0x80;
const int PropertySubTypeBeginSubSection = 0x100;
const int PropertySubTypeEndSubSection = 0x200;

// --- report levels -----------------------------------------------------------
const int Info = 0;
const int Warning = 1;
const int Error = 2;
const int ParserEcho = 3;

// --- replay modes ------------------------------------------------------------
const int ReplayModeNormal = 0;
const int ReplayModeImmediate = 1;
const int ReplayModeTimestamp = 2;

// --- HMI keys ----------------------------------------------------------------
const int VCRKeyPlay = 0x1;
const int VCRKeyStop = 0x2;
const int VCRKeyRewind = 0x4;
const int VCRKeyForward = 0x8;
const int VCRKeyRecord = 0x10;
const int VCRKeyPause = 0x20;
const int VCRKeyNext = 0x40;
const int VCRKeyOrganize = 0x80;
const int VCRSlider = 0x100;
const int KernelKeyRun = 0x200;
const int KernelKeyShutdown = 0x400;
const int VCRAllKeys = 0xFFFF;
const int DefaultKeysState = 0x600;

// --- waits and errors: thrown as plain ints, or returned by waits ------------
const int Infinite = -1;
const int GotAMessage = -2;
const int TimeOut = -3;
const int FatalKernelError = -4;
const int ErrorException = -5;
const int ModuleDied = 0xDEAD;

// --- engine state mask ---------------------------------------------------------
const int Running = 1;
const int Paused = 2;
const int ShuttingDown = 4;
const int Resetting = 8;

// --- module state mask ---------------------------------------------------------
const int DeadState = 1;
const int DyingState = 2;
const int LivingState = 4;
const int ErrorState = 8;
const int StartAutomaticallyState = 16;

// --- threading model -----------------------------------------------------------
const int Threaded = 1;
const int Sequential = 2;

// --- others --------------------------------------------------------------------
const int BigEndian = 0;
const int DefaultTextSize = 1024;

// The interface version between a package and its host, and the build of the
// framework a package carries; its upper half is what VELDPckInit returns.
const int PackageInterfaceVersion = 0x80538;
const VELDInt32 KernelBuild = 0x00040A04;

}  // namespace VELD

#endif
