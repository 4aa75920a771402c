// What the element code needs of a kernel, for the serialized element fuzz
// target: the checks off, reports counted and dropped (a fuzzer makes
// millions), payloads on the heap.
#include <cstdlib>

#include "veld.h"
#include "veld_private.h"

namespace {
unsigned long g_reports = 0;
}

int VELD::CheckLevel() { return 0; }
void VELD::ReportError(const char*, int) { ++g_reports; }
void VELD::ReportWarning(const char*, int) { ++g_reports; }
void VELDPrivate::KernelError(const char*, int) { throw VELD::ErrorException; }
void* VELD::AllocSharedMemory(std::size_t bytes) { return std::malloc(bytes ? bytes : 1); }
void VELD::FreeSharedMemory(void* block) { std::free(block); }
